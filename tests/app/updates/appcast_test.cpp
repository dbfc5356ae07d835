#include "app/updates/appcast.h"

#include <gtest/gtest.h>

#include <string>

namespace zev {

namespace {

const char* const kFeed = R"(<?xml version="1.0" encoding="utf-8"?>
<rss version="2.0" xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle">
 <channel>
  <title>ZEV</title>
  <item>
   <title>Version 1.10</title>
   <sparkle:version>1.10.0</sparkle:version>
   <sparkle:shortVersionString>1.10</sparkle:shortVersionString>
   <sparkle:minimumSystemVersion>13.0</sparkle:minimumSystemVersion>
   <description><![CDATA[<h2>Fixes</h2><ul><li>Faster  &amp; safer</li><li><script>alert(1)</script>Recording</li></ul><p>a<br/>b<BR>c &lt;b&gt; &copy;</p> <a href="x">link</a> 1 < 2 dropped]]></description>
   <enclosure url="ZEV-1.10.0.tar.xz" length="4096" type="application/x-xz"
              sparkle:edSignature="c2lnbmF0dXJl"/>
  </item>
  <item>
   <title>Version 1.9</title>
   <sparkle:releaseNotesLink>https://example.invalid/1.9.html</sparkle:releaseNotesLink>
   <enclosure url="https://example.invalid/ZEV-1.9.0.zip" sparkle:version="1.9.0" length="12x"/>
  </item>
  <item><title>No enclosure, nothing to install</title><sparkle:version>9.0</sparkle:version></item>
 </channel>
</rss>)";

TEST(ParseAppcast, ReadsItemsAndPicksTheNewestBySparkleOrder) {
  const auto parsed = parseAppcast(kFeed);
  ASSERT_TRUE(std::holds_alternative<Appcast>(parsed)) << std::get<AppcastError>(parsed).description;
  const Appcast& appcast = std::get<Appcast>(parsed);
  ASSERT_EQ(appcast.items.size(), 2u);

  AppcastItem first;
  first.title = "Version 1.10";
  first.versionString = "1.10.0";
  first.displayVersionString = "1.10";
  first.url = "ZEV-1.10.0.tar.xz";
  first.length = 4096;
  first.type = "application/x-xz";
  first.edSignature = "c2lnbmF0dXJl";
  // Breaks and spaces from the markup; decoded text is never re-read as
  // markup; an unmatched '<' ends the text rather than guessing.
  first.releaseNotes = "Fixes\nFaster & safer\nalert(1) Recording\na\nb\nc <b> &copy;\nlink 1";
  EXPECT_EQ(appcast.items[0], first);

  const AppcastItem& second = appcast.items[1];
  EXPECT_EQ(second.versionString, "1.9.0");  // from the enclosure's attribute
  EXPECT_EQ(second.displayVersionString, "1.9.0");
  EXPECT_EQ(second.length, std::nullopt);  // "12x" is no length
  EXPECT_EQ(second.edSignature, "");
  EXPECT_EQ(second.releaseNotesLink, "https://example.invalid/1.9.html");

  ASSERT_NE(newestItem(appcast), nullptr);
  EXPECT_EQ(newestItem(appcast)->versionString, "1.10.0");  // 1.10 > 1.9 though "1.9" > "1.10"
  EXPECT_EQ(newestItem(Appcast{}), nullptr);
}

TEST(ParseAppcast, RefusesWhatIsNotASafeFeed) {
  const std::string laughs =
      "<?xml version=\"1.0\"?><!DOCTYPE rss [<!ENTITY a \"aaaaaaaaaa\">"
      "<!ENTITY b \"&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;\">]><rss><channel><item><title>&b;</title>"
      "</item></channel></rss>";
  struct Case {
    const char* name;
    std::string feed;
    const char* error;  // beginning of the description
  };
  const Case cases[] = {
      {"plain text", "503 Service Unavailable", "feed is not XML"},
      {"empty", "", "feed is not XML"},
      {"truncated", std::string(kFeed).substr(0, 400), "feed is not XML"},
      {"an HTML page", "<html><body>hello</body></html>", "feed is not an RSS appcast"},
      {"entity expansion", laughs, "feed refused: it has a document type declaration"},
      {"undeclared entity", "<rss><channel><title>&nope;</title></channel></rss>", "feed is not XML"},
      {"oversized", "<rss>" + std::string(maxAppcastBytes, ' ') + "</rss>",
       "feed is larger than 1 MiB"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const auto parsed = parseAppcast(c.feed);
    ASSERT_TRUE(std::holds_alternative<AppcastError>(parsed));
    const std::string& description = std::get<AppcastError>(parsed).description;
    EXPECT_EQ(description.rfind(c.error, 0), 0u) << description;
  }
}

// Texts are cut on a character boundary; the number of items is capped.
TEST(ParseAppcast, CapsTextsAndItems) {
  const std::string title(maxAppcastTextBytes - 1, 'x');
  const auto feed = [](const std::string& items) {
    return "<rss xmlns:sparkle=\"http://www.andymatuschak.org/xml-namespaces/sparkle\"><channel>" +
           items + "</channel></rss>";
  };
  const std::string item = "<item><enclosure url=\"u\" sparkle:version=\"1\"/></item>";
  const auto parsed = parseAppcast(feed("<item><title>" + title + "\xC3\xA9\xC3\xA9</title>" +
                                        item.substr(6)));
  ASSERT_TRUE(std::holds_alternative<Appcast>(parsed));
  EXPECT_EQ(std::get<Appcast>(parsed).items.at(0).title, title);  // the cut é is dropped whole
  std::string items;
  for (std::size_t i = 0; i < maxAppcastItems; ++i) items += item;
  EXPECT_EQ(std::get<Appcast>(parseAppcast(feed(items))).items.size(), maxAppcastItems);
  EXPECT_EQ(std::get<AppcastError>(parseAppcast(feed(items + item))).description,
            "feed has more than 1000 items");
}

}  // namespace
}  // namespace zev
