// The store's files: what a save writes, what loading reads or refuses, the
// temporaries a killed save leaves behind, and durability. The store must
// never lose or mangle the record of an update: whichever system call of a
// save fails, the active file afterwards holds the previous record or the new
// one. A process killed mid-save stops at one of the same points, with the
// kernel keeping what was written, so the failures cover it.
#include "core/updates/update_transaction_store.h"

#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>
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
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << bytes;
}

TEST(UpdateTransactionStore, SaveWritesActiveAndHistoryAndReplacesTheAttemptsHistoryFile) {
  testing::ScratchDirectory scratch;
  const fs::path dir = scratch.path() / "deep" / "reliability";
  const UpdateTransactionStore store(dir);  // opens quietly before the directory exists
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
  EXPECT_EQ(store.loadAll(), std::vector{t});  // one history file per attempt
  // A record that cannot be encoded (cut UTF-8) writes nothing.
  EXPECT_THROW(store.save(record("4.0.0\xC3")), nlohmann::json::type_error);
  EXPECT_EQ(store.loadActive(), t);
  EXPECT_EQ(store.loadAll().size(), 1u);
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
  const auto target = [](const char* version) {
    return ::testing::Property(&UpdateTransaction::targetVersion, version);
  };
  EXPECT_THAT(store.loadAll(), ::testing::UnorderedElementsAre(target("a"), target("c")));
}

// A save killed between creating its temporary and renaming it leaves the
// temporary behind; opening the store again removes it, and nothing else.
TEST(UpdateTransactionStore, OpeningRemovesOnlyItsOwnKilledSavesTemporaries) {
  testing::ScratchDirectory scratch;
  const fs::path dir = scratch.path();
  const std::pair<const char*, bool> cases[] = {
      {".active-update.json.tmp-a1B2c3", true},
      {"transactions/.0F3C-UUID.json.tmp-Zz9999", true},
      {"active-update.json", false},                       // the record itself
      {"transactions/0F3C-UUID.json", false},              // a history record
      {".update-hold.json.tmp-a1B2c3", false},             // another writer's
      {".active-update.json.tmp-a1B2", false},             // not mkstemp's shape
      {".active-update.json.tmp-a1B2c3.keep", false},      // nor this
      {"transactions/.notes.txt.tmp-a1B2c3", false},       // not a record's
      {"archives/.active-update.json.tmp-a1B2c3", false},  // another directory
  };
  for (const auto& [path, removed] : cases) writeFile(dir / path, "partial");
  // A directory with a temporary's name is not a file to remove.
  fs::create_directories(dir / ".active-update.json.tmp-Dir000");

  const UpdateTransactionStore store(dir);
  for (const auto& [path, removed] : cases) {
    SCOPED_TRACE(path);
    EXPECT_EQ(fs::exists(dir / path), !removed);
  }
  EXPECT_TRUE(fs::is_directory(dir / ".active-update.json.tmp-Dir000"));
}

// ---- durability ------------------------------------------------------------

// Whether an atomic write left a temporary file in `directory`.
bool temporaryLeft(const fs::path& directory) {
  for (const auto& entry : fs::directory_iterator(directory)) {
    const std::string name = entry.path().filename().string();
    if (name.find(".tmp-") != std::string::npos) {
      EXPECT_NE(entry.path().extension(), ".json") << name;  // never passes for a record
      return true;
    }
  }
  return false;
}

// The system calls, except that fsync returns at once: neither a failed call
// nor a killed process loses what the kernel already holds, and a flush takes
// milliseconds. The order of the calls, fsync included, is checked below.
FileSystemCalls withoutFlush() {
  FileSystemCalls c = FileSystemCalls::system();
  c.fsync = [](int) { return 0; };
  return c;
}

// System calls that misbehave once, on the `faultAt`-th call of a save.
struct Injector {
  enum class Mode { fail, failAndKeepTemporary, interrupt, shortWrite } mode = Mode::fail;
  int faultAt = 0;  // 0: never
  std::vector<std::string> log;

