// The real Linux adapters, wired for the running application. Needs the
// QApplication to exist (it asks it where the executable is).
#include <QCoreApplication>
#include <QDir>
#include <string>

#include "app/shell/constants.h"
#include "app/ports/platform.h"
#include "platform/linux/app_activation_linux.h"
#include "platform/linux/archive_tool_linux.h"
#include "platform/linux/bundle_info_linux.h"
#include "platform/linux/bundle_manifest.h"
#include "platform/linux/service_manager_linux.h"
#include "platform/linux/updater_linux.h"
#include "platform/linux/workspace_linux.h"

namespace zev {
namespace {

// $XDG_CACHE_HOME when it is an absolute path, else ~/.cache.
std::filesystem::path xdgCacheHome(const std::filesystem::path& home) {
  const QString cache = qEnvironmentVariable("XDG_CACHE_HOME");
  if (!cache.isEmpty() && cache.startsWith(u'/')) return cache.toStdString();
  return home / ".cache";
}

}  // namespace

Platform makePlatform() {
  const std::filesystem::path executable = QCoreApplication::applicationFilePath().toStdString();
  const std::filesystem::path home = QDir::homePath().toStdString();
  auto bundleInfo = std::make_unique<LinuxBundleInfo>(executable, home);
  const std::filesystem::path bundle = bundleInfo->bundlePath();

  Platform platform;
  platform.launcherLog = makeSystemLog(std::string(logSubsystem), std::string(launcherLogCategory));
  platform.statusItemLog =
      makeSystemLog(std::string(logSubsystem), std::string(statusItemLogCategory));
  platform.serviceManager =
      std::make_unique<LinuxServiceManager>(bundle, executable, xdgConfigHome(home));
  // The key is the running bundle's: a copy is never trusted to vouch for itself.
  platform.archiveTool = std::make_unique<LinuxArchiveTool>(
      bundleInfo->stringValue(std::string(manifest::publicKeyInfoKey)));
  platform.bundleInfo = std::move(bundleInfo);
  platform.workspace = std::make_unique<LinuxWorkspace>();
  platform.activation = std::make_unique<LinuxAppActivation>();
  platform.updater = std::make_unique<LinuxUpdater>(*platform.bundleInfo, *platform.launcherLog,
                                                    xdgCacheHome(home) / "com.zev.launcher" / "updates");
  platform.notifier = makePlatformNotifier(*platform.statusItemLog);
  platform.makeStatusItem = [] { return makePlatformStatusItem(); };
  return platform;
}

}  // namespace zev
