// A save killed between creating its temporary and renaming it leaves the
// temporary behind; opening the store again removes it, and nothing else.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>

#include "core/updates/update_transaction_store.h"

namespace zev {
namespace {

namespace fs = std::filesystem;

TEST(UpdateStoreTemporaries, OpeningRemovesOnlyItsOwnKilledSavesTemporaries) {
  const fs::path dir = fs::temp_directory_path() /
                       ("zev-stray-" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) +
                        "-" + std::to_string(::getpid()));
  fs::remove_all(dir);
  fs::create_directories(dir / "transactions");
  struct Case {
    const char* path;
    bool removed;
  };
  const Case cases[] = {
      {".active-update.json.tmp-a1B2c3", true},
      {"transactions/.0F3C-UUID.json.tmp-Zz9999", true},
      {"active-update.json", false},                      // the record itself
      {"transactions/0F3C-UUID.json", false},             // a history record
      {".update-hold.json.tmp-a1B2c3", false},            // another writer's
      {".active-update.json.tmp-a1B2", false},            // not mkstemp's shape
      {".active-update.json.tmp-a1B2c3.keep", false},     // nor this
      {"transactions/.notes.txt.tmp-a1B2c3", false},      // not a record's
      {"archives/.active-update.json.tmp-a1B2c3", false},  // another directory
  };
  for (const Case& c : cases) {
    fs::create_directories((dir / c.path).parent_path());
    std::ofstream(dir / c.path) << "partial";
  }
  // A directory with a temporary's name is not a file to remove.
  fs::create_directories(dir / ".active-update.json.tmp-Dir000");

  UpdateTransactionStore store(dir);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.path);
    EXPECT_EQ(fs::exists(dir / c.path), !c.removed);
  }
  EXPECT_TRUE(fs::is_directory(dir / ".active-update.json.tmp-Dir000"));
  // A store over a directory that does not exist yet opens quietly.
  UpdateTransactionStore absent(dir / "absent");
  fs::remove_all(dir);
}

}  // namespace
}  // namespace zev
