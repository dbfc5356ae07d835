// Names fixed for the whole application, shared by the delegate, the status
// item and the update machinery.
#ifndef ZEV_APP_CONSTANTS_H_
#define ZEV_APP_CONSTANTS_H_

#include <string_view>

namespace zev {

inline constexpr std::string_view agentPlistName = "com.zev.zevd.plist";
inline constexpr std::string_view agentLabel = "com.zev.zevd";
inline constexpr std::string_view logSubsystem = "com.zev.zevd";
inline constexpr std::string_view launcherLogCategory = "launcher";
inline constexpr std::string_view statusItemLogCategory = "statusitem";
inline constexpr std::string_view localBaseLiteral = "http://127.0.0.1:8085";
inline constexpr std::string_view sentinelPath = "/tmp/com.zev.zevd.update-trigger";
inline constexpr std::string_view reliabilityDirectoryKey = "ZEVReliabilityDirectory";

}  // namespace zev

#endif  // ZEV_APP_CONSTANTS_H_
