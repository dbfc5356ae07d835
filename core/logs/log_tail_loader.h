// Reads the newest part of a log file: at most a byte budget from the end,
// cut into lines, at most a line budget of the newest kept, each parsed with
// LogLine::parse.
//
// Stateless; safe to call from any thread. Memory and time are bounded by the
// byte budget whatever the file's size: one block is read from the end, the
// file is never read whole.
#ifndef ZEV_CORE_LOG_TAIL_LOADER_H_
#define ZEV_CORE_LOG_TAIL_LOADER_H_

#include <cstdint>
#include <filesystem>
#include <functional>
#include <vector>

#include "core/logs/log_line.h"
#include "core/logs/log_load_arena.h"

namespace zev {

struct LogTailResult {
  std::vector<LogLine> lines;  // oldest first, at most the line budget
  // The number of bytes asked of the file: min(fileSize, maxBytes). Not the
  // count actually returned, nor reduced by a dropped partial first line.
  int64_t bytesRead = 0;
  uint64_t fileSize = 0;  // as the file system reported it before the read
  // The file held more than is shown: the byte budget cut it, or it held
  // more lines than the line budget.
  bool wasTruncated = false;

  bool operator==(const LogTailResult&) const = default;
};

class LogTailLoader {
 public:
  LogTailLoader() = delete;

  // Loads the tail of the file at `path`.
  //  - When the read starts inside the file, the text up to and including its
  //    first line feed is dropped (the first line is likely partial); a block
  //    without any line feed is kept whole.
  //  - Invalid or cut UTF-8 becomes U+FFFD; content never makes a load fail.
  //  - Lines end at line feeds; CR LF is one character and does not end a
  //    line. Empty lines are left out.
  // Throws std::filesystem::filesystem_error, carrying the system's error
  // code, when the file's attributes cannot be read or it cannot be opened or
  // read; the file is always closed. Both budgets must be at least 1: anything
  // less is a programming error that aborts the process.
  //
  // A file that shrinks between the size query and the read yields fewer
  // bytes; one that grows yields at most the queried amount, so new text shows
  // on the next load.
  static LogTailResult load(const std::filesystem::path& path, int64_t maxBytes,
                            int64_t maxLines);
  // The same, with the read buffer, the working arrays and the lines' text
  // blocks taken from `arena`, which loads in a row keep warm (see
  // log_load_arena.h). The result is equal to the one load() gives.
  static LogTailResult load(const std::filesystem::path& path, int64_t maxBytes,
                            int64_t maxLines, LogLoadArena& arena);
};

namespace detail {

// LogTailLoader::load with a hook that runs between the size query and the
// read, so tests can change the file in exactly that window.
LogTailResult loadLogTailForTesting(const std::filesystem::path& path, int64_t maxBytes,
                                    int64_t maxLines, const std::function<void()>& afterSizeQuery);

}  // namespace detail

}  // namespace zev

#endif  // ZEV_CORE_LOG_TAIL_LOADER_H_
