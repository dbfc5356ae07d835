#include "core/updates/update_transaction_store.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "core/support/decoding_error.h"
#include "support/scratch_directory.h"

namespace zev {
namespace {

namespace fs = std::filesystem;

UpdateTransaction record(const std::string& target) {
  return UpdateTransaction(
      "1.0.0", target, {timestampFromMillisecondsSince1970(1000), 1, {{"c/s", true, 5}}},
      "/archives/" + target, timestampFromMillisecondsSince1970(2000), Uuid::random());
}

std::string readFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void writeFile(const fs::path& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

TEST(UpdateTransactionStore, SaveWritesActiveAndHistoryAndReplacesTheAttemptsHistoryFile) {
  testing::ScratchDirectory scratch;
  const fs::path dir = scratch.path() / "deep" / "reliability";
  const UpdateTransactionStore store(dir);
  EXPECT_EQ(store.loadActive(), std::nullopt);
  EXPECT_TRUE(store.loadAll().empty());

  UpdateTransaction t = record("2.0.0");
  store.save(t);
  t.setState(UpdateState::failed);
  t.setFailureReason("timed out");
  store.save(t);
  EXPECT_EQ(readFile(dir / "active-update.json"), encodeUpdateTransaction(t));
  EXPECT_EQ(readFile(dir / "transactions" / (t.id().string() + ".json")),
            encodeUpdateTransaction(t));
  const UpdateTransaction other = record("3.0.0");
  store.save(other);
  EXPECT_EQ(store.loadActive(), other);
  std::vector<UpdateTransaction> all = store.loadAll();
  std::sort(all.begin(), all.end(),
            [](const auto& a, const auto& b) { return a.targetVersion() < b.targetVersion(); });
  EXPECT_EQ(all, (std::vector{t, other}));
}

TEST(UpdateTransactionStore, UnreadableActiveFileOrUnlistableHistoryIsAnErrorNotAbsence) {
  testing::ScratchDirectory scratch;
  const UpdateTransactionStore store(scratch.path());
  store.save(record("2.0.0"));
  writeFile(store.activeURL(), readFile(store.activeURL()).substr(0, 100));
  EXPECT_THROW(store.loadActive(), DecodingError);
  fs::remove(store.activeURL());
  fs::create_directory(store.activeURL());
  EXPECT_THROW(store.loadActive(), fs::filesystem_error);
  // Unreadable history files are skipped (below), an unlistable history is not.
  fs::remove_all(store.transactionsDirectory());
  writeFile(store.transactionsDirectory(), "not a directory");
  EXPECT_THROW(store.loadAll(), fs::filesystem_error);
}

TEST(UpdateTransactionStore, LoadAllReadsOnlyExactJsonExtensionAndSkipsBadFiles) {
  testing::ScratchDirectory scratch;
  const UpdateTransactionStore store(scratch.path());
  store.save(record("a"));
  const fs::path history = store.transactionsDirectory();
  const std::string valid = encodeUpdateTransaction(record("ignored"));
  for (const char* name : {"UPPER.JSON", "backup.json.bak", ".x.json.tmp-AbC123"}) {
    writeFile(history / name, valid);
  }
  writeFile(history / "corrupt.json", valid.substr(0, 40));
  writeFile(history / "empty.json", "");
  fs::create_directory(history / "dir.json");
  writeFile(history / ".hidden.json", encodeUpdateTransaction(record("c")));
  std::vector<std::string> targets;
  for (const auto& t : store.loadAll()) targets.push_back(t.targetVersion());
  std::sort(targets.begin(), targets.end());
  EXPECT_EQ(targets, (std::vector<std::string>{"a", "c"}));
}

TEST(UpdateTransactionStore, RecordThatCannotBeEncodedWritesNothing) {
  testing::ScratchDirectory scratch;
  const UpdateTransactionStore store(scratch.path());
  const UpdateTransaction old = record("1.0.0");
  store.save(old);
  EXPECT_THROW(store.save(record("2.0.0\xC3")),
               nlohmann::json::type_error);  // cut UTF-8
  EXPECT_EQ(store.loadActive(), old);
  EXPECT_EQ(store.loadAll().size(), 1u);
}

}  // namespace
}  // namespace zev
