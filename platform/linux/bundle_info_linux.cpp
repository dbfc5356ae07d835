#include "platform/linux/bundle_info_linux.h"

#include <QFile>
#include <QString>
#include <QXmlStreamReader>

namespace zev {
namespace {

std::optional<InfoDictionary> parseTopDictionary(QXmlStreamReader& xml) {
  if (!xml.readNextStartElement() || xml.name() != u"plist") return std::nullopt;
  if (!xml.readNextStartElement() || xml.name() != u"dict") return std::nullopt;

  InfoDictionary info;
  while (xml.readNextStartElement()) {
    if (xml.name() != u"key") return std::nullopt;
    const std::string key = xml.readElementText().toStdString();
    if (xml.hasError() || !xml.readNextStartElement()) return std::nullopt;
    if (xml.name() == u"string") {
      info[key] = xml.readElementText().toStdString();
    } else {
      info[key] = std::nullopt;  // integer, true, array, …: not a string
      xml.skipCurrentElement();
    }
    if (xml.hasError()) return std::nullopt;
  }
  if (xml.hasError()) return std::nullopt;
  return info;
}

}  // namespace

std::optional<InfoDictionary> readInfoPlist(const std::filesystem::path& file) {
  QFile plist(QString::fromStdString(file.string()));
  if (!plist.open(QIODevice::ReadOnly)) return std::nullopt;
  QXmlStreamReader xml(&plist);
  std::optional<InfoDictionary> info = parseTopDictionary(xml);
  // The rest of the document must still be well-formed.
  while (info && !xml.atEnd()) xml.readNext();
  if (xml.hasError()) return std::nullopt;
  return info;
}

std::filesystem::path bundlePathForExecutable(const std::filesystem::path& executable) {
  const std::filesystem::path executableDir = executable.parent_path();
  const std::filesystem::path contents = executableDir.parent_path();
  const std::filesystem::path bundle = contents.parent_path();
  if (contents.filename() == "Contents" && bundle.extension() == ".app") return bundle;
  return executableDir;
}

LinuxBundleInfo::LinuxBundleInfo(const std::filesystem::path& executable,
                                 std::filesystem::path home)
    : m_bundle(bundlePathForExecutable(executable)), m_home(std::move(home)) {}

std::optional<std::string> LinuxBundleInfo::stringValue(const std::string& key) {
  if (!m_loaded) {
    m_info = readInfoPlist(m_bundle / "Contents" / "Info.plist");
    m_loaded = true;
  }
  if (!m_info) return std::nullopt;
  const auto entry = m_info->find(key);
  if (entry == m_info->end()) return std::nullopt;
  return entry->second;
}

}  // namespace zev
