// The update-hold marker: while a file-system entry named "update-hold.json"
// exists in a directory, updates are meant to be held back there. Only the
// test lives here; nothing in the launcher creates, removes or reads the
// marker yet.
#ifndef ZEV_CORE_UPDATE_HOLD_H_
#define ZEV_CORE_UPDATE_HOLD_H_

#include <filesystem>
#include <string_view>

namespace zev {

struct UpdateHold {
  static constexpr std::string_view fileName = "update-hold.json";

  // True when an entry of that name (file, empty file, directory, link)
  // exists directly in `directory`. Its content is never read. Never throws:
  // an entry that cannot be inspected counts as absent.
  static bool isActive(const std::filesystem::path& directory) noexcept;
};

}  // namespace zev

#endif  // ZEV_CORE_UPDATE_HOLD_H_
