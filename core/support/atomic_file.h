// Durable, atomic replacement of a small file: after a successful write the
// file holds the new bytes and survives a power loss; after a failed write, or
// a crash at any moment, it holds the previous bytes (or is still absent).
//
// The write goes to a unique temporary file in the target's directory, named
// ".<target name>.tmp-XXXXXX" so that it never carries the target's extension,
// is flushed to stable storage, closed with its result checked, renamed over
// the target, and the directory itself is then synced. The file is created
// readable and writable by its owner only and keeps that mode once renamed:
// update records are the user's own business.
//
// Reentrant; two writers of one target are not coordinated beyond the atomic
// rename (the last rename wins).
#ifndef ZEV_CORE_ATOMIC_FILE_H_
#define ZEV_CORE_ATOMIC_FILE_H_

#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <string_view>

namespace zev {

// The system calls the atomic writer makes, as a table that tests replace to
// inject failures at each step. system() is the real thing.
struct FileSystemCalls {
  std::function<int(char* nameTemplate)> mkstemp;  // creates and opens a unique file
  std::function<ssize_t(int fd, const void* bytes, size_t count)> write;
  std::function<int(int fd)> fsync;  // flush a file or directory to stable storage
  std::function<int(int fd)> close;
  std::function<int(const char* from, const char* to)> rename;
  std::function<int(const char* path)> unlink;
  std::function<int(const char* path)> openDirectory;  // read-only, for syncing it

  static const FileSystemCalls& system();
};

// Replaces `target` with `bytes` as described above. Throws
// std::filesystem::filesystem_error carrying the failing call's errno and the
// path it was about. Interrupted calls are retried; short writes continue.
void writeFileAtomically(const std::filesystem::path& target, std::string_view bytes,
                         const FileSystemCalls& calls = FileSystemCalls::system());

// Flushes the entries of `directory` (names created, renamed or removed in
// it) to stable storage. Throws std::filesystem::filesystem_error.
void syncDirectory(const std::filesystem::path& directory,
                   const FileSystemCalls& calls = FileSystemCalls::system());

// Removes the temporary files that a writer killed mid-write left in
// `directory`: regular files named as above (".<target>.tmp-" and six letters
// or digits) whose target name `isOwnTarget` accepts. Anything else, records
// included, is left alone; failures are ignored (a temporary that cannot go
// now goes next time). Returns how many were removed.
std::size_t removeStrayTemporaries(const std::filesystem::path& directory,
                                   const std::function<bool(std::string_view target)>& isOwnTarget);

}  // namespace zev

#endif  // ZEV_CORE_ATOMIC_FILE_H_
