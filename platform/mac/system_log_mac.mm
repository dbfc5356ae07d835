// SystemLog on the unified log (os_log), messages public. Compile-checked on Linux
// (tests/macos); never run there.
#include <os/log.h>

#include <string>

#include "app/ports/system_log.h"

namespace zev {
namespace {

class UnifiedSystemLog : public SystemLog {
 public:
  UnifiedSystemLog(const std::string& subsystem, const std::string& category)
      : m_log(os_log_create(subsystem.c_str(), category.c_str())) {}

  void info(std::string_view message) override {
    const std::string text(message);
    os_log_info(m_log, "%{public}s", text.c_str());
  }
  void error(std::string_view message) override {
    const std::string text(message);
    os_log_error(m_log, "%{public}s", text.c_str());
  }

 private:
  os_log_t m_log;
};

}  // namespace

std::unique_ptr<SystemLog> makeSystemLog(std::string subsystem, std::string category) {
  return std::make_unique<UnifiedSystemLog>(subsystem, category);
}

}  // namespace zev
