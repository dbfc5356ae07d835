#include "core/updates/archive_path_validator.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "support/scratch_directory.h"

namespace zev {
namespace {

namespace fs = std::filesystem;
using E = ArchivePathError;

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
      {"/r/a", "/r", std::nullopt},
      {"/r/a/", "/r", std::nullopt},
      {"/r/../r/a", "/r", std::nullopt},
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

TEST(ArchivePathValidator, DoesNotResolveSymbolicLinks) {
  testing::ScratchDirectory scratch;
  const fs::path root = scratch.path() / "archives";
  const fs::path elsewhere = scratch.path() / "precious";
  fs::create_directories(root);
  fs::create_directories(elsewhere / "deep");
  fs::create_directory_symlink(elsewhere, root / "link");
  fs::create_directory_symlink(root, scratch.path() / "root-link");

  EXPECT_EQ(refusal(root / "link", root),
            std::nullopt);  // a link is an entry like any other
  EXPECT_EQ(refusal(root / "link" / "deep", root), E::notDirectChild);
  EXPECT_EQ(refusal(root / "a", scratch.path() / "root-link"), E::outsideRoot);
}

}  // namespace
}  // namespace zev
