// LogTailLoader::load on arbitrary file contents and budgets, compared with a
// direct transcription of the loading rules: decode everything, then split.
// Input: two bytes of byte budget, one byte of line budget, then the file.
#include <unistd.h>

#include <unicode/unistr.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "core/logs/log_tail_loader.h"

namespace {

void check(bool condition) {
  if (!condition) __builtin_trap();
}

std::vector<std::string> expectedLines(std::string_view file, int64_t maxBytes, int64_t maxLines,
                                       bool& truncated) {
  const size_t readCount = std::min<size_t>(file.size(), static_cast<size_t>(maxBytes));
  const size_t offset = file.size() - readCount;
  std::string_view block = file.substr(offset);
  if (offset > 0) {
    const size_t lf = block.find('\n');
    if (lf != std::string_view::npos) block.remove_prefix(lf + 1);
  }
  std::string text;
  icu::UnicodeString::fromUTF8(icu::StringPiece(block.data(), static_cast<int32_t>(block.size())))
      .toUTF8String(text);
  std::vector<std::string> lines;
  std::string current;
  for (size_t i = 0; i < text.size(); ++i) {
    // A line feed ends a line unless a carriage return makes it CR LF.
    if (text[i] == '\n' && !(i > 0 && text[i - 1] == '\r')) {
      if (!current.empty()) lines.push_back(current);
      current.clear();
    } else {
      current += text[i];
    }
  }
  if (!current.empty()) lines.push_back(current);
  truncated = offset > 0 || lines.size() > static_cast<size_t>(maxLines);
  if (lines.size() > static_cast<size_t>(maxLines)) {
    lines.erase(lines.begin(), lines.end() - maxLines);
  }
  return lines;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 3) return 0;
  const int64_t maxBytes = 1 + (data[0] | (data[1] << 8)) % 4096;
  const int64_t maxLines = 1 + data[2] % 64;
  const std::string_view contents(reinterpret_cast<const char*>(data + 3), size - 3);

  static const std::filesystem::path path =
      std::filesystem::temp_directory_path() / ("zev-tail-fuzz-" + std::to_string(::getpid()));
  std::ofstream(path, std::ios::binary | std::ios::trunc) << contents;

  const zev::LogTailResult result = zev::LogTailLoader::load(path, maxBytes, maxLines);
  bool truncated = false;
  const std::vector<std::string> expected = expectedLines(contents, maxBytes, maxLines, truncated);
  check(result.fileSize == contents.size());
  check(result.bytesRead == std::min<int64_t>(static_cast<int64_t>(contents.size()), maxBytes));
  check(result.wasTruncated == truncated);
  check(result.lines.size() == expected.size());
  for (size_t i = 0; i < expected.size(); ++i) {
    check(result.lines[i].raw() == expected[i]);
    check(result.lines[i] == zev::LogLine::parse(expected[i]));
  }
  // A load from an arena (kept across inputs, so its blocks are reused and
  // hold the previous input's bytes) gives the same result.
  static zev::LogLoadArena arena;
  check(zev::LogTailLoader::load(path, maxBytes, maxLines, arena) == result);
  return 0;
}
