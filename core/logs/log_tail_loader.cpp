#include "core/logs/log_tail_loader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>

#include "core/logs/unicode_text.h"

namespace zev {

namespace {

[[noreturn]] void throwFileError(const char* what, const std::filesystem::path& path, int error) {
  throw std::filesystem::filesystem_error(what, path, std::error_code(error, std::generic_category()));
}

class FileDescriptor {
 public:
  explicit FileDescriptor(int fd) : m_fd(fd) {}
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  // An error from close is ignored: the descriptor was only read, and close
  // must not be retried on EINTR.
  ~FileDescriptor() { ::close(m_fd); }
  int get() const { return m_fd; }

 private:
  int m_fd;
};

// A piece of text to parse: either inside the read buffer or, when its UTF-8
// had to be repaired, inside the repaired-text arena.
struct Piece {
  size_t offset;
  size_t size;
  bool repaired;
};

// An array of trivial values, from the arena when there is one.
template <typename T>
class Scratch {
 public:
  Scratch(LogLoadArena* arena, size_t capacity) : m_capacity(capacity == 0 ? 1 : capacity) {
    if (arena != nullptr) {
      m_pooled = arena->block(m_capacity * sizeof(T));
      m_data = reinterpret_cast<T*>(m_pooled.get());
    } else {
      m_owned = std::make_unique_for_overwrite<T[]>(m_capacity);
      m_data = m_owned.get();
    }
  }
  T* data() { return m_data; }
  T& operator[](size_t i) { return m_data[i]; }

 private:
  size_t m_capacity;
  std::shared_ptr<char[]> m_pooled;
  std::unique_ptr<T[]> m_owned;
  T* m_data = nullptr;
};

LogTailResult loadTail(const std::filesystem::path& path, int64_t maxBytes, int64_t maxLines,
                       const std::function<void()>* afterSizeQuery, LogLoadArena* arena) {
  if (maxBytes < 1 || maxLines < 1) {
    std::fprintf(stderr, "LogTailLoader::load: budgets must be at least 1 (maxBytes %lld, maxLines %lld)\n",
                 static_cast<long long>(maxBytes), static_cast<long long>(maxLines));
    std::abort();
  }

  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) throwFileError("cannot get file attributes", path, errno);
  const uint64_t fileSize = status.st_size > 0 ? static_cast<uint64_t>(status.st_size) : 0;
  const uint64_t readCount = std::min(fileSize, static_cast<uint64_t>(maxBytes));
  const uint64_t offset = fileSize - readCount;
  if (afterSizeQuery != nullptr && *afterSizeQuery) (*afterSizeQuery)();

  // Non-blocking, so that a FIFO at the path cannot hang the load.
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) throwFileError("cannot open file", path, errno);
  const FileDescriptor file(fd);

  Scratch<char> buffer(arena, readCount);
  size_t got = 0;
  while (got < readCount) {
    const ssize_t r = ::pread(file.get(), buffer.data() + got, readCount - got,
                              static_cast<off_t>(offset + got));
    if (r < 0) {
      if (errno == EINTR) continue;
      throwFileError("cannot read file", path, errno);
    }
    if (r == 0) break;  // the file shrank
    got += static_cast<size_t>(r);
  }
  const char* const bytes = buffer.data();

  size_t begin = 0;
  if (offset > 0) {
    if (const void* lf = std::memchr(bytes, '\n', got)) {
      begin = static_cast<size_t>(static_cast<const char*>(lf) - bytes) + 1;
    }
  }

  // Walk back from the end, one line feed at a time, collecting the newest
  // non-empty lines. A line feed right after a carriage return belongs to a
  // CR LF character and ends nothing. Splitting the raw bytes is the same as
  // splitting the decoded text: neither byte can be part of a multi-byte or
  // invalid sequence.
  const auto budget = static_cast<uint64_t>(maxLines);
  // Every kept line holds a byte and a line feed, but the last.
  Scratch<Piece> newestFirst(arena, static_cast<size_t>(std::min<uint64_t>(budget, got / 2 + 1)));
  size_t pieceCount = 0;
  bool moreLinesThanBudget = false;
  size_t pieceEnd = got;
  size_t cursor = got;
  for (;;) {
    const void* found = cursor > begin ? ::memrchr(bytes + begin, '\n', cursor - begin) : nullptr;
    const size_t lf = found ? static_cast<size_t>(static_cast<const char*>(found) - bytes) : 0;
    if (found && lf > begin && bytes[lf - 1] == '\r') {
      cursor = lf;
      continue;
    }
    const size_t pieceBegin = found ? lf + 1 : begin;
    if (pieceEnd > pieceBegin) {
      if (pieceCount == budget) {
        moreLinesThanBudget = true;
        break;
      }
      newestFirst[pieceCount++] = {pieceBegin, pieceEnd - pieceBegin, false};
    }
    if (!found) break;
    pieceEnd = lf;
    cursor = lf;
  }

  // Repair invalid UTF-8 where there is any. Usually the whole kept text is
  // valid, which one pass over it shows.
  std::string repaired;
  const size_t keptFrom = pieceCount == 0 ? got : newestFirst[pieceCount - 1].offset;
  if (!detail::isValidUTF8(std::string_view(bytes + keptFrom, got - keptFrom))) {
    for (size_t i = 0; i < pieceCount; ++i) {
      Piece& piece = newestFirst[i];
      const std::string_view text(bytes + piece.offset, piece.size);
      if (detail::isValidUTF8(text)) continue;
      const size_t at = repaired.size();
      detail::appendReplacingInvalidUTF8(text, repaired);
      piece = {at, repaired.size() - at, true};
    }
  }

  const size_t count = pieceCount;
  Scratch<std::string_view> texts(arena, count);
  for (size_t i = 0; i < count; ++i) {
    const Piece& piece = newestFirst[count - 1 - i];
    texts[i] = std::string_view((piece.repaired ? repaired.data() : bytes) + piece.offset, piece.size);
  }
  LogTailResult result;
  parseLogLines(texts.data(), count, result.lines, arena);
  result.bytesRead = static_cast<int64_t>(readCount);
  result.fileSize = fileSize;
  result.wasTruncated = offset > 0 || moreLinesThanBudget;
  return result;
}

}  // namespace

LogTailResult LogTailLoader::load(const std::filesystem::path& path, int64_t maxBytes,
                                  int64_t maxLines) {
  return loadTail(path, maxBytes, maxLines, nullptr, nullptr);
}

LogTailResult LogTailLoader::load(const std::filesystem::path& path, int64_t maxBytes,
                                  int64_t maxLines, LogLoadArena& arena) {
  return loadTail(path, maxBytes, maxLines, nullptr, &arena);
}

namespace detail {

LogTailResult loadLogTailForTesting(const std::filesystem::path& path, int64_t maxBytes,
                                    int64_t maxLines, const std::function<void()>& afterSizeQuery) {
  return loadTail(path, maxBytes, maxLines, &afterSizeQuery, nullptr);
}

}  // namespace detail

}  // namespace zev
