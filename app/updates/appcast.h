// Sparkle's RSS appcast, the update feed shared by the macOS and Linux
// builds: one <item> per release, its archive in <enclosure>.
//
//   <rss xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle">
//    <channel><item>
//     <title>…</title>
//     <sparkle:version>2.1.0</sparkle:version>                (or an enclosure attribute)
//     <sparkle:shortVersionString>2.1</sparkle:shortVersionString>   (optional)
//     <sparkle:releaseNotesLink>https://…</sparkle:releaseNotesLink> (optional)
//     <description>…</description>                           (optional release notes)
//     <enclosure url="…" length="…" type="…" sparkle:edSignature="…"/>
//    </item></channel>
//   </rss>
//
// The feed comes from the network and is not trusted: documents with a
// document type declaration (and so any entity of their own) are refused,
// sizes are capped, and every text is kept as plain text (markup in release
// notes is dropped, never rendered). sparkle:minimumSystemVersion and the
// other keys are ignored. Any thread; no state.
#ifndef ZEV_APP_UPDATES_APPCAST_H_
#define ZEV_APP_UPDATES_APPCAST_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace zev {

struct AppcastItem {
  std::string title;
  std::string versionString;         // sparkle:version
  std::string displayVersionString;  // sparkle:shortVersionString, else versionString
  std::string url;                   // enclosure url, as written (may be relative)
  std::optional<std::uint64_t> length;  // enclosure length in bytes, when given and valid
  std::string type;                  // enclosure type
  std::string edSignature;           // base64 Ed25519 signature of the archive, or empty
  std::string releaseNotesLink;      // sparkle:releaseNotesLink, or empty
  std::string releaseNotes;          // description reduced to plain text, or empty

  bool operator==(const AppcastItem&) const = default;
};

struct Appcast {
  std::vector<AppcastItem> items;  // items with a version and an enclosure url, in feed order
};

struct AppcastError {
  std::string description;  // one line, e.g. "feed is not XML: …"
};

inline constexpr std::size_t maxAppcastBytes = 1u << 20;
inline constexpr std::size_t maxAppcastItems = 1000;
inline constexpr std::size_t maxAppcastTextBytes = 16u << 10;  // per text; longer is cut

std::variant<Appcast, AppcastError> parseAppcast(std::string_view feed);

// The item with the highest version by Sparkle's ordering (the first of equal
// ones), or nothing for an empty feed.
const AppcastItem* newestItem(const Appcast& appcast);

// Release notes written as HTML reduced to readable plain text: tags dropped,
// <br>, <p>, <li> and the ends of blocks as line breaks, blank runs collapsed.
// &amp;, &lt;, &gt;, &quot;, &#39;, &apos; and &nbsp; are decoded, other
// entities left as written; nothing else is interpreted.
std::string plainTextFromMarkup(std::string_view markup);

}  // namespace zev

#endif  // ZEV_APP_UPDATES_APPCAST_H_
