#include "bundle_settings.h"

#include <fstream>
#include <iterator>

namespace zev::sim {

std::optional<std::string> plistString(std::string_view plist, std::string_view key) {
  const std::string keyElement = "<key>" + std::string(key) + "</key>";
  const std::size_t found = plist.find(keyElement);
  if (found == std::string_view::npos) return std::nullopt;
  std::size_t at = found + keyElement.size();
  while (at < plist.size() && (plist[at] == ' ' || plist[at] == '\t' || plist[at] == '\n' ||
                               plist[at] == '\r')) {
    ++at;
  }
  constexpr std::string_view open = "<string>";
  if (plist.substr(at, open.size()) != open) return std::nullopt;
  at += open.size();
  const std::size_t end = plist.find('<', at);
  if (end == std::string_view::npos || plist.substr(end, 9) != "</string>") return std::nullopt;
  const std::string_view raw = plist.substr(at, end - at);
  if (raw.empty() || raw.size() > 256) return std::nullopt;
  std::string value;
  for (std::size_t i = 0; i < raw.size(); ++i) {
    if (raw[i] != '&') {
      value += raw[i];
      continue;
    }
    const std::string_view rest = raw.substr(i);
    if (rest.substr(0, 5) == "&amp;") value += '&', i += 4;
    else if (rest.substr(0, 4) == "&lt;") value += '<', i += 3;
    else if (rest.substr(0, 4) == "&gt;") value += '>', i += 3;
    else return std::nullopt;
  }
  return value;
}

BundleSettings readBundleSettings(const std::filesystem::path& executable) {
  const std::filesystem::path helpers = executable.parent_path();
  const std::filesystem::path contents = helpers.parent_path();
  if (helpers.filename() != "Helpers" || contents.filename() != "Contents") return {};
  std::ifstream in(contents / "Info.plist", std::ios::binary);
  if (!in) return {};
  std::string plist(64 * 1024 + 1, '\0');
  in.read(plist.data(), static_cast<std::streamsize>(plist.size()));
  if (in.gcount() > 64 * 1024) return {};
  plist.resize(static_cast<std::size_t>(in.gcount()));
  return {plistString(plist, "CFBundleVersion"), plistString(plist, "ZEVSimScenario")};
}

}  // namespace zev::sim
