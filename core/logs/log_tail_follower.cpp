#include "core/logs/log_tail_follower.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
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

struct stat statOrThrow(const std::filesystem::path& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) throwFileError("cannot get file attributes", path, errno);
  return status;
}

// Reads [from, from + count) of the file; fewer bytes when it shrank meanwhile.
std::string readRange(const std::filesystem::path& path, uint64_t from, uint64_t count) {
  // Non-blocking, so that a FIFO at the path cannot hang the read.
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) throwFileError("cannot open file", path, errno);
  std::string bytes(count, '\0');
  size_t got = 0;
  while (got < count) {
    const ssize_t r = ::pread(fd, bytes.data() + got, count - got, static_cast<off_t>(from + got));
    if (r < 0) {
      if (errno == EINTR) continue;
      const int error = errno;
      ::close(fd);
      throwFileError("cannot read file", path, error);
    }
    if (r == 0) break;
    got += static_cast<size_t>(r);
  }
  ::close(fd);
  bytes.resize(got);
  return bytes;
}

// A line feed ends a line unless a carriage return comes right before it
// (CR LF is one character, as in a full load).
bool endsLine(std::string_view bytes, size_t lf) { return lf == 0 || bytes[lf - 1] != '\r'; }

// Reads the file's first bytes into the cursor's head.
void readHead(const std::filesystem::path& path, LogFollowCursor& cursor) {
  const std::string head = readRange(path, 0, cursor.head.size());
  std::memcpy(cursor.head.data(), head.data(), head.size());
  cursor.headSize = static_cast<uint8_t>(head.size());
}

}  // namespace

namespace LogTailFollower {

std::pair<LogTailResult, LogFollowCursor> loadAndStart(const std::filesystem::path& path,
                                                       int64_t maxBytes, int64_t maxLines,
                                                       LogLoadArena* arena) {
  const struct stat status = statOrThrow(path);
  LogTailResult result = arena != nullptr ? LogTailLoader::load(path, maxBytes, maxLines, *arena)
                                          : LogTailLoader::load(path, maxBytes, maxLines);
  LogFollowCursor cursor;
  cursor.device = static_cast<uint64_t>(status.st_dev);
  cursor.inode = static_cast<uint64_t>(status.st_ino);
  cursor.offset = result.fileSize;
  readHead(path, cursor);
  return {std::move(result), cursor};
}

LogFollowResult readAppended(const std::filesystem::path& path, const LogFollowCursor& cursor,
                             int64_t maxBytes, int64_t maxLines) {
  const struct stat status = statOrThrow(path);
  const uint64_t size = status.st_size > 0 ? static_cast<uint64_t>(status.st_size) : 0;
  LogFollowResult result;
  result.cursor.device = static_cast<uint64_t>(status.st_dev);
  result.cursor.inode = static_cast<uint64_t>(status.st_ino);
  result.cursor.offset = cursor.offset;
  readHead(path, result.cursor);
  const bool sameHead =
      result.cursor.headSize >= cursor.headSize &&
      std::memcmp(result.cursor.head.data(), cursor.head.data(), cursor.headSize) == 0;
  result.restarted = result.cursor.device != cursor.device ||
                     result.cursor.inode != cursor.inode || size < cursor.offset || !sameHead;
  if (result.restarted) result.cursor.offset = 0;
  const uint64_t start = result.cursor.offset;
  if (size == start) return result;

  const auto budget = static_cast<uint64_t>(maxBytes < 1 ? 1 : maxBytes);
  uint64_t from = start;
  if (size - start > budget) {
    from = size - budget;
    result.replaced = true;
  }
  const std::string bytes = readRange(path, from, size - from);
  std::string_view text(bytes);

  size_t begin = 0;
  if (result.replaced) {
    // The read starts inside a line: drop up to the first line feed.
    const size_t lf = text.find('\n');
    if (lf != std::string_view::npos) begin = lf + 1;
  }
  // Consume through the last line feed that ends a line; what follows is a
  // line still being written and is read again next time.
  size_t end = begin;
  for (size_t lf = text.rfind('\n'); lf != std::string_view::npos && lf >= begin;
       lf = lf == 0 ? std::string_view::npos : text.rfind('\n', lf - 1)) {
    if (endsLine(text, lf)) {
      end = lf + 1;
      break;
    }
  }
  if (end == begin && text.size() - begin >= budget) end = text.size();  // an endless line
  if (end == begin) {
    if (result.replaced) result.cursor.offset = from;  // nothing complete yet
    result.replaced = false;
    return result;
  }
  result.cursor.offset = from + end;

  // Split [begin, end) into non-empty lines.
  std::vector<std::string_view> pieces;
  size_t lineStart = begin;
  for (size_t i = begin; i < end; ++i) {
    if (text[i] != '\n' || !endsLine(text, i)) continue;
    if (i > lineStart) pieces.push_back(text.substr(lineStart, i - lineStart));
    lineStart = i + 1;
  }
  if (end > lineStart) pieces.push_back(text.substr(lineStart, end - lineStart));
  const auto lineBudget = static_cast<size_t>(maxLines < 1 ? 1 : maxLines);
  if (pieces.size() > lineBudget) {
    pieces.erase(pieces.begin(), pieces.end() - static_cast<std::ptrdiff_t>(lineBudget));
  }

  // Repair invalid UTF-8 as a full load does; the repaired texts must stay
  // put while they are parsed, so they are collected first.
  std::vector<std::string> repaired;
  if (!detail::isValidUTF8(text.substr(begin, end - begin))) {
    repaired.reserve(pieces.size());
    for (std::string_view& piece : pieces) {
      if (detail::isValidUTF8(piece)) continue;
      repaired.emplace_back();
      detail::appendReplacingInvalidUTF8(piece, repaired.back());
      piece = repaired.back();
    }
  }
  parseLogLines(pieces.data(), pieces.size(), result.lines);
  return result;
}

}  // namespace LogTailFollower

}  // namespace zev
