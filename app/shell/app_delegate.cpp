// AppDelegate: construction, the launch sequence and daemon supervision.
// installStatusItem lives beside the status item (app_delegate_status_item.cpp).
#include "app/shell/app_delegate.h"

#include <pwd.h>
#include <unistd.h>

#include <QString>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <ostream>
#include <system_error>
#include <utility>

#include "app/shell/constants.h"
#include "app/logs/log_window_controller.h"
#include "app/shell/process_runner.h"
#include "app/status/notification_controller.h"
#include "app/status/status_item_controller.h"
#include "app/updates/update_coordinator.h"

namespace zev {
namespace {

// The daemon's base URL is a fixed literal; failing to parse it is a
// programming error, not a condition to carry on from.
QUrl parseLocalBase() {
  const QUrl url(
      QString::fromUtf8(localBaseLiteral.data(), static_cast<qsizetype>(localBaseLiteral.size())),
      QUrl::StrictMode);
  if (!url.isValid() || url.scheme().isEmpty() || url.host().isEmpty()) {
    std::fputs("ZEV launcher: the daemon's base URL does not parse\n", stderr);
    std::abort();
  }
  return url;
}

// "~" and "~/…" become the home directory, "~name/…" that user's home; a
// user we cannot find leaves the path as it is.
std::string expandTilde(const std::string& path, const std::filesystem::path& home) {
  if (path.empty() || path.front() != '~') return path;
  const std::size_t slash = path.find('/');
  const std::string user =
      path.substr(1, slash == std::string::npos ? std::string::npos : slash - 1);
  const std::string rest = slash == std::string::npos ? std::string() : path.substr(slash);
  std::string userHome;
  if (user.empty()) {
    userHome = home.string();
  } else {
    const passwd* entry = ::getpwnam(user.c_str());
    if (!entry || !entry->pw_dir) return path;
    userHome = entry->pw_dir;
  }
  while (userHome.size() > 1 && userHome.back() == '/') userHome.pop_back();
  if (userHome == "/" && !rest.empty()) return rest;
  return userHome + rest;
}

struct RegistrationTexts {
  const char* registered;  // followed by " (status=…)"
  const char* alreadyRegistered;
  const char* failed;         // followed by the error's description
  const char* standardError;  // after "ZEV launcher: ", followed by the full error
};

// The outcome of registering a service: registered (with its status), already
// registered (code 12, whatever the domain: normal after the first launch), or
// failed, which also goes to standard error.
void reportRegistration(SystemLog& log, std::ostream& standardError, AppService& service,
                        const std::optional<ServiceError>& error, const RegistrationTexts& texts) {
  if (!error) {
    log.info(std::string(texts.registered) + " (status=" + service.statusDescription() + ")");
  } else if (error->code == ServiceError::alreadyRegistered) {
    log.info(texts.alreadyRegistered);
  } else if (error->code == ServiceError::switchedOffByUser) {
    log.info(error->localizedDescription);
  } else {
    log.error(texts.failed + error->localizedDescription);
    standardError << "ZEV launcher: " << texts.standardError << error->fullDescription << '\n'
                  << std::flush;
  }
}

// What standard error names as the failed call: the system's own service API.
#ifdef __APPLE__
constexpr const char* kLoginItemCall = "SMAppService.mainApp.register() failed: ";
constexpr const char* kAgentCall = "SMAppService.agent.register() failed: ";
#else
constexpr const char* kLoginItemCall = "autostart entry registration failed: ";
constexpr const char* kAgentCall = "systemd user unit registration failed: ";
#endif

}  // namespace

AppDelegate::AppDelegate(Platform platform, std::ostream& standardError, Clock clock,
                         QObject* parent)
    : QObject(parent),
      m_platform(std::move(platform)),
      m_standardError(standardError),
      m_clock(std::move(clock)),
      m_localBase(parseLocalBase()) {
  m_updates = std::make_unique<UpdateCoordinator>(
      UpdateCoordinator::Ports{*m_platform.launcherLog, *m_platform.bundleInfo,
                               m_platform.updater.get(), m_platform.archiveTool,
                               m_platform.activation.get()},
      m_clock, [this] { return reliabilityDirectory(); }, [this] { return m_localBase; });
  // Every finished attempt, certified or failed, is told to the user.
  m_updates->onUpdateFinished = [this](const UpdateTransaction& transaction) {
    notifyUpdateFinished(transaction);
  };
}

AppDelegate::~AppDelegate() {
  // The updater goes first: it must not call back into a coordinator that is
  // already gone.
  m_statusController.reset();
  m_platform.updater.reset();
}

void AppDelegate::applicationDidFinishLaunching() {
  // Each step logs its own failures. The guard is for the unforeseen (an
  // adapter throwing, memory running out): the next steps still run.
  const auto step = [this](const char* name, void (AppDelegate::*operation)()) {
    try {
      (this->*operation)();
    } catch (const std::exception& error) {
      m_platform.launcherLog->error(std::string(name) + " failed: " + error.what());
    }
  };
  step("verifyDaemonPresent", &AppDelegate::verifyDaemonPresent);
  step("registerLoginItem", &AppDelegate::registerLoginItem);
  step("registerAgent", &AppDelegate::registerAgent);
  step("kickstartAgent", &AppDelegate::kickstartAgent);
  step("resumeUpdateVerificationIfNeeded", &AppDelegate::resumeUpdateVerificationIfNeeded);
  step("startSparkle", &AppDelegate::startSparkle);
  step("startUpdatePushWatcher", &AppDelegate::startUpdatePushWatcher);
  step("installStatusItem", &AppDelegate::installStatusItem);
}

void AppDelegate::verifyDaemonPresent() {
  const std::filesystem::path daemon =
      m_platform.bundleInfo->bundlePath() / "Contents/Helpers/zevd";
  std::error_code ignored;
  const bool present =
      std::filesystem::is_regular_file(daemon, ignored) && ::access(daemon.c_str(), X_OK) == 0;
  if (present) {
    m_platform.launcherLog->info("daemon present at " + daemon.string());
    return;
  }
  m_platform.launcherLog->error("missing daemon at " + daemon.string());
  m_standardError << "ZEV launcher: missing daemon at " << daemon.string() << '\n' << std::flush;
}

void AppDelegate::registerLoginItem() {
  const std::unique_ptr<AppService> service = m_platform.serviceManager->mainAppService();
  reportRegistration(*m_platform.launcherLog, m_standardError, *service, service->registerService(),
                     {"LoginItem registered", "LoginItem already registered",
                      "LoginItem register failed: ", kLoginItemCall});
}

void AppDelegate::registerAgent() {
  SystemLog& log = *m_platform.launcherLog;
  const std::unique_ptr<AppService> service =
      m_platform.serviceManager->agentService(std::string(agentPlistName));

  // Dropped and registered afresh at every launch, so that a changed agent
  // definition or daemon (after an update) is taken up.
  if (const std::optional<ServiceError> error = service->unregisterService()) {
    log.info("Agent unregister no-op: " + error->localizedDescription);
  } else {
    log.info("Agent prior registration dropped");
  }

  reportRegistration(log, m_standardError, *service, service->registerService(),
                     {"Agent registered", "Agent already registered (race?)",
                      "Agent register failed: ", kAgentCall});
}

void AppDelegate::kickstartAgent() {
  const Command command = m_platform.serviceManager->kickstartCommand(std::string(agentLabel));
  CapturedRun result;
  try {
    result = runCapturingOutput(command.path, command.arguments, kickstartTimeout);
  } catch (const ProcessLaunchError& error) {
    m_platform.launcherLog->error(std::string("kickstart spawn failed: ") + error.what());
    return;
  }
  m_platform.launcherLog->info("kickstart exit=" + std::to_string(result.exitStatus) +
                               " out=" + result.output);
}

void AppDelegate::resumeUpdateVerificationIfNeeded() {
  m_updates->resumeUpdateVerificationIfNeeded();
}

void AppDelegate::startSparkle() { m_updates->startSparkle(); }

void AppDelegate::startUpdatePushWatcher() { m_updates->startUpdatePushWatcher(); }

void AppDelegate::run(const std::string& path, const std::vector<std::string>& arguments) {
  runInheritingOutput(path, arguments);
}

std::filesystem::path AppDelegate::reliabilityDirectory() const {
  BundleInfo& bundle = *m_platform.bundleInfo;
  const std::optional<std::string> configured =
      bundle.stringValue(std::string(reliabilityDirectoryKey));
  if (configured && !configured->empty()) {
    // Like a file URL made from a path: a relative path is taken from the
    // current directory.
    std::error_code ignored;
    const std::filesystem::path expanded = expandTilde(*configured, bundle.homeDirectory());
    const std::filesystem::path absolute = std::filesystem::absolute(expanded, ignored);
    return absolute.empty() ? expanded : absolute;
  }
  return bundle.homeDirectory() / ".zevd/reliability";
}

}  // namespace zev
