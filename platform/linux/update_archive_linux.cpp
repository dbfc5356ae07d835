#include "platform/linux/update_archive_linux.h"

#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <vector>

namespace zev {
namespace {

constexpr std::size_t maxPathBytes = 4096;
constexpr std::size_t maxComponentBytes = 255;

// Permission bits kept from the archive: no setuid/setgid/sticky, nothing
// writable by group or others.
constexpr mode_t keptModeBits = 0755;

class Fd {
 public:
  explicit Fd(int fd = -1) : m_fd(fd) {}
  ~Fd() {
    if (m_fd >= 0) ::close(m_fd);
  }
  Fd(Fd&& other) noexcept : m_fd(other.m_fd) { other.m_fd = -1; }
  Fd& operator=(Fd&& other) noexcept {
    if (this != &other) {
      if (m_fd >= 0) ::close(m_fd);
      m_fd = other.m_fd;
      other.m_fd = -1;
    }
    return *this;
  }
  int get() const { return m_fd; }
  // Closes and reports whether the close succeeded (a late write error).
  bool close() {
    const int fd = m_fd;
    m_fd = -1;
    return ::close(fd) == 0;
  }

 private:
  int m_fd;
};

struct ArchiveDeleter {
  void operator()(struct archive* a) const { archive_read_free(a); }
};
using ArchivePtr = std::unique_ptr<struct archive, ArchiveDeleter>;

std::string errnoText(int error) { return std::strerror(error); }

// An entry's path split into components, or an error line. Leading "./" and
// "." components are dropped; a trailing "/" is allowed (directories).
std::optional<std::string> splitEntryPath(std::string_view path,
                                          std::vector<std::string>& components) {
  const std::string shown(path.substr(0, 200));
  if (path.empty()) return "entry without a name";
  if (path.size() > maxPathBytes) return "entry name too long: " + shown;
  if (path.front() == '/') return "entry with an absolute path: " + shown;
  std::size_t start = 0;
  while (start <= path.size()) {
    std::size_t end = path.find('/', start);
    if (end == std::string_view::npos) end = path.size();
    const std::string_view part = path.substr(start, end - start);
    if (part == "..") return "entry escapes the staging directory: " + shown;
    if (part.size() > maxComponentBytes) return "entry name too long: " + shown;
    if (!part.empty() && part != ".") components.emplace_back(part);
    start = end + 1;
  }
  if (components.empty()) return std::nullopt;  // "./": the archive's root
  if (components.front() != updateBundleName) {
    return "entry outside " + std::string(updateBundleName) + ": " + shown;
  }
  return std::nullopt;
}

// A link target is accepted when it is relative, climbs only at its start
// and no higher than ZEV.app, and has no ".." after a name. With every
// directory on the way created for real (never through a link), any chain of
// such links resolves inside ZEV.app.
bool linkStaysInside(std::string_view target, std::size_t linkDepth) {
  if (target.empty() || target.front() == '/' || target.size() > maxPathBytes) return false;
  std::size_t ups = 0;
  bool seenName = false;
  std::size_t start = 0;
  while (start <= target.size()) {
    std::size_t end = target.find('/', start);
    if (end == std::string_view::npos) end = target.size();
    const std::string_view part = target.substr(start, end - start);
    if (part == "..") {
      if (seenName) return false;
      ++ups;
    } else if (!part.empty() && part != ".") {
      seenName = true;
    }
    start = end + 1;
  }
  // linkDepth counts the directories from ZEV.app down to the link's own.
  return ups <= linkDepth;
}

// Opens (creating when missing) each directory of `components[0, count)`
// under `root`, never following a symbolic link.
std::optional<std::string> openParent(int root, const std::vector<std::string>& components,
                                      std::size_t count, Fd& parent) {
  Fd current(::dup(root));
  if (current.get() < 0) return "cannot open the staging directory: " + errnoText(errno);
  for (std::size_t i = 0; i < count; ++i) {
    const char* name = components[i].c_str();
    int fd = ::openat(current.get(), name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0 && errno == ENOENT) {
      if (::mkdirat(current.get(), name, 0755) != 0 && errno != EEXIST) {
        return "cannot create directory " + components[i] + ": " + errnoText(errno);
      }
      fd = ::openat(current.get(), name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    }
    if (fd < 0) {
      if (errno == ELOOP || errno == ENOTDIR) return "entry goes through a link or file";
      return "cannot open directory " + components[i] + ": " + errnoText(errno);
    }
    current = Fd(fd);
  }
  parent = std::move(current);
  return std::nullopt;
}

std::optional<std::string> writeFile(struct archive* a, int parent, const std::string& name,
                                     mode_t mode, std::uint64_t& totalBytes,
                                     const UnpackLimits& limits, const std::string& shown) {
  Fd out(::openat(parent, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                  0600));
  if (out.get() < 0) {
    if (errno == EEXIST) return "duplicate entry: " + shown;
    return "cannot create " + shown + ": " + errnoText(errno);
  }
  const void* block = nullptr;
  size_t size = 0;
  la_int64_t offset = 0;
  la_int64_t written = 0;
  for (;;) {
    const int status = archive_read_data_block(a, &block, &size, &offset);
    if (status == ARCHIVE_EOF) break;
    if (status < ARCHIVE_WARN) {
      return "cannot read " + shown + " from the archive: " + archive_error_string(a);
    }
    // Sparse entries give holes as offsets; they count towards the limit too.
    if (offset < written || offset < 0) return "malformed data for " + shown;
    const std::uint64_t end = static_cast<std::uint64_t>(offset) + size;
    if (end - static_cast<std::uint64_t>(written) > limits.maxTotalBytes - totalBytes) {
      return "archive too large once unpacked";
    }
    totalBytes += end - static_cast<std::uint64_t>(written);
    if (offset > written && ::lseek(out.get(), offset, SEEK_SET) < 0) {
      return "cannot write " + shown + ": " + errnoText(errno);
    }
    const char* bytes = static_cast<const char*>(block);
    std::size_t left = size;
    while (left > 0) {
      const ssize_t n = ::write(out.get(), bytes, left);
      if (n < 0) {
        if (errno == EINTR) continue;
        return "cannot write " + shown + ": " + errnoText(errno);
      }
      bytes += n;
      left -= static_cast<std::size_t>(n);
    }
    written = static_cast<la_int64_t>(end);
  }
  if (::ftruncate(out.get(), written) != 0 || ::fchmod(out.get(), mode & keptModeBits) != 0 ||
      !out.close()) {
    return "cannot write " + shown + ": " + errnoText(errno);
  }
  return std::nullopt;
}

std::optional<std::string> unpack(struct archive* a, const std::filesystem::path& staging,
                                  const UnpackLimits& limits) {
  Fd root(::open(staging.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (root.get() < 0) return "cannot open the staging directory: " + errnoText(errno);

  std::uint64_t totalBytes = 0;
  std::size_t entries = 0;
  bool sawBundle = false;
  for (;;) {
    struct archive_entry* entry = nullptr;
    const int status = archive_read_next_header(a, &entry);
    if (status == ARCHIVE_EOF) break;
    if (status < ARCHIVE_WARN) {
      const char* error = archive_error_string(a);
      return std::string("not a readable update archive: ") + (error ? error : "unknown error");
    }
    if (++entries > limits.maxEntries) return "archive has too many entries";

    const char* rawPath = archive_entry_pathname(entry);
    if (!rawPath) return "entry without a name";
    const std::string shown = std::string(rawPath).substr(0, 200);
    std::vector<std::string> components;
    if (auto error = splitEntryPath(rawPath, components)) return error;
    if (components.empty()) continue;  // the archive's own "./"
    sawBundle = true;

    if (archive_entry_hardlink(entry)) return "hard link refused: " + shown;
    const mode_t type = archive_entry_filetype(entry);
    const mode_t mode = archive_entry_perm(entry);
    if (type != AE_IFREG && type != AE_IFDIR && type != AE_IFLNK) {
      return "special file refused: " + shown;
    }

    if (type == AE_IFDIR) {
      Fd dir;
      if (auto error = openParent(root.get(), components, components.size(), dir)) {
        return *error + ": " + shown;
      }
      if (::fchmod(dir.get(), (mode & keptModeBits) | 0700) != 0) {
        return "cannot set the mode of " + shown + ": " + errnoText(errno);
      }
      continue;
    }
    if (components.size() < 2) return "ZEV.app is not a directory";

    Fd parent;
    if (auto error = openParent(root.get(), components, components.size() - 1, parent)) {
      return *error + ": " + shown;
    }
    const std::string& leaf = components.back();
    if (type == AE_IFLNK) {
      const char* target = archive_entry_symlink(entry);
      // The link's directory is components.size() - 2 levels below ZEV.app.
      if (!target || !linkStaysInside(target, components.size() - 2)) {
        return "link pointing outside the bundle refused: " + shown;
      }
      if (::symlinkat(target, parent.get(), leaf.c_str()) != 0) {
        if (errno == EEXIST) return "duplicate entry: " + shown;
        return "cannot create link " + shown + ": " + errnoText(errno);
      }
      continue;
    }
    if (auto error = writeFile(a, parent.get(), leaf, mode, totalBytes, limits, shown)) {
      return error;
    }
  }
  if (!sawBundle) return "archive holds no ZEV.app";
  struct stat info {};
  if (::fstatat(root.get(), "ZEV.app/Contents/Info.plist", &info, AT_SYMLINK_NOFOLLOW) != 0 ||
      !S_ISREG(info.st_mode)) {
    return "archive's ZEV.app has no Contents/Info.plist";
  }
  return std::nullopt;
}

ArchivePtr newReader() {
  ArchivePtr a(archive_read_new());
  if (!a) return a;
  archive_read_support_filter_none(a.get());
  archive_read_support_filter_gzip(a.get());
  archive_read_support_filter_xz(a.get());
  archive_read_support_format_tar(a.get());
  archive_read_support_format_zip(a.get());
  return a;
}

}  // namespace

std::optional<std::string> unpackUpdateArchive(const std::filesystem::path& archive,
                                               const std::filesystem::path& staging,
                                               const UnpackLimits& limits) {
  ArchivePtr a = newReader();
  if (!a) return "cannot start the archive reader";
  if (archive_read_open_filename(a.get(), archive.c_str(), 64 * 1024) != ARCHIVE_OK) {
    const char* error = archive_error_string(a.get());
    return std::string("cannot open the update archive: ") + (error ? error : "unknown error");
  }
  return unpack(a.get(), staging, limits);
}

std::optional<std::string> unpackUpdateArchiveBytes(std::span<const std::uint8_t> archive,
                                                    const std::filesystem::path& staging,
                                                    const UnpackLimits& limits) {
  ArchivePtr a = newReader();
  if (!a) return "cannot start the archive reader";
  if (archive_read_open_memory(a.get(), archive.data(), archive.size()) != ARCHIVE_OK) {
    const char* error = archive_error_string(a.get());
    return std::string("not a readable update archive: ") + (error ? error : "unknown error");
  }
  return unpack(a.get(), staging, limits);
}

}  // namespace zev
