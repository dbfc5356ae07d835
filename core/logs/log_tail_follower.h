// Follows a log file as the daemon appends to it: each call reads only the
// bytes written since the previous one and parses only the complete lines
// among them.
//
// The position is a plain value (LogFollowCursor) handed from call to call,
// so a background task can read while the caller keeps the state. Rotation
// (the file renamed away and a new one created at the path) and truncation
// (the file shrinking below the position) both start over at the new file's
// first byte; the lines already shown stay shown. Platform-free; any thread.
#ifndef ZEV_CORE_LOG_TAIL_FOLLOWER_H_
#define ZEV_CORE_LOG_TAIL_FOLLOWER_H_

#include <array>
#include <cstdint>
#include <filesystem>
#include <vector>

#include "core/logs/log_line.h"
#include "core/logs/log_tail_loader.h"

namespace zev {

struct LogFollowCursor {
  uint64_t device = 0;
  uint64_t inode = 0;
  // The first byte not yet consumed: just past the last line feed that
  // ended a line, so a line still being written is read again whole.
  uint64_t offset = 0;
  // The file's first bytes when last read. A file deleted and created anew
  // can get the old inode back; its first line (a timestamp) tells it apart.
  std::array<char, 64> head{};
  uint8_t headSize = 0;

  bool operator==(const LogFollowCursor&) const = default;
};

struct LogFollowResult {
  std::vector<LogLine> lines;  // the new complete lines, oldest first
  LogFollowCursor cursor;      // where the next call starts
  // More was appended than the byte budget: the lines are the newest part
  // only, and the caller should drop what it shows instead of appending.
  bool replaced = false;
  bool restarted = false;  // the file was rotated or truncated

  bool operator==(const LogFollowResult&) const = default;
};

namespace LogTailFollower {

// A full tail load (LogTailLoader::load) and the cursor to follow on from
// it, with the load's memory from `arena` when one is given. A last line
// still being written when the load ran shows as loaded; its rest arrives
// as a line of its own.
std::pair<LogTailResult, LogFollowCursor> loadAndStart(const std::filesystem::path& path,
                                                       int64_t maxBytes, int64_t maxLines,
                                                       LogLoadArena* arena = nullptr);

// The complete lines appended since `cursor`. Reads at most `maxBytes`
// (more appended than that gives the newest part, `replaced`), keeps at most
// `maxLines` of the newest. A missing file throws
// std::filesystem::filesystem_error like the loader; the caller keeps its
// cursor and tries again later.
LogFollowResult readAppended(const std::filesystem::path& path, const LogFollowCursor& cursor,
                             int64_t maxBytes, int64_t maxLines);

}  // namespace LogTailFollower

}  // namespace zev

#endif  // ZEV_CORE_LOG_TAIL_FOLLOWER_H_
