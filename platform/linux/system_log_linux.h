// SystemLog on journald. Each entry carries MESSAGE, PRIORITY (info 6,
// error 3), SYSLOG_IDENTIFIER=ZEVLauncher and the subsystem and category as
// ZEV_SUBSYSTEM= and ZEV_CATEGORY=, so the launcher's own lines are found with
//   journalctl --user -t ZEVLauncher ZEV_CATEGORY=launcher
// Without a journal (containers, CI, a bare session) each line goes to
// standard error as "[category] message". Safe from any thread.
#ifndef ZEV_PLATFORM_LINUX_SYSTEM_LOG_LINUX_H_
#define ZEV_PLATFORM_LINUX_SYSTEM_LOG_LINUX_H_

#include <atomic>
#include <filesystem>
#include <string>
#include <string_view>

#include "app/ports/system_log.h"

namespace zev {

inline constexpr std::string_view journalSyslogIdentifier = "ZEVLauncher";
inline constexpr const char* journalSocketPath = "/run/systemd/journal/socket";

class JournalSystemLog : public SystemLog {
 public:
  // `journalSocket` is where journald listens; when it does not exist the log
  // writes to standard error from the start.
  JournalSystemLog(std::string subsystem, std::string category,
                   const std::filesystem::path& journalSocket = journalSocketPath);

  void info(std::string_view message) override;
  void error(std::string_view message) override;

  bool writesToJournal() const { return m_journal.load(std::memory_order_relaxed); }

 private:
  void write(int priority, std::string_view message);
  void writeToStandardError(std::string_view message) const;

  const std::string m_subsystemField;
  const std::string m_categoryField;
  const std::string m_category;
  // Cleared for good when journald refuses an entry, so a journal that went
  // away does not cost a failed send per line.
  std::atomic<bool> m_journal;
};

}  // namespace zev

#endif  // ZEV_PLATFORM_LINUX_SYSTEM_LOG_LINUX_H_