  // Whether the `name` call, the next of the save, misbehaves. An interrupt
  // hits only calls that can report EINTR; a short write only the write.
  bool misbehaves(const char* name) {
    log.emplace_back(name);
    if (int(log.size()) != faultAt) return false;
    const std::string_view call = name;
    if (mode == Mode::interrupt) return call != "mkstemp" && call != "rename";
    return mode != Mode::shortWrite || call == "write";
  }
  bool failing() const { return mode == Mode::fail || mode == Mode::failAndKeepTemporary; }
  int fail() {
    errno = mode == Mode::interrupt ? EINTR : EIO;
    return -1;
  }

  FileSystemCalls calls() {
    const FileSystemCalls real = withoutFlush();
    FileSystemCalls c = real;
    const auto step = [this](const char* name, auto call) {
      return [=, this](auto... args) { return misbehaves(name) ? fail() : call(args...); };
    };
    c.mkstemp = step("mkstemp", real.mkstemp);
    c.fsync = step("fsync", real.fsync);
    c.rename = step("rename", real.rename);
    c.openDirectory = step("openDirectory", real.openDirectory);
    c.write = [=, this](int fd, const void* bytes, size_t n) -> ssize_t {
      if (!misbehaves("write")) return real.write(fd, bytes, n);
      return mode == Mode::shortWrite ? real.write(fd, bytes, (n + 1) / 2) : fail();
    };
    c.close = [=, this](int fd) {
      // Like Linux, a close that reports an error has released the descriptor.
      const bool fault = misbehaves("close");
      const int result = real.close(fd);
      return fault ? fail() : result;
    };
    if (mode == Mode::failAndKeepTemporary) {  // the clean-up after a fault fails too
      c.unlink = [](const char*) {
        errno = EACCES;
        return -1;
      };
    }
    return c;
  }
};

// Without a fault (step 0) the calls come in this order: each file's data is
// synced before its rename and its directory after it, the active file first,
// then the history copy.
TEST(UpdateTransactionStoreDurability, AFaultInAnyCallLeavesOldOrNewRecordNeverAMixture) {
  const std::vector<std::string> one = {"mkstemp", "write",         "fsync", "close",
                                        "rename",  "openDirectory", "fsync", "close"};
  std::vector<std::string> calls = one;
  calls.insert(calls.end(), one.begin(), one.end());
  const int activeRenameStep = 5, historyRenameStep = 13;
  using M = Injector::Mode;
  for (M mode : {M::fail, M::failAndKeepTemporary, M::interrupt, M::shortWrite}) {
    for (int step = 0; step <= int(calls.size()); ++step) {
      SCOPED_TRACE("mode " + std::to_string(int(mode)) + ", fault at call " + std::to_string(step));
      testing::ScratchDirectory scratch;
      UpdateTransactionStore store(scratch.path());
      store.setFileSystemCallsForTesting(withoutFlush());
      const UpdateTransaction old = record("1.0.0");
      store.save(old);
      // A long record, so that a short write shows as a truncated file.
      const UpdateTransaction next = record(std::string(20000, 'n'));
      Injector injector{mode, step, {}};
      store.setFileSystemCallsForTesting(injector.calls());
      const bool fails = step > 0 && injector.failing();
      try {
        store.save(next);
        EXPECT_FALSE(fails);
      } catch (const fs::filesystem_error& error) {
        EXPECT_TRUE(fails);
        EXPECT_EQ(error.code().value(), EIO) << error.what();
      }
      if (step == 0) EXPECT_EQ(injector.log, calls);
      store.setFileSystemCallsForTesting(withoutFlush());

      const bool activeReplaced = !fails || step > activeRenameStep;
      const bool historyWritten = !fails || step > historyRenameStep;
      EXPECT_EQ(store.loadActive(), activeReplaced ? next : old);
      std::vector<UpdateTransaction> all = store.loadAll();
      if (all.size() == 2 && all[0] == next) std::swap(all[0], all[1]);
      const std::vector<UpdateTransaction> expected =
          historyWritten ? std::vector{old, next} : std::vector{old};
      EXPECT_EQ(all, expected);
      const bool strays =
          temporaryLeft(store.transactionsDirectory()) || temporaryLeft(scratch.path());
      if (mode != M::failAndKeepTemporary) EXPECT_FALSE(strays);
    }
  }
}

}  // namespace
}  // namespace zev
