// Pruning the archives of earlier updates: which ones retention keeps, and
// the check that a path to remove is an immediate child of the archive root.
#include "core/updates/archive_retention.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "core/updates/archive_path_validator.h"

namespace zev {
namespace {

namespace fs = std::filesystem;
using E = ArchivePathError;
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
      {"tie at the cut keeps the one earlier in the input",
       {at("c9", S::certified, 9), at("tie-first", S::certified, 5), at("c8", S::certified, 8),
        at("tie-second", S::certified, 5)},
       {"c8", "c9", "tie-first"}},
      {"every unfinished and failed attempt, however old",
       {at("c4", S::certified, 40), at("c3", S::certified, 30), at("c2", S::certified, 20),
        at("c1", S::certified, 10), at("f", S::failed, -100000), at("p", S::preparing, 1),
        at("i", S::installing, 1), at("v", S::verifying, 1)},
       {"c2", "c3", "c4", "f", "i", "p", "v"}},
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


std::optional<E::Code> refusal(const fs::path& archive, const fs::path& root) {
  try {
    ArchivePathValidator::validate(archive, root);
    return std::nullopt;
  } catch (const ArchivePathError& error) {
    return error.code();
  }
}

TEST(ArchivePathValidator, AcceptsOnlyImmediateChildrenOfTheRoot) {
  const struct {
    const char* archive;
    const char* root;
    std::optional<E::Code> expected;
  } cases[] = {
      {"/r/a/", "/r", std::nullopt},
      {"/r/a", "/x/../r/.", std::nullopt},
      {"/r/a/b", "/r", E::notDirectChild},
      {"/r", "/r", E::outsideRoot},
      {"/r/a/..", "/r", E::outsideRoot},
      {"/rx/a", "/r", E::outsideRoot},
      {"/r/../a", "/r", E::outsideRoot},
      {"/r/../../r/a", "/r", std::nullopt},  // ".." above "/" stays at "/"
      {"/a", "/", E::outsideRoot},           // the prefix becomes "//"
      {"r/a", "/r", E::outsideRoot},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.archive) + " under " + c.root);
    EXPECT_EQ(refusal(c.archive, c.root), c.expected);
  }
}

}  // namespace
}  // namespace zev
