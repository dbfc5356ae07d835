#include "core/updates/archive_retention.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace zev {
namespace {

using S = UpdateState;

ArchiveRecord at(const std::string& path, UpdateState state, int64_t ms) {
  return {path, state, timestampFromMillisecondsSince1970(ms)};
}

TEST(ArchiveRetention, PathsToKeep) {
  const struct {
    const char* name;
    std::vector<ArchiveRecord> records;
    std::vector<std::string> kept;  // sorted
  } cases[] = {
      {"no records", {}, {}},
      {"three newest of five certified",
       {at("c1", S::certified, 1), at("c5", S::certified, 5), at("c3", S::certified, 3),
        at("c2", S::certified, 2), at("c4", S::certified, 4)},
       {"c3", "c4", "c5"}},
      {"tie at the cut keeps the one earlier in the input",
       {at("c9", S::certified, 9), at("tie-first", S::certified, 5), at("c8", S::certified, 8),
        at("tie-second", S::certified, 5)},
       {"c8", "c9", "tie-first"}},
      {"every unfinished and failed attempt, however old",
       {at("c4", S::certified, 40), at("c3", S::certified, 30), at("c2", S::certified, 20),
        at("c1", S::certified, 10), at("f", S::failed, -100000), at("p", S::preparing, 1),
        at("i", S::installing, 1), at("v", S::verifying, 1), at("f2", S::failed, 0)},
       {"c2", "c3", "c4", "f", "f2", "i", "p", "v"}},
      {"rolled back does not take a certified slot",
       {at("r", S::rolledBack, 9), at("c1", S::certified, 1), at("c2", S::certified, 2),
        at("c3", S::certified, 3)},
       {"c1", "c2", "c3"}},
      {"shared path kept once",
       {at("same", S::failed, 1), at("same", S::certified, 9), at("same", S::rolledBack, 5)},
       {"same"}},
      {"path of a pruned certified record kept by a failed one",
       {at("c1", S::certified, 1), at("c2", S::certified, 2), at("c3", S::certified, 3),
        at("c4", S::certified, 4), at("c1", S::failed, 0)},
       {"c1", "c2", "c3", "c4"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    auto kept = ArchiveRetention::pathsToKeep(c.records);
    std::sort(kept.begin(), kept.end());
    EXPECT_EQ(kept, c.kept);  // each path once
  }
}

}  // namespace
}  // namespace zev
