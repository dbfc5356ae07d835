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

UpdateTransaction record(const std::string& target, Uuid id = Uuid::random()) {
  return UpdateTransaction("1.0.0", target,
                           {timestampFromMillisecondsSince1970(1000), 1, {{"c/s", true, 5}}},
                           "/archives/" + target, timestampFromMillisecondsSince1970(2000), id);
}

std::string replaceState(std::string json, const std::string& state) {
  const std::string from = R"("state":"preparing")";
  json.replace(json.find(from), from.size(), R"("state":")" + state + "\"");
  return json;
}

std::string readFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void writeFile(const fs::path& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

std::vector<std::string> targets(const std::vector<UpdateTransaction>& transactions) {
  std::vector<std::string> names;
  for (const auto& t : transactions) names.push_back(t.targetVersion());
  std::sort(names.begin(), names.end());
  return names;
}

TEST(UpdateTransactionStore, SaveCreatesDirectoriesAndBothFilesHoldTheSameRecord) {
  testing::ScratchDirectory scratch;
  const UpdateTransactionStore store(scratch.path() / "deep" / "reliability");
  EXPECT_EQ(store.loadActive(), std::nullopt);
  EXPECT_TRUE(store.loadAll().empty());

  UpdateTransaction t = record("2.0.0");
  t.setState(UpdateState::failed);
  t.setFailureReason("timed out");
  store.save(t);
  EXPECT_EQ(store.loadActive(), t);
  EXPECT_EQ(store.loadAll(), std::vector<UpdateTransaction>{t});
  const fs::path dir = scratch.path() / "deep" / "reliability";
  const std::string bytes = encodeUpdateTransaction(t);
  EXPECT_EQ(readFile(dir / "active-update.json"), bytes);
  EXPECT_EQ(readFile(dir / "transactions" / (t.id().string() + ".json")), bytes);
}

TEST(UpdateTransactionStore, SavingAnAttemptAgainReplacesItsHistoryFile) {
  testing::ScratchDirectory scratch;
  const UpdateTransactionStore store(scratch.path());
  UpdateTransaction t = record("2.0.0");
  store.save(t);
  t.setState(UpdateState::installing);
  store.save(t);
  const UpdateTransaction other = record("3.0.0");
  store.save(other);

  EXPECT_EQ(store.loadActive(), other);
  const auto all = store.loadAll();
  ASSERT_EQ(all.size(), 2u);
  for (const auto& loaded : all) {
    if (loaded.id() == t.id()) {
      EXPECT_EQ(loaded.state(), UpdateState::installing);
    }
  }
  EXPECT_EQ(std::distance(fs::directory_iterator(store.transactionsDirectory()), {}), 2);
}

TEST(UpdateTransactionStore, UnreadableActiveFileOrUnlistableHistoryIsAnErrorNotAbsence) {
  testing::ScratchDirectory scratch;
  const UpdateTransactionStore store(scratch.path());
  store.save(record("2.0.0"));
  const std::string good = encodeUpdateTransaction(record("2.0.0"));
  struct Case {
    const char* name;
    std::string bytes;
  };
  for (const Case& c :
       std::vector<Case>{{"empty", ""},
                         {"truncated", good.substr(0, good.size() / 2)},
                         {"case name as state", replaceState(good, "rolledBack")}}) {
    SCOPED_TRACE(c.name);
    writeFile(store.activeURL(), c.bytes);
    EXPECT_THROW(store.loadActive(), DecodingError);
  }
  fs::remove(store.activeURL());
  fs::create_directory(store.activeURL());  // present but not a readable file
  EXPECT_THROW(store.loadActive(), fs::filesystem_error);
  // Unreadable history files are skipped (below), but a history that cannot
  // be listed at all is an error.
  fs::remove_all(store.transactionsDirectory());
  writeFile(store.transactionsDirectory(), "not a directory");
  EXPECT_THROW(store.loadAll(), fs::filesystem_error);
}

TEST(UpdateTransactionStore, LoadAllReadsOnlyExactJsonExtensionAndSkipsBadFiles) {
  testing::ScratchDirectory scratch;
  const UpdateTransactionStore store(scratch.path());
  store.save(record("a"));
  store.save(record("b"));
  const fs::path history = store.transactionsDirectory();
  const std::string valid = encodeUpdateTransaction(record("ignored"));
  writeFile(history / "UPPER.JSON", valid);
  writeFile(history / "backup.json.bak", valid);
  writeFile(history / ".x.json.tmp-AbC123", valid);  // what an interrupted write leaves
  writeFile(history / "corrupt.json", valid.substr(0, 40));
  writeFile(history / "empty.json", "");
  fs::create_directory(history / "dir.json");
  writeFile(history / ".hidden.json", encodeUpdateTransaction(record("c")));

  EXPECT_EQ(targets(store.loadAll()), (std::vector<std::string>{"a", "b", "c"}));
}

TEST(UpdateTransactionStore, RecordThatCannotBeEncodedWritesNothing) {
  testing::ScratchDirectory scratch;
  const UpdateTransactionStore store(scratch.path());
  const UpdateTransaction old = record("1.0.0");
  store.save(old);
  EXPECT_THROW(store.save(record("2.0.0\xC3")), nlohmann::json::type_error);  // cut UTF-8
  EXPECT_EQ(store.loadActive(), old);
  EXPECT_EQ(store.loadAll().size(), 1u);
}

TEST(UpdateTransactionStore, DirectoryThatCannotBeCreatedFailsTheSave) {
  testing::ScratchDirectory scratch;
  writeFile(scratch.path() / "file", "");
  const UpdateTransactionStore store(scratch.path() / "file" / "reliability");
  EXPECT_THROW(store.save(record("1.0.0")), fs::filesystem_error);
  EXPECT_EQ(store.loadActive(), std::nullopt);  // nothing there to load, which is no error
}

}  // namespace
}  // namespace zev
