// The log viewer's three filter choices — free-text search, severity, camera —
// and the camera list for its picker.
//
// Pure functions of their inputs; safe on any thread.
#ifndef ZEV_CORE_LOG_FILTER_H_
#define ZEV_CORE_LOG_FILTER_H_

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "core/logs/log_line.h"
#include "core/logs/log_severity.h"

namespace zev {

struct LogFilter {
  std::string search;    // as typed; surrounding whitespace is ignored when applied
  LogSeverity severity;  // `all`: no restriction
  std::string camera;    // empty: all cameras; otherwise an exact name

  // The lines that pass all three tests, in input order, as pointers into
  // `lines` (valid while `lines` is): filtering runs on every keystroke and
  // must not copy lines.
  //  1. severity: `all`, or exactly the line's severity (an equality, not a
  //     threshold; lines without one are hidden by any other choice);
  //  2. camera: empty, or exactly the line's camera (case-sensitive);
  //  3. search, trimmed of Unicode whitespace once per call: empty, or found
  //     in the raw line case-insensitively under the user's locale, with
  //     diacritics significant (see LocalizedSearch).
  // A line that fails a test is not tested further.
  std::vector<const LogLine*> apply(std::span<const LogLine> lines) const;
  // The same under an explicit ICU locale ID ("tr_TR"); empty: the user's.
  std::vector<const LogLine*> apply(std::span<const LogLine> lines,
                                    std::string_view localeID) const;
  // The result points into `lines`; a temporary would leave it dangling.
  std::vector<const LogLine*> apply(std::vector<LogLine>&& lines) const = delete;
  std::vector<const LogLine*> apply(std::vector<LogLine>&& lines,
                                    std::string_view localeID) const = delete;

  // The distinct, non-empty camera names of `lines`, in plain code-point
  // order (upper case before lower case). "All cameras" is the view's own
  // choice, not an entry here.
  static std::vector<std::string> availableCameras(std::span<const LogLine> lines);

  bool operator==(const LogFilter&) const = default;
};

}  // namespace zev

#endif  // ZEV_CORE_LOG_FILTER_H_
