// parseAppcast and the release-notes reduction on arbitrary bytes: no crash,
// and whatever is accepted stays within the parser's caps.
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <variant>

#include "app/updates/appcast.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view feed(reinterpret_cast<const char*>(data), size);
  const auto parsed = zev::parseAppcast(feed);
  if (const auto* appcast = std::get_if<zev::Appcast>(&parsed)) {
    if (appcast->items.size() > zev::maxAppcastItems) __builtin_trap();
    for (const zev::AppcastItem& item : appcast->items) {
      if (item.versionString.empty() || item.url.empty()) __builtin_trap();
      if (item.title.size() > zev::maxAppcastTextBytes ||
          item.releaseNotes.size() > zev::maxAppcastTextBytes) {
        __builtin_trap();
      }
    }
    const zev::AppcastItem* newest = zev::newestItem(*appcast);
    if (!appcast->items.empty() && !newest) __builtin_trap();
  }
  // Markup reduction never grows the text.
  if (zev::plainTextFromMarkup(feed).size() > feed.size()) __builtin_trap();
  return 0;
}
