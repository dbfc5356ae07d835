// The store must never lose or mangle the record of an update: whichever
// system call of a save fails, the active file afterwards holds the previous
// record or the new one. A process killed mid-save stops at one of the same
// points, with the kernel keeping what was written, so the failures cover it.
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <utility>
#include <vector>

#include "core/updates/update_transaction_store.h"
#include "support/scratch_directory.h"

namespace zev {
namespace {

namespace fs = std::filesystem;

UpdateTransaction record(const std::string& target) {
  return UpdateTransaction(
      "1.0.0", target, {timestampFromMillisecondsSince1970(1000), 1, {{"c/s", true, 5}}},
      "/archives/" + target, timestampFromMillisecondsSince1970(2000), Uuid::random());
}

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

  bool trip(const char* name) {
    log.emplace_back(name);
    return int(log.size()) == faultAt;
  }
  bool failing() const { return mode == Mode::fail || mode == Mode::failAndKeepTemporary; }
  int fail() {
    errno = mode == Mode::interrupt ? EINTR : EIO;
    return -1;
  }

  FileSystemCalls calls() {
    const FileSystemCalls real = withoutFlush();
    FileSystemCalls c;
    c.mkstemp = [=, this](char* name) {
      return trip("mkstemp") && failing() ? fail() : real.mkstemp(name);
    };
    c.write = [=, this](int fd, const void* bytes, size_t n) -> ssize_t {
      if (!trip("write")) return real.write(fd, bytes, n);
      return mode == Mode::shortWrite ? real.write(fd, bytes, (n + 1) / 2) : fail();
    };
    c.fsync = [=, this](int fd) {
      return trip("fsync") && mode != Mode::shortWrite ? fail() : real.fsync(fd);
    };
    c.close = [=, this](int fd) {
      // Like Linux, a close that reports an error has released the descriptor.
      const bool fault = trip("close") && mode != Mode::shortWrite;
      const int result = real.close(fd);
      return fault ? fail() : result;
    };
    c.rename = [=, this](const char* from, const char* to) {
      return trip("rename") && failing() ? fail() : real.rename(from, to);
    };
    c.unlink = [=, this](const char* path) {  // only after a fault; not a step
      if (mode != Mode::failAndKeepTemporary) return real.unlink(path);
      errno = EACCES;
      return -1;
    };
    c.openDirectory = [=, this](const char* path) {
      return trip("openDirectory") && mode != Mode::shortWrite ? fail() : real.openDirectory(path);
    };
    return c;
  }
};

TEST(UpdateTransactionStoreDurability, EachWriteSyncsBeforeRenameAndSyncsDirectoryAfter) {
  testing::ScratchDirectory scratch;
  UpdateTransactionStore store(scratch.path());
  store.save(record("1.0.0"));  // directories exist from here on
  Injector injector;
  store.setFileSystemCallsForTesting(injector.calls());
  store.save(record("2.0.0"));
  const std::vector<std::string> one = {"mkstemp", "write",         "fsync", "close",
                                        "rename",  "openDirectory", "fsync", "close"};
  std::vector<std::string> expected = one;  // the active file, then the history copy
  expected.insert(expected.end(), one.begin(), one.end());
  EXPECT_EQ(injector.log, expected);
}

TEST(UpdateTransactionStoreDurability, AFaultInAnyCallLeavesOldOrNewRecordNeverAMixture) {
  const int activeRenameStep = 5, historyRenameStep = 13, callsPerSave = 16;
  using M = Injector::Mode;
  for (M mode : {M::fail, M::failAndKeepTemporary, M::interrupt, M::shortWrite}) {
    for (int step = 1; step <= callsPerSave; ++step) {
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
      try {
        store.save(next);
        EXPECT_FALSE(injector.failing());
      } catch (const fs::filesystem_error& error) {
        EXPECT_TRUE(injector.failing());
        EXPECT_EQ(error.code().value(), EIO) << error.what();
      }
      store.setFileSystemCallsForTesting(withoutFlush());

      const bool activeReplaced = !injector.failing() || step > activeRenameStep;
      const bool historyWritten = !injector.failing() || step > historyRenameStep;
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
