#include "platform/linux/bundle_swap_linux.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>

namespace zev {
namespace {

namespace fs = std::filesystem;

std::string errnoText(int error) { return std::strerror(error); }

bool exchangePaths(const fs::path& a, const fs::path& b) {
  // glibc 2.28+ has renameat2(); the system call keeps older ones working.
  return ::syscall(SYS_renameat2, AT_FDCWD, a.c_str(), AT_FDCWD, b.c_str(), RENAME_EXCHANGE) == 0;
}

bool syncDirectory(const fs::path& dir) {
  const int fd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return false;
  const bool ok = ::fsync(fd) == 0;
  ::close(fd);
  return ok;
}

// The note holds the staging directory's name, one line; written to a
// temporary file, synced, renamed into place, and the directory synced.
std::optional<std::string> writeNote(const fs::path& parent, const std::string& stagingName) {
  const fs::path note = parent / swapNoteName;
  const fs::path temporary = parent / (std::string(swapNoteName) + ".tmp");
  const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) return "cannot write the swap note: " + errnoText(errno);
  const std::string line = stagingName + "\n";
  const bool written = ::write(fd, line.data(), line.size()) == static_cast<ssize_t>(line.size()) &&
                       ::fsync(fd) == 0;
  const int error = errno;
  if (::close(fd) != 0 || !written) return "cannot write the swap note: " + errnoText(error);
  if (::rename(temporary.c_str(), note.c_str()) != 0 || !syncDirectory(parent)) {
    return "cannot write the swap note: " + errnoText(errno);
  }
  return std::nullopt;
}

}  // namespace

fs::path makeStagingDirectory(const fs::path& installed) {
  std::string nameTemplate =
      (installed.parent_path() / (std::string(stagingPrefix) + "XXXXXX")).string();
  if (!::mkdtemp(nameTemplate.data())) {
    throw fs::filesystem_error("cannot make a staging directory", installed.parent_path(),
                               std::error_code(errno, std::generic_category()));
  }
  return nameTemplate;
}

std::optional<std::string> swapInBundle(const fs::path& installed, const fs::path& staging,
                                        SwapMethod method, SwapOutcome& outcome,
                                        const std::function<void(int)>& afterStepForTesting) {
  const auto step = [&](int done) {
    if (afterStepForTesting) afterStepForTesting(done);
  };
  const fs::path staged = staging / "ZEV.app";
  const fs::path parent = installed.parent_path();
  if (staging.parent_path() != parent) return "staging directory is not beside the bundle";

  if (method == SwapMethod::exchangeWhereSupported) {
    if (exchangePaths(staged, installed)) {
      syncDirectory(parent);
      outcome = {true, staged};
      return std::nullopt;
    }
    // EINVAL / ENOSYS: the file system cannot exchange; go the long way.
    if (errno != EINVAL && errno != ENOSYS && errno != ENOTSUP) {
      return "cannot exchange the bundles: " + errnoText(errno);
    }
  }

  const fs::path previous = staging / previousBundleName;
  if (auto error = writeNote(parent, staging.filename().string())) return error;
  step(1);
  if (::rename(installed.c_str(), previous.c_str()) != 0) {
    const std::string error = "cannot move the installed bundle aside: " + errnoText(errno);
    ::unlink((parent / swapNoteName).c_str());
    return error;
  }
  step(2);
  if (::rename(staged.c_str(), installed.c_str()) != 0) {
    const std::string error = "cannot move the new bundle into place: " + errnoText(errno);
    // Put the old one back; the note stays if even that fails.
    if (::rename(previous.c_str(), installed.c_str()) == 0) {
      ::unlink((parent / swapNoteName).c_str());
    }
    return error;
  }
  syncDirectory(parent);
  step(3);
  ::unlink((parent / swapNoteName).c_str());
  syncDirectory(parent);
  outcome = {false, previous};
  return std::nullopt;
}

std::optional<std::string> recoverInterruptedSwap(const fs::path& installed) {
  const fs::path parent = installed.parent_path();
  const fs::path note = parent / swapNoteName;
  std::ifstream in(note);
  if (!in) return std::nullopt;
  std::string stagingName;
  std::getline(in, stagingName);
  in.close();
  // The note is read back from disk: accept only a staging directory's name.
  if (stagingName.rfind(stagingPrefix, 0) != 0 || stagingName.find('/') != std::string::npos ||
      stagingName.size() > 64) {
    ::unlink(note.c_str());
    return "ignored a malformed swap note";
  }
  const fs::path staging = parent / stagingName;
  std::error_code ec;
  if (!fs::exists(fs::symlink_status(installed, ec))) {
    const fs::path staged = staging / "ZEV.app";
    const fs::path previous = staging / previousBundleName;
    const fs::path& source = fs::exists(staged / "Contents/Info.plist", ec) ? staged : previous;
    if (::rename(source.c_str(), installed.c_str()) != 0) {
      return "cannot finish the interrupted bundle swap: " + errnoText(errno);
    }
    syncDirectory(parent);
  }
  ::unlink(note.c_str());
  syncDirectory(parent);
  return std::nullopt;
}

bool bundleIsUsersOwn(const fs::path& installed) {
  struct stat bundle {};
  struct stat parent {};
  if (::lstat(installed.c_str(), &bundle) != 0 || !S_ISDIR(bundle.st_mode)) return false;
  if (::stat(installed.parent_path().c_str(), &parent) != 0) return false;
  const uid_t me = ::geteuid();
  return bundle.st_uid == me && parent.st_uid == me &&
         ::access(installed.parent_path().c_str(), W_OK) == 0 &&
         ::access(installed.c_str(), W_OK) == 0;
}

}  // namespace zev
