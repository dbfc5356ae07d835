// The real macOS adapters. Never compiled off Apple; not exercised by the
// Linux CI.
#include "app/shell/constants.h"
#include "app/ports/platform.h"

namespace zev {

std::unique_ptr<ServiceManager> makeMacServiceManager();
std::unique_ptr<BundleInfo> makeMacBundleInfo();
std::unique_ptr<Workspace> makeMacWorkspace();
std::unique_ptr<AppActivation> makeMacAppActivation();
std::unique_ptr<Updater> makeMacUpdater();
std::unique_ptr<ArchiveTool> makeMacArchiveTool();

Platform makePlatform() {
  Platform platform;
  platform.launcherLog =
      makeSystemLog(std::string(logSubsystem), std::string(launcherLogCategory));
  platform.statusItemLog =
      makeSystemLog(std::string(logSubsystem), std::string(statusItemLogCategory));
  platform.serviceManager = makeMacServiceManager();
  platform.bundleInfo = makeMacBundleInfo();
  platform.workspace = makeMacWorkspace();
  platform.activation = makeMacAppActivation();
  platform.updater = makeMacUpdater();
  platform.archiveTool = makeMacArchiveTool();
  platform.notifier = makePlatformNotifier(*platform.statusItemLog);
  platform.makeStatusItem = [] { return makePlatformStatusItem(); };
  return platform;
}

}  // namespace zev
