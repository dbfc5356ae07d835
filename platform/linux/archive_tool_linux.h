// ArchiveTool on Linux: a recursive copy that keeps permission bits and
// copies symbolic links as links, verified against the signed manifest the
// build writes into the bundle (platform/linux/bundle_manifest.h). The public
// key is the running bundle's, given at construction, never the copy's own.
#ifndef ZEV_PLATFORM_LINUX_ARCHIVE_TOOL_LINUX_H_
#define ZEV_PLATFORM_LINUX_ARCHIVE_TOOL_LINUX_H_

#include <optional>
#include <string>

#include "app/ports/archive_tool.h"

namespace zev {

class LinuxArchiveTool : public ArchiveTool {
 public:
  // `publicKeyBase64`: Info.plist's ZEVManifestPublicKey; without one every
  // verification fails.
  explicit LinuxArchiveTool(std::optional<std::string> publicKeyBase64)
      : m_publicKey(std::move(publicKeyBase64)) {}

  std::optional<std::string> copyBundle(const std::filesystem::path& bundle,
                                        const std::filesystem::path& archive) override;
  std::optional<std::string> verifyCopy(const std::filesystem::path& archive) override;

 private:
  const std::optional<std::string> m_publicKey;
};

}  // namespace zev

#endif  // ZEV_PLATFORM_LINUX_ARCHIVE_TOOL_LINUX_H_
