// ServiceManager on a Linux desktop.
//
// The launcher starts at login through an XDG autostart entry,
// $XDG_CONFIG_HOME/autostart/com.zev.launcher.desktop (~/.config by default),
// that runs the bundle's executable. The daemon runs as the systemd user unit
// com.zev.zevd.service. The bundle ships a template of it at
// Contents/Library/systemd/user/; registering writes it into the user's unit
// directory ($XDG_CONFIG_HOME/systemd/user) with ExecStart naming this
// bundle's own Contents/Helpers/zevd, wherever the bundle was moved or copied
// to, then reloads and enables it with systemctl --user.
//
// An autostart entry the user switched off in the desktop's settings
// (Hidden=true, X-GNOME-Autostart-enabled=false) is never rewritten.
//
// Error codes: ServiceError::alreadyRegistered when the autostart entry is
// already there as we would write it, or is-enabled answers "enabled" for a
// unit file already naming our daemon; ServiceError::switchedOffByUser for a
// switched-off entry; otherwise systemctl's exit status, the errno of a failed
// file operation, or serviceCommandFailed when systemctl could not be run at
// all. systemctl is looked up on PATH at each call.
#ifndef ZEV_PLATFORM_LINUX_SERVICE_MANAGER_LINUX_H_
#define ZEV_PLATFORM_LINUX_SERVICE_MANAGER_LINUX_H_

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "app/ports/service_manager.h"

namespace zev {

inline constexpr std::string_view autostartEntryName = "com.zev.launcher.desktop";
inline constexpr std::string_view bundleUnitDirectory = "Contents/Library/systemd/user";
inline constexpr int serviceCommandFailed = -1;

// The desktop entry that starts `executable` at login.
std::string autostartEntry(const std::filesystem::path& executable);

// How a desktop entry is switched off ("Hidden=true"), when it is.
std::optional<std::string> switchedOff(std::string_view entry);

// The unit template with its ExecStart running `daemon`.
std::string unitForDaemon(std::string_view unitTemplate, const std::filesystem::path& daemon);

// "com.zev.zevd.plist" → "com.zev.zevd.service".
std::string unitNameForPlist(std::string_view plistName);

// systemctl as found on PATH, or plain "systemctl" when it is not there (the
// launch then fails and says so).
std::string systemctlPath();

// $XDG_CONFIG_HOME when it is set to an absolute path, else `home`/.config.
std::filesystem::path xdgConfigHome(const std::filesystem::path& home);

class LinuxServiceManager : public ServiceManager {
 public:
  // `commandTimeout` bounds each systemctl call made while registering; a user
  // manager that does not answer must not hang the launcher.
  LinuxServiceManager(std::filesystem::path bundle, std::filesystem::path executable,
                      std::filesystem::path configHome,
                      std::chrono::milliseconds commandTimeout = std::chrono::seconds(25));

  std::unique_ptr<AppService> mainAppService() override;
  std::unique_ptr<AppService> agentService(const std::string& plistName) override;
  Command kickstartCommand(const std::string& label) override;

 private:
  const std::filesystem::path m_bundle;
  const std::filesystem::path m_executable;
  const std::filesystem::path m_configHome;
  const std::chrono::milliseconds m_commandTimeout;
};

}  // namespace zev

#endif  // ZEV_PLATFORM_LINUX_SERVICE_MANAGER_LINUX_H_
