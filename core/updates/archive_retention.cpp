#include "core/updates/archive_retention.h"

#include <algorithm>
#include <unordered_set>

namespace zev {

std::vector<std::string> ArchiveRetention::pathsToKeep(const std::vector<ArchiveRecord>& records) {
  std::vector<const ArchiveRecord*> certified;
  for (const ArchiveRecord& record : records) {
    if (record.state == UpdateState::certified) certified.push_back(&record);
  }
  std::stable_sort(
      certified.begin(), certified.end(),
      [](const ArchiveRecord* a, const ArchiveRecord* b) { return a->updatedAt > b->updatedAt; });
  certified.resize(std::min(certified.size(), certifiedToKeep));

  std::vector<std::string> kept;
  std::unordered_set<std::string> seen;
  const auto keep = [&](const std::string& path) {
    if (seen.insert(path).second) kept.push_back(path);
  };
  for (const ArchiveRecord* record : certified) keep(record->path);
  for (const ArchiveRecord& record : records) {
    switch (record.state) {
      case UpdateState::preparing:
      case UpdateState::installing:
      case UpdateState::verifying:
      case UpdateState::failed:
        keep(record.path);
        break;
      case UpdateState::certified:
      case UpdateState::rolledBack:
        break;
    }
  }
  return kept;
}

}  // namespace zev
