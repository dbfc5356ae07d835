#include "platform/linux/system_log_linux.h"

#include <sys/uio.h>
#include <syslog.h>
#include <systemd/sd-journal.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

namespace zev {
namespace {

iovec field(std::string_view text) {
  // sd_journal_sendv only reads through the pointers.
  return iovec{const_cast<char*>(text.data()), text.size()};
}

}  // namespace

JournalSystemLog::JournalSystemLog(std::string subsystem, std::string category,
                                   const std::filesystem::path& journalSocket)
    : m_subsystemField("ZEV_SUBSYSTEM=" + subsystem),
      m_categoryField("ZEV_CATEGORY=" + category),
      m_category(std::move(category)) {
  std::error_code ignored;
  m_journal = std::filesystem::exists(journalSocket, ignored);
}

void JournalSystemLog::info(std::string_view message) { write(LOG_INFO, message); }

void JournalSystemLog::error(std::string_view message) { write(LOG_ERR, message); }

void JournalSystemLog::write(int priority, std::string_view message) {
  if (m_journal.load(std::memory_order_relaxed)) {
    const std::string messageField = "MESSAGE=" + std::string(message);
    const std::string priorityField = "PRIORITY=" + std::to_string(priority);
    const std::string identifierField = "SYSLOG_IDENTIFIER=" + std::string(journalSyslogIdentifier);
    const std::array<iovec, 5> fields = {field(messageField), field(priorityField),
                                         field(identifierField), field(m_subsystemField),
                                         field(m_categoryField)};
    if (sd_journal_sendv(fields.data(), static_cast<int>(fields.size())) >= 0) return;
    m_journal.store(false, std::memory_order_relaxed);
  }
  writeToStandardError(message);
}

void JournalSystemLog::writeToStandardError(std::string_view message) const {
  // One write per line so lines from different threads do not interleave.
  std::string line;
  line.reserve(m_category.size() + message.size() + 4);
  line.append("[").append(m_category).append("] ").append(message).append("\n");
  std::string_view rest = line;
  while (!rest.empty()) {
    const ssize_t written = ::write(STDERR_FILENO, rest.data(), rest.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return;  // nowhere left to report to
    rest.remove_prefix(static_cast<size_t>(written));
  }
}

std::unique_ptr<SystemLog> makeSystemLog(std::string subsystem, std::string category) {
  return std::make_unique<JournalSystemLog>(std::move(subsystem), std::move(category));
}

}  // namespace zev
