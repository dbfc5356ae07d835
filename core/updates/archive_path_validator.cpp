#include "core/updates/archive_path_validator.h"

namespace zev {

const char* ArchivePathError::what() const noexcept {
  switch (m_code) {
    case outsideRoot:
      return "archive path is outside the archive root";
    case notDirectChild:
      return "archive path is not an immediate child of the archive root";
  }
  return "archive path refused";
}

std::string ArchivePathValidator::standardized(const std::filesystem::path& path) {
  std::string text = path.lexically_normal().string();
  // lexically_normal keeps a trailing separator ("/r/a/"); paths compare without one.
  while (text.size() > 1 && text.back() == '/') text.pop_back();
  return text;
}

void ArchivePathValidator::validate(const std::filesystem::path& archive,
                                    const std::filesystem::path& root) {
  const std::string rootPath = standardized(root);
  const std::string archivePath = standardized(archive);
  const std::string prefix = rootPath + "/";
  if (!archivePath.starts_with(prefix)) throw ArchivePathError(ArchivePathError::outsideRoot);
  const std::string parent = archivePath.substr(0, archivePath.rfind('/'));
  if (parent != rootPath) throw ArchivePathError(ArchivePathError::notDirectChild);
}

}  // namespace zev
