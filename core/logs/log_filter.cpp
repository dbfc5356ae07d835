#include "core/logs/log_filter.h"

#include <algorithm>
#include <optional>
#include <unordered_set>

#include "core/logs/localized_search.h"
#include "core/logs/unicode_text.h"

namespace zev {

std::vector<const LogLine*> LogFilter::apply(std::span<const LogLine> lines) const {
  return apply(lines, {});
}

std::vector<const LogLine*> LogFilter::apply(std::span<const LogLine> lines,
                                             std::string_view localeID) const {
  const std::string_view term = detail::trimUnicodeWhitespace(search);
  std::optional<LocalizedSearch> finder;
  if (!term.empty()) finder.emplace(term, localeID);
  const bool anySeverity = severity == LogSeverity::all;
  const bool anyCamera = camera.empty();

  std::vector<const LogLine*> kept;
  if (!finder) {
    for (const LogLine& line : lines) {
      if (!anySeverity && line.severity() != severity) continue;
      if (!anyCamera && line.camera() != std::string_view(camera)) continue;
      kept.push_back(&line);
    }
    return kept;
  }
  // The search runs over a chunk of lines at a time, which pays its setup
  // once per chunk rather than per line and keeps the chunk's scratch in the
  // first-level cache.
  constexpr size_t kChunk = 256;
  const LogLine* chunk[kChunk];
  std::string_view texts[kChunk];
  bool found[kChunk];
  for (size_t first = 0; first < lines.size();) {
    size_t size = 0;
    for (; first < lines.size() && size < kChunk; ++first) {
      const LogLine& line = lines[first];
      if (!anySeverity && line.severity() != severity) continue;
      if (!anyCamera && line.camera() != std::string_view(camera)) continue;
      chunk[size] = &line;
      texts[size] = line.raw();
      ++size;
    }
    finder->findEach(std::span(texts, size), found);
    for (size_t i = 0; i < size; ++i) {
      if (found[i]) kept.push_back(chunk[i]);
    }
  }
  return kept;
}

std::vector<std::string> LogFilter::availableCameras(std::span<const LogLine> lines) {
  // A log names a handful of cameras thousands of times: collect the
  // distinct names first, then sort those few.
  std::unordered_set<std::string_view> distinct;
  std::string_view previous;
  for (const LogLine& line : lines) {
    const auto name = line.camera();
    if (!name || name->empty() || *name == previous) continue;
    distinct.insert(*name);
    previous = *name;
  }
  std::vector<std::string_view> names(distinct.begin(), distinct.end());
  // Byte order of UTF-8 is code-point order.
  std::sort(names.begin(), names.end());
  return {names.begin(), names.end()};
}

}  // namespace zev
