#include "core/support/atomic_file.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <string>
#include <system_error>
#include <vector>

namespace zev {

namespace {

namespace fs = std::filesystem;

[[noreturn]] void throwErrno(const char* what, const fs::path& path, int error) {
  throw fs::filesystem_error(what, path, std::error_code(error, std::generic_category()));
}

int syncToStableStorage(const FileSystemCalls& calls, int fd) {
  int result;
  do {
    result = calls.fsync(fd);
  } while (result != 0 && errno == EINTR);
  return result;
}

int realFsync(int fd) {
#if defined(__APPLE__)
  // fsync on macOS only hands the data to the drive, whose cache may still
  // lose it on power loss; F_FULLFSYNC asks the drive to flush. Some file
  // systems (network shares, FAT) refuse it, so fall back to plain fsync.
  if (::fcntl(fd, F_FULLFSYNC) == 0) return 0;
#endif
  return ::fsync(fd);
}

int realMkstemp(char* nameTemplate) {
#if defined(__APPLE__)
  const int fd = ::mkstemp(nameTemplate);
  if (fd >= 0) ::fcntl(fd, F_SETFD, FD_CLOEXEC);
  return fd;
#else
  return ::mkostemp(nameTemplate, O_CLOEXEC);
#endif
}

int realOpenDirectory(const char* path) { return ::open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC); }

// Removes the temporary file of a write that failed; the write's own error is
// what the caller needs, so a failure to clean up is not reported.
void discardTemporary(const FileSystemCalls& calls, const std::string& path) {
  (void)calls.unlink(path.c_str());
}

void writeAll(const FileSystemCalls& calls, int fd, std::string_view bytes,
              const std::string& path) {
  const char* next = bytes.data();
  size_t left = bytes.size();
  while (left > 0) {
    const ssize_t written = calls.write(fd, next, left);
    if (written < 0) {
      if (errno == EINTR) continue;
      throwErrno("write", path, errno);
    }
    if (written == 0) throwErrno("write", path, EIO);  // no progress: give up, don't spin
    next += written;
    left -= static_cast<size_t>(written);
  }
}

}  // namespace

void syncDirectory(const fs::path& directory, const FileSystemCalls& calls) {
  int fd;
  do {
    fd = calls.openDirectory(directory.c_str());
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) throwErrno("open directory", directory, errno);
  if (syncToStableStorage(calls, fd) != 0) {
    const int error = errno;
    (void)calls.close(fd);
    throwErrno("fsync directory", directory, error);
  }
  // Don't retry close on EINTR: the descriptor is gone either way on Linux.
  if (calls.close(fd) != 0 && errno != EINTR) throwErrno("close directory", directory, errno);
}

const FileSystemCalls& FileSystemCalls::system() {
  static const FileSystemCalls calls{
      realMkstemp, ::write, realFsync, ::close, ::rename, ::unlink, realOpenDirectory,
  };
  return calls;
}

void writeFileAtomically(const fs::path& target, std::string_view bytes,
                         const FileSystemCalls& calls) {
  const fs::path directory = target.has_parent_path() ? target.parent_path() : fs::path(".");
  // Appended piece by piece: gcc 12 misreads "." + std::string&& under -O2
  // (a false -Wrestrict).
  std::string name = ".";
  name += target.filename().string();
  name += ".tmp-XXXXXX";
  std::string temporary = (directory / name).string();

  std::vector<char> nameTemplate(temporary.begin(), temporary.end());
  nameTemplate.push_back('\0');
  const int fd = calls.mkstemp(nameTemplate.data());
  if (fd < 0) throwErrno("create temporary file", temporary, errno);
  temporary.assign(nameTemplate.data());

  try {
    writeAll(calls, fd, bytes, temporary);
    if (syncToStableStorage(calls, fd) != 0) throwErrno("fsync", temporary, errno);
  } catch (...) {
    (void)calls.close(fd);
    discardTemporary(calls, temporary);
    throw;
  }
  // A failed close can be the first report of a failed write (NFS, quotas).
  // Don't retry it on EINTR: the descriptor is released either way on Linux,
  // and a retry could close a descriptor another thread just opened. The data
  // is already on stable storage by then, so EINTR is no failure.
  if (calls.close(fd) != 0 && errno != EINTR) {
    const int error = errno;
    discardTemporary(calls, temporary);
    throwErrno("close", temporary, error);
  }
  if (calls.rename(temporary.c_str(), target.c_str()) != 0) {
    const int error = errno;
    discardTemporary(calls, temporary);
    throwErrno("rename", target, error);
  }
  // The new name is only durable once the directory entry is.
  syncDirectory(directory, calls);
}

std::size_t removeStrayTemporaries(const fs::path& directory,
                                   const std::function<bool(std::string_view target)>& isOwnTarget) {
  constexpr std::string_view kMarker = ".tmp-";
  constexpr std::size_t kUnique = 6;  // mkstemp's XXXXXX
  std::size_t removed = 0;
  std::error_code error;
  for (fs::directory_iterator it(directory, error), end; !error && it != end; it.increment(error)) {
    const std::string name = it->path().filename().string();
    if (name.size() < 1 + kMarker.size() + kUnique + 1 || name.front() != '.') continue;
    const std::size_t marker = name.size() - kUnique - kMarker.size();
    if (std::string_view(name).substr(marker, kMarker.size()) != kMarker) continue;
    const bool unique = std::all_of(name.end() - kUnique, name.end(), [](unsigned char c) {
      return std::isalnum(c) != 0;
    });
    const std::string_view target = std::string_view(name).substr(1, marker - 1);
    std::error_code ignored;
    if (!unique || !isOwnTarget(target) || !it->is_regular_file(ignored) ||
        it->is_symlink(ignored)) {
      continue;
    }
    if (fs::remove(it->path(), ignored)) ++removed;
  }
  return removed;
}

}  // namespace zev
