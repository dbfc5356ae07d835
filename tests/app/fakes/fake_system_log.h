// A SystemLog that remembers what was logged, for asserting exact log texts
// and their order. Safe from any thread, like the real one.
#ifndef ZEV_TESTS_APP_FAKES_FAKE_SYSTEM_LOG_H_
#define ZEV_TESTS_APP_FAKES_FAKE_SYSTEM_LOG_H_

#include <mutex>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "app/ports/system_log.h"

namespace zev::testing {

struct LogEntry {
  enum class Level { info, error };
  Level level;
  std::string message;

  bool operator==(const LogEntry&) const = default;
};

inline LogEntry info(std::string message) { return {LogEntry::Level::info, std::move(message)}; }
inline LogEntry error(std::string message) { return {LogEntry::Level::error, std::move(message)}; }

inline std::ostream& operator<<(std::ostream& out, const LogEntry& entry) {
  return out << (entry.level == LogEntry::Level::info ? "info: " : "error: ") << entry.message;
}

class FakeSystemLog : public SystemLog {
 public:
  void info(std::string_view message) override { add(LogEntry::Level::info, message); }
  void error(std::string_view message) override { add(LogEntry::Level::error, message); }

  std::vector<LogEntry> entries() const {
    std::lock_guard lock(m_mutex);
    return m_entries;
  }
  std::vector<std::string> messages() const {
    std::vector<std::string> texts;
    for (const LogEntry& entry : entries()) texts.push_back(entry.message);
    return texts;
  }
  void clear() {
    std::lock_guard lock(m_mutex);
    m_entries.clear();
  }

 private:
  void add(LogEntry::Level level, std::string_view message) {
    std::lock_guard lock(m_mutex);
    m_entries.push_back({level, std::string(message)});
  }

  mutable std::mutex m_mutex;
  std::vector<LogEntry> m_entries;
};

}  // namespace zev::testing

#endif  // ZEV_TESTS_APP_FAKES_FAKE_SYSTEM_LOG_H_
