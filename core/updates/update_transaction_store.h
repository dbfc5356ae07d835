// Keeps update records on disk in one directory (the launcher's reliability
// directory): the current attempt in "active-update.json", and one history
// copy per attempt in "transactions/<UUID>.json".
//
// A value; copies share nothing but the directory. Not synchronised: the
// launcher calls it from its main thread. Every file is replaced durably and
// atomically (core/atomic_file.h), so a crash or power loss during a save
// leaves either the previous record or the new one, never a mixture.
//
// Errors: std::filesystem::filesystem_error for file-system failures,
// DecodingError for an active file that does not decode, and
// nlohmann::json::type_error for a record whose strings are not valid UTF-8.
#ifndef ZEV_CORE_UPDATE_TRANSACTION_STORE_H_
#define ZEV_CORE_UPDATE_TRANSACTION_STORE_H_

#include <filesystem>
#include <optional>
#include <vector>

#include "core/support/atomic_file.h"
#include "core/updates/update_transaction.h"

namespace zev {

class UpdateTransactionStore {
 public:
  // Opening removes the temporaries a killed save left in `directory` and its
  // transactions directory (never a record, never another writer's file).
  explicit UpdateTransactionStore(std::filesystem::path directory);

  const std::filesystem::path& directory() const { return m_directory; }
  // directory/"active-update.json": the current attempt.
  std::filesystem::path activeURL() const;
  // directory/"transactions": one "<UUID>.json" per attempt.
  std::filesystem::path transactionsDirectory() const;

  // Creates both directories as needed, then writes the record to the active
  // file and, only once that succeeded, to its history file. Saving the same
  // attempt again replaces its history file. The first failure is thrown;
  // when the active file could not be written, no history file is touched.
  void save(const UpdateTransaction& transaction) const;

  // The current attempt, or none when there is no active file. An active file
  // that cannot be read or decoded is an error, never "none".
  std::optional<UpdateTransaction> loadActive() const;

  // Every attempt in the history directory whose file name ends in exactly
  // ".json", in listing order (unsorted). No directory: an empty list. Files
  // that cannot be read or decoded are skipped; only a directory that exists
  // but cannot be listed is an error.
  std::vector<UpdateTransaction> loadAll() const;

  // Replaces the system calls of the atomic writes, to inject faults.
  void setFileSystemCallsForTesting(FileSystemCalls calls) { m_calls = std::move(calls); }

 private:
  std::filesystem::path m_directory;
  FileSystemCalls m_calls = FileSystemCalls::system();
};

}  // namespace zev

#endif  // ZEV_CORE_UPDATE_TRANSACTION_STORE_H_
