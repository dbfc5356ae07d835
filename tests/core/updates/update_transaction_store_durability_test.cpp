// The store must never lose or mangle the record of an update: whichever
// system call of a save fails, the active file afterwards holds the previous
// record or the new one. A process killed mid-save stops at one of the same
// points, with the kernel keeping what was written, so the failures cover it.
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "core/updates/update_transaction_store.h"
#include "support/scratch_directory.h"

namespace zev {
namespace {

namespace fs = std::filesystem;

UpdateTransaction record(const std::string& target, Uuid id) {
  return UpdateTransaction("1.0.0", target,
                           {timestampFromMillisecondsSince1970(1000), 1, {{"c/s", true, 5}}},
                           "/archives/" + target, timestampFromMillisecondsSince1970(2000), id);
}

std::string readFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

// Names in `directory` that an atomic write left behind.
std::vector<std::string> temporaries(const fs::path& directory) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(directory)) {
    if (entry.path().filename().string().find(".tmp-") != std::string::npos) {
      names.push_back(entry.path().filename().string());
    }
  }
  return names;
}

// The system calls, except that fsync returns at once. Neither a failed call
// nor a killed process loses what the kernel already holds, so these tests
// do not need the disk flush; skipping it keeps them fast (a flush takes
// milliseconds here). The order of the calls, fsync included, is checked by
// EachWriteSyncsBeforeRenameAndSyncsDirectoryAfter.
const FileSystemCalls& withoutFlush() {
  static const FileSystemCalls calls = [] {
    FileSystemCalls c = FileSystemCalls::system();
    c.fsync = [](int) { return 0; };
    return c;
  }();
  return calls;
}

// System calls (withoutFlush) that misbehave once, on the `faultAt`-th call of a save.
struct Injector {
  enum class Mode {
    fail,                  // the call fails with `error`
    failAndKeepTemporary,  // ... and removing the temporary file fails too
    interrupt,             // EINTR where the system can interrupt the call
    shortWrite,            // a write writes less than asked
  };

  Mode mode = Mode::fail;
  int faultAt = 0;  // 0: never
  int count = 0;
  std::vector<std::string> log;

  bool trip(const char* name) {
    log.emplace_back(name);
    return ++count == faultAt;
  }
  bool failing() const { return mode == Mode::fail || mode == Mode::failAndKeepTemporary; }
  int fail() {
    errno = mode == Mode::interrupt ? EINTR : EIO;
    return -1;
  }

  FileSystemCalls calls() {
    const FileSystemCalls& real = withoutFlush();
    FileSystemCalls c;
    c.mkstemp = [this, &real](char* name) {
      return trip("mkstemp") && failing() ? fail() : real.mkstemp(name);
    };
    c.write = [this, &real](int fd, const void* bytes, size_t n) -> ssize_t {
      if (!trip("write")) return real.write(fd, bytes, n);
      return mode == Mode::shortWrite ? real.write(fd, bytes, (n + 1) / 2) : fail();
    };
    c.fsync = [this, &real](int fd) {
      return trip("fsync") && mode != Mode::shortWrite ? fail() : real.fsync(fd);
    };
    c.close = [this, &real](int fd) {
      // Like Linux, a close that reports an error has released the descriptor.
      const bool fault = trip("close") && mode != Mode::shortWrite;
      const int result = real.close(fd);
      return fault ? fail() : result;
    };
    c.rename = [this, &real](const char* from, const char* to) {
      return trip("rename") && failing() ? fail() : real.rename(from, to);
    };
    c.unlink = [this, &real](const char* path) {
      log.emplace_back("unlink");  // only runs after a fault; not counted as a step
      if (mode != Mode::failAndKeepTemporary) return real.unlink(path);
      errno = EACCES;
      return -1;
    };
    c.openDirectory = [this, &real](const char* path) {
      return trip("openDirectory") && mode != Mode::shortWrite ? fail() : real.openDirectory(path);
    };
    return c;
  }
};

const std::vector<std::string> kOneAtomicWrite = {"mkstemp", "write",         "fsync", "close",
                                                  "rename",  "openDirectory", "fsync", "close"};

TEST(UpdateTransactionStoreDurability, EachWriteSyncsBeforeRenameAndSyncsDirectoryAfter) {
  testing::ScratchDirectory scratch;
  UpdateTransactionStore store(scratch.path());
  store.save(record("1.0.0", Uuid::random()));  // directories exist from here on

  Injector injector;
  store.setFileSystemCallsForTesting(injector.calls());
  store.save(record("2.0.0", Uuid::random()));
  std::vector<std::string> expected = kOneAtomicWrite;  // the active file,
  expected.insert(expected.end(), kOneAtomicWrite.begin(), kOneAtomicWrite.end());  // then history
  EXPECT_EQ(injector.log, expected);
}

TEST(UpdateTransactionStoreDurability, AFaultInAnyCallLeavesOldOrNewRecordNeverAMixture) {
  const int callsPerSave = static_cast<int>(2 * kOneAtomicWrite.size());
  const int activeRenameStep = 5;                      // 1-based
  const int historyRenameStep = activeRenameStep + 8;  // second write's rename
  for (Injector::Mode mode : {Injector::Mode::fail, Injector::Mode::failAndKeepTemporary,
                              Injector::Mode::interrupt, Injector::Mode::shortWrite}) {
    for (int step = 1; step <= callsPerSave; ++step) {
      SCOPED_TRACE("mode " + std::to_string(static_cast<int>(mode)) + ", fault at call " +
                   std::to_string(step));
      testing::ScratchDirectory scratch;
      UpdateTransactionStore store(scratch.path());
      store.setFileSystemCallsForTesting(withoutFlush());
      const UpdateTransaction old = record("1.0.0", Uuid::random());
      store.save(old);
      // A long record, so that a short write shows as a truncated file.
      const UpdateTransaction next = record(std::string(20000, 'n'), Uuid::random());
      const fs::path nextHistory = store.transactionsDirectory() / (next.id().string() + ".json");

      Injector injector;
      injector.mode = mode;
      injector.faultAt = step;
      store.setFileSystemCallsForTesting(injector.calls());
      bool threw = false;
      try {
        store.save(next);
      } catch (const fs::filesystem_error& error) {
        threw = true;
        EXPECT_EQ(error.code().value(), EIO) << error.what();
      }
      store.setFileSystemCallsForTesting(withoutFlush());

      const bool faultFails = injector.failing();
      EXPECT_EQ(threw, faultFails);
      const bool activeReplaced = !faultFails || step > activeRenameStep;
      const bool historyWritten = !faultFails || step > historyRenameStep;
      EXPECT_EQ(store.loadActive(), activeReplaced ? next : old);
      EXPECT_EQ(fs::exists(nextHistory), historyWritten);
      if (historyWritten) {
        EXPECT_EQ(readFile(nextHistory), encodeUpdateTransaction(next));
      }

      // Temporary files are removed; where removal itself failed they stay,
      // but never pass for records.
      const auto strays = temporaries(store.transactionsDirectory());
      const auto activeStrays = temporaries(scratch.path());
      if (mode != Injector::Mode::failAndKeepTemporary) {
        EXPECT_TRUE(strays.empty() && activeStrays.empty());
      }
      for (const auto& name : strays) EXPECT_NE(fs::path(name).extension(), ".json") << name;
      const auto all = store.loadAll();
      EXPECT_EQ(all.size(), historyWritten ? 2u : 1u);
    }
  }
}

}  // namespace
}  // namespace zev
