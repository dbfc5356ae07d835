#include "app/updates/appcast.h"

#include <QString>
#include <QXmlStreamReader>
#include <charconv>
#include <utility>

#include "core/updates/version_comparator.h"

namespace zev {
namespace {

const QString sparkleNamespace = QStringLiteral("http://www.andymatuschak.org/xml-namespaces/sparkle");

std::string capped(const QString& text) {
  std::string out = text.trimmed().toStdString();
  if (out.size() > maxAppcastTextBytes) {
    out.resize(maxAppcastTextBytes);
    // Do not leave half a UTF-8 character at the end.
    while (!out.empty() && (static_cast<unsigned char>(out.back()) & 0xC0) == 0x80) out.pop_back();
    if (!out.empty() && static_cast<unsigned char>(out.back()) >= 0xC0) out.pop_back();
  }
  return out;
}

std::optional<std::uint64_t> parseLength(QStringView text) {
  const std::string digits = text.trimmed().toString().toStdString();
  std::uint64_t value = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  if (digits.empty() || error != std::errc() || end != digits.data() + digits.size()) {
    return std::nullopt;
  }
  return value;
}

bool isSparkle(const QXmlStreamReader& xml, QStringView name) {
  return xml.namespaceUri() == sparkleNamespace && xml.name() == name;
}

bool isPlain(const QXmlStreamReader& xml, QStringView name) {
  return xml.namespaceUri().isEmpty() && xml.name() == name;
}

QString elementText(QXmlStreamReader& xml) {
  return xml.readElementText(QXmlStreamReader::IncludeChildElements);
}

// Reads one <item>; the reader stands on its start element.
AppcastItem readItem(QXmlStreamReader& xml) {
  AppcastItem item;
  std::string shortVersion;
  while (xml.readNextStartElement()) {
    if (isPlain(xml, u"enclosure")) {
      const QXmlStreamAttributes attributes = xml.attributes();
      item.url = capped(attributes.value(QStringLiteral("url")).toString());
      item.length = parseLength(attributes.value(QStringLiteral("length")));
      item.type = capped(attributes.value(QStringLiteral("type")).toString());
      item.edSignature = capped(attributes.value(sparkleNamespace, QStringLiteral("edSignature")).toString());
      const QStringView version = attributes.value(sparkleNamespace, QStringLiteral("version"));
      if (!version.isEmpty()) item.versionString = capped(version.toString());
      const QStringView display = attributes.value(sparkleNamespace, QStringLiteral("shortVersionString"));
      if (!display.isEmpty()) shortVersion = capped(display.toString());
      xml.skipCurrentElement();
    } else if (isSparkle(xml, u"version")) {
      item.versionString = capped(elementText(xml));
    } else if (isSparkle(xml, u"shortVersionString")) {
      shortVersion = capped(elementText(xml));
    } else if (isSparkle(xml, u"releaseNotesLink")) {
      item.releaseNotesLink = capped(elementText(xml));
    } else if (isPlain(xml, u"title")) {
      item.title = capped(elementText(xml));
    } else if (isPlain(xml, u"description")) {
      item.releaseNotes = plainTextFromMarkup(capped(elementText(xml)));
    } else {
      xml.skipCurrentElement();
    }
  }
  item.displayVersionString = shortVersion.empty() ? item.versionString : shortVersion;
  return item;
}

}  // namespace

std::variant<Appcast, AppcastError> parseAppcast(std::string_view feed) {
  if (feed.size() > maxAppcastBytes) return AppcastError{"feed is larger than 1 MiB"};
  QXmlStreamReader xml(QByteArray::fromRawData(feed.data(), static_cast<qsizetype>(feed.size())));
  Appcast appcast;
  bool sawRss = false;
  while (!xml.atEnd()) {
    const QXmlStreamReader::TokenType token = xml.readNext();
    if (token == QXmlStreamReader::DTD) {
      return AppcastError{"feed refused: it has a document type declaration"};
    }
    if (token == QXmlStreamReader::EntityReference) {
      return AppcastError{"feed refused: it uses an undeclared entity"};
    }
    if (token != QXmlStreamReader::StartElement) continue;
    if (!sawRss) {
      if (xml.name() != u"rss") return AppcastError{"feed is not an RSS appcast"};
      sawRss = true;
      continue;
    }
    if (isPlain(xml, u"item")) {
      AppcastItem item = readItem(xml);
      if (xml.hasError()) break;
      if (item.versionString.empty() || item.url.empty()) continue;  // nothing to install
      if (appcast.items.size() == maxAppcastItems) {
        return AppcastError{"feed has more than 1000 items"};
      }
      appcast.items.push_back(std::move(item));
    }
  }
  if (xml.hasError()) {
    return AppcastError{"feed is not XML: " + xml.errorString().toStdString() + " at line " +
                        std::to_string(xml.lineNumber())};
  }
  if (!sawRss) return AppcastError{"feed is not XML: it is empty"};
  return appcast;
}

const AppcastItem* newestItem(const Appcast& appcast) {
  const AppcastItem* newest = nullptr;
  for (const AppcastItem& item : appcast.items) {
    if (!newest || compareVersions(item.versionString, newest->versionString) > 0) newest = &item;
  }
  return newest;
}

std::string plainTextFromMarkup(std::string_view markup) {
  std::string text;
  text.reserve(markup.size());
  bool pendingSpace = false;
  bool pendingBreak = false;
  std::size_t i = 0;
  while (i < markup.size()) {
    const char c = markup[i];
    if (c == '<') {
      const std::size_t close = markup.find('>', i);
      if (close == std::string_view::npos) break;  // an unfinished tag: drop the rest
      std::string tag;
      for (std::size_t j = i + 1; j < close && tag.size() < 4; ++j) {
        const char t = markup[j];
        if (t == ' ' || (t == '/' && !tag.empty())) break;
        tag += static_cast<char>(t >= 'A' && t <= 'Z' ? t - 'A' + 'a' : t);
      }
      static constexpr std::string_view breaks[] = {"br", "p", "/p", "li", "/li", "/h1", "/h2",
                                                    "/h3", "/div", "/ul", "/ol"};
      bool isBreak = false;
      for (std::string_view b : breaks) isBreak = isBreak || tag == b;
      (isBreak ? pendingBreak : pendingSpace) = true;
      i = close + 1;
      continue;
    }
    std::string_view piece = markup.substr(i, 1);
    ++i;
    if (c == '&') {
      // The few HTML entities release notes use; anything else stays as written.
      static constexpr std::pair<std::string_view, std::string_view> entities[] = {
          {"amp;", "&"}, {"lt;", "<"}, {"gt;", ">"}, {"quot;", "\""}, {"#39;", "'"},
          {"apos;", "'"}, {"nbsp;", " "}};
      for (const auto& [name, replacement] : entities) {
        if (markup.substr(i, name.size()) == name) {
          piece = replacement;
          i += name.size();
          break;
        }
      }
    }
    if (c == ' ' || c == '\t' || c == '\n' || c == '\r') {
      pendingSpace = true;
      continue;
    }
    if (!text.empty()) {
      if (pendingBreak && text.back() != '\n') {
        text += '\n';
      } else if (pendingSpace && text.back() != '\n') {
        text += ' ';
      }
    }
    pendingSpace = pendingBreak = false;
    text += piece;
  }
  return text;
}

}  // namespace zev
