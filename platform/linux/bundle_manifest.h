// The signed manifest of a bundle's files, which proves that a copy of the
// bundle (the archive made before an update) is complete and unaltered.
//
// The build writes it after assembling the bundle (tools/zev-sign manifest):
//   ZEV.app/Contents/_CodeManifest/files      one line per entry, sorted
//   ZEV.app/Contents/_CodeManifest/files.sig  base64 Ed25519 signature of it
// The public key travels in Info.plist (ZEVManifestPublicKey, base64).
//
// File format, '\n'-terminated lines:
//   zev-bundle-manifest 1
//   d <mode> <path>              a directory
//   f <mode> <sha256> <path>     a regular file and the digest of its bytes
//   l <sha256> <path>            a symbolic link and the digest of its target
// <mode> is the permission bits in octal, <sha256> 64 lower-case hex digits,
// <path> relative to the bundle with "/" separators; it is the rest of the
// line, so it may hold blanks, never a line break. The manifest's own
// directory is not listed.
//
// Plain C++ and libsodium (no Qt), so tools/zev-sign shares it. Every
// function is safe on any thread once sodium is initialised (each does it).
#ifndef ZEV_PLATFORM_LINUX_BUNDLE_MANIFEST_H_
#define ZEV_PLATFORM_LINUX_BUNDLE_MANIFEST_H_

#include <array>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

namespace zev::manifest {

inline constexpr std::string_view manifestDirectory = "Contents/_CodeManifest";
inline constexpr std::string_view manifestFile = "Contents/_CodeManifest/files";
inline constexpr std::string_view signatureFile = "Contents/_CodeManifest/files.sig";
inline constexpr std::string_view publicKeyInfoKey = "ZEVManifestPublicKey";

// Limits for what is read back from a copy, which is not trusted.
inline constexpr std::uintmax_t maxManifestBytes = 16u << 20;
inline constexpr std::size_t maxEntries = 200'000;

class ManifestError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct SecretKey {
  std::array<uint8_t, 64> bytes{};  // libsodium's seed followed by the public key
};

struct KeyPair {
  std::array<uint8_t, 32> publicKey{};
  SecretKey secretKey;
};

KeyPair generateKeyPair();

std::string toBase64(std::span<const uint8_t> bytes);
// Standard alphabet with padding; surrounding white space is ignored.
std::optional<std::string> fromBase64(std::string_view text);

// A secret key file holds the base64 of the 32-byte seed (what keygen
// writes) or of the 64-byte secret key. Throws ManifestError.
SecretKey readSecretKeyFile(const std::filesystem::path& file);
void writeSecretKeyFile(const std::filesystem::path& file, const SecretKey& key);
std::array<uint8_t, 32> publicKeyOf(const SecretKey& key);

// The base64 Ed25519 signature of `message` (64 bytes before encoding).
std::string sign(std::string_view message, const SecretKey& key);
// True when `signatureBase64` is a valid signature of `message` by the key
// whose base64 is `publicKeyBase64`.
bool verify(std::string_view message, std::string_view signatureBase64,
            std::string_view publicKeyBase64);

// The manifest text of the bundle at `bundle`. Throws ManifestError (a path
// with a line break, an entry that is neither file, directory nor link) or
// std::filesystem::filesystem_error.
std::string buildManifest(const std::filesystem::path& bundle);

// Builds the manifest of `bundle` and writes it with its signature inside.
void writeSignedManifest(const std::filesystem::path& bundle, const SecretKey& key);

// Checks the bundle (or copy) at `bundle` against the manifest inside it,
// whose signature must verify with `publicKeyBase64`. Nothing when the
// bundle matches; otherwise one line, e.g. "altered file: Contents/Info.plist",
// "missing file: …", "extra file: …". Never throws.
std::optional<std::string> verifyBundle(const std::filesystem::path& bundle,
                                        std::string_view publicKeyBase64);

}  // namespace zev::manifest

#endif  // ZEV_PLATFORM_LINUX_BUNDLE_MANIFEST_H_
