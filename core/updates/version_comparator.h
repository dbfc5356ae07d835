// Orders the version strings of update feeds the way Sparkle does, so a feed
// shared with the macOS build picks the same newest item on both systems.
//
// A version is cut into parts: runs of ASCII digits (numbers), single
// separators ('.', whitespace, ASCII punctuation such as '-' or '_') and runs
// of anything else (text). Parts are compared pairwise: numbers by value,
// text byte-wise, a number beats text, a number beats a separator. When one
// version runs out of parts first, the longer one is newer unless its next
// part is text ("1.0" is newer than "1.0b1", "1.0.1" newer than "1.0").
//
// Works on any bytes; numbers of any length are compared without overflow.
#ifndef ZEV_CORE_UPDATES_VERSION_COMPARATOR_H_
#define ZEV_CORE_UPDATES_VERSION_COMPARATOR_H_

#include <compare>
#include <string_view>

namespace zev {

std::strong_ordering compareVersions(std::string_view a, std::string_view b);

}  // namespace zev

#endif  // ZEV_CORE_UPDATES_VERSION_COMPARATOR_H_
