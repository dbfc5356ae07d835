// Everything the application needs from the operating system, bundled so the
// delegate can be built with real adapters (makePlatform) or with fakes.
#ifndef ZEV_APP_PORTS_PLATFORM_H_
#define ZEV_APP_PORTS_PLATFORM_H_

#include <memory>

#include "app/ports/app_activation.h"
#include "app/ports/archive_tool.h"
#include "app/ports/bundle_info.h"
#include "app/ports/notifier.h"
#include "app/ports/service_manager.h"
#include "app/ports/status_item.h"
#include "app/ports/system_log.h"
#include "app/ports/updater.h"
#include "app/ports/workspace.h"

namespace zev {

struct Platform {
  std::unique_ptr<SystemLog> launcherLog;    // com.zev.zevd / launcher
  std::unique_ptr<SystemLog> statusItemLog;  // com.zev.zevd / statusitem
  std::unique_ptr<ServiceManager> serviceManager;
  std::unique_ptr<BundleInfo> bundleInfo;
  std::unique_ptr<Workspace> workspace;
  std::unique_ptr<AppActivation> activation;
  std::unique_ptr<Updater> updater;
  // Shared: a running archiving step keeps it alive on its worker thread.
  std::shared_ptr<ArchiveTool> archiveTool;
  std::unique_ptr<Notifier> notifier;  // logs to statusItemLog
  // Creates the menu-bar item; called once, by installStatusItem.
  std::function<std::unique_ptr<StatusItem>()> makeStatusItem;
};

// The real adapters of the platform this was built for.
Platform makePlatform();

}  // namespace zev

#endif  // ZEV_APP_PORTS_PLATFORM_H_
