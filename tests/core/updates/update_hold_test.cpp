#include "core/updates/update_hold.h"

#include <gtest/gtest.h>

#include <fstream>

#include "support/scratch_directory.h"

namespace zev {
namespace {

namespace fs = std::filesystem;

TEST(UpdateHold, ActiveForAnyEntryOfThatNameDirectlyInTheDirectory) {
  testing::ScratchDirectory scratch;
  const fs::path dir = scratch.path();
  EXPECT_EQ(UpdateHold::fileName, "update-hold.json");
  EXPECT_FALSE(UpdateHold::isActive(dir));

  fs::create_directory(dir / "nested");
  std::ofstream(dir / "nested" / "update-hold.json").put('x');
  std::ofstream(dir / "update-hold.json.bak").put('x');
  EXPECT_FALSE(UpdateHold::isActive(dir));

  std::ofstream(dir / "update-hold.json").close();  // empty: content is never read
  EXPECT_TRUE(UpdateHold::isActive(dir));
  fs::remove(dir / "update-hold.json");
  fs::create_directory(dir / "update-hold.json");
  EXPECT_TRUE(UpdateHold::isActive(dir));
  fs::remove(dir / "update-hold.json");
  fs::create_symlink(dir / "missing", dir / "update-hold.json");
  EXPECT_TRUE(UpdateHold::isActive(dir));

  EXPECT_FALSE(UpdateHold::isActive(dir / "no-such-directory"));
}

}  // namespace
}  // namespace zev
