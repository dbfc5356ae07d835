// The system's log: journald on Linux, the unified log on macOS. One instance
// per (subsystem, category). Implementations must be safe to call from any
// thread; messages are public (no redaction).
#ifndef ZEV_APP_PORTS_SYSTEM_LOG_H_
#define ZEV_APP_PORTS_SYSTEM_LOG_H_

#include <memory>
#include <string>
#include <string_view>

namespace zev {

class SystemLog {
 public:
  virtual ~SystemLog() = default;
  virtual void info(std::string_view message) = 0;
  virtual void error(std::string_view message) = 0;
};

// The platform's implementation (platform/<os>/system_log_<os>.cpp).
std::unique_ptr<SystemLog> makeSystemLog(std::string subsystem, std::string category);

}  // namespace zev

#endif  // ZEV_APP_PORTS_SYSTEM_LOG_H_
