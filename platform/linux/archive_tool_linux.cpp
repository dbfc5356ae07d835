#include "platform/linux/archive_tool_linux.h"

#include <system_error>

#include "platform/linux/bundle_manifest.h"

namespace zev {
namespace fs = std::filesystem;

std::optional<std::string> LinuxArchiveTool::copyBundle(const fs::path& bundle,
                                                        const fs::path& archive) {
  std::error_code error;
  if (fs::exists(fs::symlink_status(archive, error))) {
    return "archive exists already: " + archive.string();
  }
  // Regular files keep their permission bits (copy_file), directories are
  // created with the source's attributes, links are copied as links.
  fs::copy(bundle, archive, fs::copy_options::recursive | fs::copy_options::copy_symlinks, error);
  if (error)
    return "cannot copy " + bundle.string() + " to " + archive.string() + ": " + error.message();
  return std::nullopt;
}

std::optional<std::string> LinuxArchiveTool::verifyCopy(const fs::path& archive) {
  if (!m_publicKey || m_publicKey->empty()) {
    return "no " + std::string(manifest::publicKeyInfoKey) + " in Info.plist";
  }
  return manifest::verifyBundle(archive, *m_publicKey);
}

}  // namespace zev
