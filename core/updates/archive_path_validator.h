// The guard every archive deletion passes first: an archive may only be
// touched when it is an immediate child of the archive root. Lexical only:
// nothing on disk is read, and symbolic links are not resolved.
#ifndef ZEV_CORE_ARCHIVE_PATH_VALIDATOR_H_
#define ZEV_CORE_ARCHIVE_PATH_VALIDATOR_H_

#include <exception>
#include <filesystem>
#include <string>

namespace zev {

// Why a path was refused. Compared by its code only.
class ArchivePathError : public std::exception {
 public:
  enum Code {
    outsideRoot,     // not below the root (or the root itself)
    notDirectChild,  // below the root, but deeper than one level
  };

  explicit ArchivePathError(Code code) : m_code(code) {}
  Code code() const { return m_code; }
  const char* what() const noexcept override;

  bool operator==(const ArchivePathError& other) const { return m_code == other.m_code; }

 private:
  Code m_code;
};

struct ArchivePathValidator {
  // Standardises both paths (removes "." and ".." components, redundant and
  // trailing separators), then requires the archive's path to begin with the
  // root's path followed by "/", and the archive's parent to be exactly the
  // root. Throws ArchivePathError otherwise. Note that a root of "/" refuses
  // every archive: the required prefix becomes "//".
  static void validate(const std::filesystem::path& archive, const std::filesystem::path& root);

  // The standardised text of `path` as validate compares it.
  static std::string standardized(const std::filesystem::path& path);
};

}  // namespace zev

#endif  // ZEV_CORE_ARCHIVE_PATH_VALIDATOR_H_
