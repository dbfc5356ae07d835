// The update sentinel: a file the daemon touches to ask the launcher for an
// update check now. The launcher only watches its modification time.
#ifndef ZEV_TOOLS_ZEVD_SIM_SENTINEL_H_
#define ZEV_TOOLS_ZEVD_SIM_SENTINEL_H_

#include <filesystem>

namespace zev::sim {

// Creates the file if it is missing and sets its modification time to now.
// Throws std::system_error.
void touchSentinel(const std::filesystem::path& path);

}  // namespace zev::sim

#endif  // ZEV_TOOLS_ZEVD_SIM_SENTINEL_H_
