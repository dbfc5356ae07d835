#include "core/updates/version_comparator.h"

#include <cstddef>

namespace zev {
namespace {

enum class PartType { number, text, separator };

PartType typeOf(unsigned char c) {
  if (c >= '0' && c <= '9') return PartType::number;
  switch (c) {
    // '.', ASCII whitespace and the ASCII characters Unicode files as
    // punctuation (not symbols: '+', '$', '<', '=', '>', '^', '`', '|', '~'
    // are text).
    case '.': case ' ': case '\t': case '\n': case '\v': case '\f': case '\r':
    case '!': case '"': case '#': case '%': case '&': case '\'': case '(': case ')':
    case '*': case ',': case '-': case '/': case ':': case ';': case '?': case '@':
    case '[': case '\\': case ']': case '_': case '{': case '}':
      return PartType::separator;
    default:
      return PartType::text;
  }
}

struct Part {
  PartType type;
  std::string_view text;
};

// Yields the parts of a version one at a time, without allocating.
class PartReader {
 public:
  explicit PartReader(std::string_view version) : m_rest(version) {}

  bool next(Part& part) {
    if (m_rest.empty()) return false;
    const PartType type = typeOf(static_cast<unsigned char>(m_rest.front()));
    std::size_t length = 1;
    if (type != PartType::separator) {
      while (length < m_rest.size() &&
             typeOf(static_cast<unsigned char>(m_rest[length])) == type) {
        ++length;
      }
    }
    part = {type, m_rest.substr(0, length)};
    m_rest.remove_prefix(length);
    return true;
  }

 private:
  std::string_view m_rest;
};

std::strong_ordering compareNumbers(std::string_view a, std::string_view b) {
  const auto stripZeros = [](std::string_view digits) {
    const std::size_t first = digits.find_first_not_of('0');
    return first == std::string_view::npos ? std::string_view() : digits.substr(first);
  };
  a = stripZeros(a);
  b = stripZeros(b);
  if (a.size() != b.size()) return a.size() <=> b.size();
  return a.compare(b) <=> 0;
}

std::strong_ordering flip(std::strong_ordering order) { return 0 <=> order; }

}  // namespace

std::strong_ordering compareVersions(std::string_view a, std::string_view b) {
  PartReader readerA(a);
  PartReader readerB(b);
  Part partA{};
  Part partB{};
  for (;;) {
    const bool hasA = readerA.next(partA);
    const bool hasB = readerB.next(partB);
    if (!hasA && !hasB) return std::strong_ordering::equal;
    if (hasA != hasB) {
      // Equal so far: the longer one is newer unless it goes on with text
      // (a pre-release suffix such as "b1").
      const Part& extra = hasA ? partA : partB;
      const std::strong_ordering longer =
          hasA ? std::strong_ordering::greater : std::strong_ordering::less;
      return extra.type == PartType::text ? flip(longer) : longer;
    }
    if (partA.type == partB.type) {
      std::strong_ordering order = std::strong_ordering::equal;
      if (partA.type == PartType::number) order = compareNumbers(partA.text, partB.text);
      if (partA.type == PartType::text) order = partA.text.compare(partB.text) <=> 0;
      if (order != 0) return order;
      continue;
    }
    if (partA.type != PartType::text && partB.type == PartType::text) {
      return std::strong_ordering::greater;
    }
    if (partA.type == PartType::text && partB.type != PartType::text) {
      return std::strong_ordering::less;
    }
    // A number against a separator: the number wins.
    return partA.type == PartType::number ? std::strong_ordering::greater
                                          : std::strong_ordering::less;
  }
}

}  // namespace zev
