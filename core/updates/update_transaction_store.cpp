#include "core/updates/update_transaction_store.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>

#include "core/support/decoding_error.h"

namespace zev {

namespace {

namespace fs = std::filesystem;

[[noreturn]] void throwErrno(const char* what, const fs::path& path, int error) {
  throw fs::filesystem_error(what, path, std::error_code(error, std::generic_category()));
}

// Creates `directory` and any missing ancestors. A directory that is new is
// only durable once its parent's entry is, so each new one's parent is synced.
void createDirectories(const fs::path& directory, const FileSystemCalls& calls) {
  std::vector<fs::path> missing;
  for (fs::path p = directory; !p.empty(); p = p.parent_path()) {
    std::error_code ec;
    if (fs::exists(p, ec) || p == p.parent_path()) break;
    missing.push_back(p);
  }
  fs::create_directories(directory);  // fine when it already exists
  for (auto it = missing.rbegin(); it != missing.rend(); ++it) {
    const fs::path parent = it->has_parent_path() ? it->parent_path() : fs::path(".");
    syncDirectory(parent, calls);
  }
}

// The whole file, or nothing when it does not exist.
std::optional<std::string> readFileIfPresent(const fs::path& path) {
  int fd;
  do {
    fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) {
    // ENOTDIR: a component of the path is a file, so there is no such file either.
    if (errno == ENOENT || errno == ENOTDIR) return std::nullopt;
    throwErrno("open", path, errno);
  }
  std::string bytes;
  char buffer[16384];
  for (;;) {
    const ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n < 0) {
      if (errno == EINTR) continue;
      const int error = errno;
      ::close(fd);
      throwErrno("read", path, error);
    }
    if (n == 0) break;
    bytes.append(buffer, static_cast<size_t>(n));
  }
  ::close(fd);  // read-only: nothing to lose
  return bytes;
}

}  // namespace

UpdateTransactionStore::UpdateTransactionStore(fs::path directory)
    : m_directory(std::move(directory)) {
  // A save killed between creating its temporary and renaming it leaves the
  // temporary behind; nothing else would ever remove it. Only the store's own
  // names go: the active record's, and the history copies' (*.json).
  removeStrayTemporaries(m_directory,
                         [](std::string_view target) { return target == "active-update.json"; });
  removeStrayTemporaries(transactionsDirectory(),
                         [](std::string_view target) { return target.ends_with(".json"); });
}

fs::path UpdateTransactionStore::activeURL() const { return m_directory / "active-update.json"; }

fs::path UpdateTransactionStore::transactionsDirectory() const {
  return m_directory / "transactions";
}

void UpdateTransactionStore::save(const UpdateTransaction& transaction) const {
  createDirectories(m_directory, m_calls);
  createDirectories(transactionsDirectory(), m_calls);
  const std::string bytes = encodeUpdateTransaction(transaction);
  writeFileAtomically(activeURL(), bytes, m_calls);
  // Only now: a history copy must never describe a state the active file
  // failed to reach.
  writeFileAtomically(transactionsDirectory() / (transaction.id().string() + ".json"), bytes,
                      m_calls);
}

std::optional<UpdateTransaction> UpdateTransactionStore::loadActive() const {
  const auto bytes = readFileIfPresent(activeURL());
  if (!bytes) return std::nullopt;
  return decodeUpdateTransaction(*bytes);
}

std::vector<UpdateTransaction> UpdateTransactionStore::loadAll() const {
  const fs::path history = transactionsDirectory();
  std::error_code ec;
  if (fs::status(history, ec).type() == fs::file_type::not_found) return {};

  std::vector<UpdateTransaction> transactions;
  for (const fs::directory_entry& entry : fs::directory_iterator(history)) {
    // Temporary files of interrupted writes end in ".tmp-XXXXXX" and stay out.
    if (entry.path().extension() != ".json") continue;
    try {
      if (const auto bytes = readFileIfPresent(entry.path())) {
        transactions.push_back(decodeUpdateTransaction(*bytes));
      }
    } catch (const fs::filesystem_error&) {
      // Unreadable history files are skipped: one bad file must not hide the rest.
    } catch (const DecodingError&) {
      // Likewise for corrupt ones.
    }
  }
  return transactions;
}

}  // namespace zev
