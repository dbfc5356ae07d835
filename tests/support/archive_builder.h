// Builds tar.xz, tar and zip archives in memory for tests, entry by entry,
// including the malicious shapes an update archive must be refused for.
#ifndef ZEV_TESTS_SUPPORT_ARCHIVE_BUILDER_H_
#define ZEV_TESTS_SUPPORT_ARCHIVE_BUILDER_H_

#include <archive.h>
#include <archive_entry.h>
#include <sys/stat.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace zev::testing {

struct ArchiveEntrySpec {
  enum class Type { file, directory, symlink, device, hardlink };
  Type type = Type::file;
  std::string path;
  std::string data;  // file content, or the target of a link
  unsigned mode = 0644;
};

enum class ArchiveFormat { tarXz, tar, zip };

inline std::vector<std::uint8_t> buildArchive(const std::vector<ArchiveEntrySpec>& entries,
                                              ArchiveFormat format = ArchiveFormat::tarXz) {
  struct archive* a = archive_write_new();
  if (format == ArchiveFormat::zip) {
    archive_write_set_format_zip(a);
  } else {
    archive_write_set_format_pax_restricted(a);
    if (format == ArchiveFormat::tarXz) archive_write_add_filter_xz(a);
  }
  std::vector<std::uint8_t> out(std::size_t{1} << 20);
  size_t used = 0;
  if (archive_write_open_memory(a, out.data(), out.size(), &used) != ARCHIVE_OK) {
    throw std::runtime_error(archive_error_string(a));
  }
  for (const ArchiveEntrySpec& spec : entries) {
    struct archive_entry* e = archive_entry_new();
    archive_entry_set_pathname(e, spec.path.c_str());
    archive_entry_set_perm(e, spec.mode);
    using T = ArchiveEntrySpec::Type;
    // A hard link is a regular file entry naming the file it links to.
    constexpr unsigned fileTypes[] = {AE_IFREG, AE_IFDIR, AE_IFLNK, AE_IFCHR, AE_IFREG};
    archive_entry_set_filetype(e, fileTypes[static_cast<int>(spec.type)]);
    if (spec.type == T::file) archive_entry_set_size(e, la_int64_t(spec.data.size()));
    if (spec.type == T::symlink) archive_entry_set_symlink(e, spec.data.c_str());
    if (spec.type == T::hardlink) archive_entry_set_hardlink(e, spec.data.c_str());
    if (archive_write_header(a, e) != ARCHIVE_OK) throw std::runtime_error(archive_error_string(a));
    if (spec.type == T::file && !spec.data.empty()) {
      archive_write_data(a, spec.data.data(), spec.data.size());
    }
    archive_entry_free(e);
  }
  archive_write_close(a);
  archive_write_free(a);
  out.resize(used);
  return out;
}

// The smallest archive the updater accepts as a bundle.
inline std::vector<ArchiveEntrySpec> minimalBundleEntries() {
  using T = ArchiveEntrySpec::Type;
  return {
      {T::directory, "ZEV.app/", "", 0755},
      {T::file, "ZEV.app/Contents/Info.plist", "<plist/>", 0644},
      {T::file, "ZEV.app/Contents/Linux/ZEVLauncher", "#!/bin/sh\n", 0755},
  };
}

}  // namespace zev::testing

#endif  // ZEV_TESTS_SUPPORT_ARCHIVE_BUILDER_H_
