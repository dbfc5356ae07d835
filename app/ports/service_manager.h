// Registration of the launcher as a login item and of the daemon as a per-user
// agent, and the command that restarts the agent. macOS: SMAppService and
// launchctl. Linux: an XDG autostart entry and a systemd user unit.
// Called on the main thread; calls block until the system has answered.
#ifndef ZEV_APP_PORTS_SERVICE_MANAGER_H_
#define ZEV_APP_PORTS_SERVICE_MANAGER_H_

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zev {

struct ServiceError {
  // The service manager's code. alreadyRegistered means what it says on every
  // platform; adapters map their own "exists already" answers onto it.
  static constexpr int alreadyRegistered = 12;
  // The user switched the service off in the system's settings; it was left
  // off. Not a failure: logged as information with the description.
  static constexpr int switchedOffByUser = -1012;

  int code = 0;
  std::string localizedDescription;  // one line, for the log
  std::string fullDescription;       // domain, code and text, for standard error
};

// One registrable service: the app itself, or the daemon's agent.
class AppService {
 public:
  virtual ~AppService() = default;
  virtual std::optional<ServiceError> registerService() = 0;
  virtual std::optional<ServiceError> unregisterService() = 0;
  // A stable text for the service's state, only ever logged.
  virtual std::string statusDescription() = 0;
};

struct Command {
  std::string path;
  std::vector<std::string> arguments;
};

class ServiceManager {
 public:
  virtual ~ServiceManager() = default;
  virtual std::unique_ptr<AppService> mainAppService() = 0;
  // The agent described by `plistName` inside the bundle (com.zev.zevd.plist;
  // on Linux the bundle's com.zev.zevd.service unit stands for it).
  virtual std::unique_ptr<AppService> agentService(const std::string& plistName) = 0;
  // The command that kills and restarts (or starts) the agent labelled `label`.
  virtual Command kickstartCommand(const std::string& label) = 0;
};

}  // namespace zev

#endif  // ZEV_APP_PORTS_SERVICE_MANAGER_H_
