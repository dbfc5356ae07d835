// Unpacks a downloaded update archive (tar, tar.gz, tar.xz or zip holding one
// ZEV.app) into a staging directory, refusing anything that could reach
// outside it. The archive is untrusted even after its signature checked out:
// every entry is confined, and the first bad one stops the whole unpacking.
//
// Refused: absolute paths, "..", entries outside a top-level "ZEV.app/",
// paths through a symbolic link, duplicate entries, hard links, devices,
// FIFOs and sockets, symbolic links that are absolute or climb above ZEV.app,
// and archives larger than the limits once unpacked. Files keep their
// permission bits without setuid, setgid, sticky or group/other write.
//
// Plain C++ and libarchive; no Qt. Blocking; call it off the main thread.
// Safe on any thread. Never throws.
#ifndef ZEV_PLATFORM_LINUX_UPDATE_ARCHIVE_LINUX_H_
#define ZEV_PLATFORM_LINUX_UPDATE_ARCHIVE_LINUX_H_

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace zev {

struct UnpackLimits {
  std::uint64_t maxTotalBytes = std::uint64_t{2} << 30;  // file bytes once unpacked
  std::size_t maxEntries = 100'000;
};

// The name of the one directory an update archive holds.
inline constexpr std::string_view updateBundleName = "ZEV.app";

// Unpacks `archive` into `staging`, an existing empty directory. Nothing on
// success (staging then holds ZEV.app with Contents/Info.plist); otherwise one
// line naming the refused entry, e.g. "entry escapes the staging directory:
// ../evil". On failure whatever was written stays in `staging` for the caller
// to remove; nothing is ever written outside it.
std::optional<std::string> unpackUpdateArchive(const std::filesystem::path& archive,
                                               const std::filesystem::path& staging,
                                               const UnpackLimits& limits = {});

// The same for an archive held in memory (tests and fuzzing).
std::optional<std::string> unpackUpdateArchiveBytes(std::span<const std::uint8_t> archive,
                                                    const std::filesystem::path& staging,
                                                    const UnpackLimits& limits = {});

}  // namespace zev

#endif  // ZEV_PLATFORM_LINUX_UPDATE_ARCHIVE_LINUX_H_
