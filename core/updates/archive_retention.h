// Which archived copies of previous builds to keep. Each update attempt makes
// one archive; pruning must never remove one that an unfinished or failed
// attempt may still need. Pure functions, safe on any thread.
#ifndef ZEV_CORE_ARCHIVE_RETENTION_H_
#define ZEV_CORE_ARCHIVE_RETENTION_H_

#include <string>
#include <vector>

#include "core/support/timestamp.h"
#include "core/updates/update_state.h"

namespace zev {

// One known archive, taken from a stored update record: its archivePath,
// state and updatedAt.
struct ArchiveRecord {
  std::string path;
  UpdateState state = UpdateState::preparing;
  Timestamp updatedAt;

  bool operator==(const ArchiveRecord&) const = default;
};

struct ArchiveRetention {
  // The archives of certified updates kept, newest first.
  static constexpr size_t certifiedToKeep = 3;

  // The paths to keep: the 3 most recently updated certified records (ties
  // keep input order), and every preparing, installing, verifying or failed
  // one however old and however many. Rolled-back records are never kept by
  // this rule. Each path appears once. Treat the result as a set: its order
  // (kept certified ones newest first, then the others in input order) is
  // not part of the contract.
  static std::vector<std::string> pathsToKeep(const std::vector<ArchiveRecord>& records);
};

}  // namespace zev

#endif  // ZEV_CORE_ARCHIVE_RETENTION_H_
