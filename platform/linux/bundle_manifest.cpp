#include "platform/linux/bundle_manifest.h"

#include <sodium.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <vector>

namespace zev::manifest {
namespace fs = std::filesystem;
namespace {

constexpr std::string_view header = "zev-bundle-manifest 1";

void initializeSodium() {
  if (sodium_init() < 0) throw ManifestError("libsodium cannot be initialised");
}

std::string hex(std::span<const uint8_t> bytes) {
  std::string out(bytes.size() * 2 + 1, '\0');
  sodium_bin2hex(out.data(), out.size(), bytes.data(), bytes.size());
  out.pop_back();
  return out;
}

std::string sha256Hex(std::string_view bytes) {
  std::array<uint8_t, crypto_hash_sha256_BYTES> digest{};
  crypto_hash_sha256(digest.data(), reinterpret_cast<const unsigned char*>(bytes.data()),
                     bytes.size());
  return hex(digest);
}

std::string sha256OfFile(const fs::path& file) {
  std::unique_ptr<FILE, int (*)(FILE*)> in(std::fopen(file.c_str(), "rb"), &std::fclose);
  if (!in) throw ManifestError("cannot read " + file.string());
  crypto_hash_sha256_state state;
  crypto_hash_sha256_init(&state);
  std::vector<unsigned char> buffer(1 << 16);
  while (const std::size_t n = std::fread(buffer.data(), 1, buffer.size(), in.get())) {
    crypto_hash_sha256_update(&state, buffer.data(), n);
  }
  if (std::ferror(in.get())) throw ManifestError("cannot read " + file.string());
  std::array<uint8_t, crypto_hash_sha256_BYTES> digest{};
  crypto_hash_sha256_final(&state, digest.data());
  return hex(digest);
}

std::string octalMode(fs::perms perms) {
  char text[8];
  std::snprintf(text, sizeof text, "%o", static_cast<unsigned>(perms) & 07777u);
  return text;
}

// Reads at most `limit` bytes; a longer file is an error.
std::string readCapped(const fs::path& file, std::uintmax_t limit) {
  std::error_code error;
  const std::uintmax_t size = fs::file_size(file, error);
  if (error) throw ManifestError("cannot read " + file.string());
  if (size > limit) throw ManifestError(file.string() + " is too large");
  std::ifstream in(file, std::ios::binary);
  std::string bytes(size, '\0');
  if (!in.read(bytes.data(), static_cast<std::streamsize>(size))) {
    throw ManifestError("cannot read " + file.string());
  }
  return bytes;
}

// One line per entry of the bundle (but the manifest's own directory), keyed
// by its relative path so the lines come out sorted. Each line is the
// manifest line without its path.
std::map<std::string, std::string> describeTree(const fs::path& bundle) {
  std::map<std::string, std::string> entries;
  fs::recursive_directory_iterator it(bundle), end;
  for (; it != end; ++it) {
    const fs::path& path = it->path();
    const std::string relative = path.lexically_relative(bundle).generic_string();
    if (relative == manifestDirectory) {
      it.disable_recursion_pending();
      continue;
    }
    if (entries.size() >= maxEntries) throw ManifestError("too many files in " + bundle.string());
    const fs::file_status status = it->symlink_status();
    std::string line;
    if (fs::is_symlink(status)) {
      line = "l " + sha256Hex(fs::read_symlink(path).native());
    } else if (fs::is_directory(status)) {
      line = "d " + octalMode(status.permissions());
    } else if (fs::is_regular_file(status)) {
      line = "f " + octalMode(status.permissions()) + " " + sha256OfFile(path);
    } else {
      line = "?";  // sockets, devices, pipes: never part of a bundle
    }
    entries.emplace(relative, std::move(line));
  }
  return entries;
}

// Splits a manifest line into its description and its path. `fields` is the
// number of blank-separated fields before the path.
std::optional<std::pair<std::string, std::string>> splitLine(std::string_view line) {
  if (line.size() < 3 || line[1] != ' ') return std::nullopt;
  const int fields = line[0] == 'f' ? 3 : (line[0] == 'd' || line[0] == 'l') ? 2 : 0;
  if (fields == 0) return std::nullopt;
  std::size_t at = 0;
  for (int i = 0; i < fields; ++i) {
    at = line.find(' ', at);
    if (at == std::string_view::npos) return std::nullopt;
    ++at;
  }
  if (at >= line.size()) return std::nullopt;
  return std::pair{std::string(line.substr(0, at - 1)), std::string(line.substr(at))};
}

}  // namespace

KeyPair generateKeyPair() {
  initializeSodium();
  KeyPair pair;
  crypto_sign_keypair(pair.publicKey.data(), pair.secretKey.bytes.data());
  return pair;
}

std::string toBase64(std::span<const uint8_t> bytes) {
  const std::size_t length =
      sodium_base64_ENCODED_LEN(bytes.size(), sodium_base64_VARIANT_ORIGINAL);
  std::string out(length, '\0');
  sodium_bin2base64(out.data(), out.size(), bytes.data(), bytes.size(),
                    sodium_base64_VARIANT_ORIGINAL);
  out.resize(length - 1);
  return out;
}

std::optional<std::string> fromBase64(std::string_view text) {
  initializeSodium();
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back())))
    text.remove_suffix(1);
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front())))
    text.remove_prefix(1);
  std::string out(text.size() / 4 * 3 + 3, '\0');
  std::size_t length = 0;
  const char* endOfParse = nullptr;
  if (sodium_base642bin(reinterpret_cast<unsigned char*>(out.data()), out.size(), text.data(),
                        text.size(), nullptr, &length, &endOfParse,
                        sodium_base64_VARIANT_ORIGINAL) != 0 ||
      endOfParse != text.data() + text.size()) {
    return std::nullopt;
  }
  out.resize(length);
  return out;
}

SecretKey readSecretKeyFile(const fs::path& file) {
  initializeSodium();
  const std::optional<std::string> bytes = fromBase64(readCapped(file, 4096));
  SecretKey key;
  if (bytes && bytes->size() == crypto_sign_SEEDBYTES) {
    std::array<uint8_t, 32> publicKey{};
    crypto_sign_seed_keypair(publicKey.data(), key.bytes.data(),
                             reinterpret_cast<const unsigned char*>(bytes->data()));
  } else if (bytes && bytes->size() == crypto_sign_SECRETKEYBYTES) {
    std::copy(bytes->begin(), bytes->end(), key.bytes.begin());
  } else {
    throw ManifestError(file.string() + " holds no Ed25519 secret key");
  }
  return key;
}

void writeSecretKeyFile(const fs::path& file, const SecretKey& key) {
  // Only the seed; it is created readable by its owner alone.
  const std::string text = toBase64(std::span(key.bytes.data(), crypto_sign_SEEDBYTES)) + "\n";
  const mode_t previous = ::umask(077);
  std::ofstream out(file, std::ios::binary | std::ios::trunc);
  ::umask(previous);
  out << text;
  if (!out.flush()) throw ManifestError("cannot write " + file.string());
}

std::array<uint8_t, 32> publicKeyOf(const SecretKey& key) {
  std::array<uint8_t, 32> publicKey{};
  crypto_sign_ed25519_sk_to_pk(publicKey.data(), key.bytes.data());
  return publicKey;
}

std::string sign(std::string_view message, const SecretKey& key) {
  initializeSodium();
  std::array<uint8_t, crypto_sign_BYTES> signature{};
  crypto_sign_detached(signature.data(), nullptr,
                       reinterpret_cast<const unsigned char*>(message.data()), message.size(),
                       key.bytes.data());
  return toBase64(signature);
}

bool verify(std::string_view message, std::string_view signatureBase64,
            std::string_view publicKeyBase64) {
  const std::optional<std::string> signature = fromBase64(signatureBase64);
  const std::optional<std::string> publicKey = fromBase64(publicKeyBase64);
  if (!signature || signature->size() != crypto_sign_BYTES || !publicKey ||
      publicKey->size() != crypto_sign_PUBLICKEYBYTES) {
    return false;
  }
  return crypto_sign_verify_detached(
             reinterpret_cast<const unsigned char*>(signature->data()),
             reinterpret_cast<const unsigned char*>(message.data()), message.size(),
             reinterpret_cast<const unsigned char*>(publicKey->data())) == 0;
}

std::string buildManifest(const fs::path& bundle) {
  initializeSodium();
  std::string text(header);
  text += '\n';
  for (const auto& [path, description] : describeTree(bundle)) {
    if (path.find_first_of("\r\n") != std::string::npos) {
      throw ManifestError("a file name holds a line break: " + path);
    }
    if (description == "?") throw ManifestError("not a file, directory or link: " + path);
    text += description + " " + path + "\n";
  }
  return text;
}

void writeSignedManifest(const fs::path& bundle, const SecretKey& key) {
  const std::string text = buildManifest(bundle);
  fs::create_directories(bundle / manifestDirectory);
  const auto write = [](const fs::path& file, const std::string& bytes) {
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out << bytes;
    if (!out.flush()) throw ManifestError("cannot write " + file.string());
  };
  write(bundle / manifestFile, text);
  write(bundle / signatureFile, sign(text, key) + "\n");
}

std::optional<std::string> verifyBundle(const fs::path& bundle, std::string_view publicKeyBase64) {
  try {
    initializeSodium();
    std::error_code error;
    for (const std::string_view file : {manifestFile, signatureFile}) {
      // The manifest is not listed in itself: it must be a plain file, and
      // nothing else may hide beside it.
      if (!fs::is_regular_file(fs::symlink_status(bundle / file, error))) {
        return "missing file: " + std::string(file);
      }
    }
    if (!fs::is_directory(fs::symlink_status(bundle / manifestDirectory, error))) {
      return "altered file: " + std::string(manifestDirectory);
    }
    for (const fs::directory_entry& entry : fs::directory_iterator(bundle / manifestDirectory)) {
      const std::string name = entry.path().filename().string();
      if (name != fs::path(manifestFile).filename() && name != fs::path(signatureFile).filename()) {
        return "extra file: " + std::string(manifestDirectory) + "/" + name;
      }
    }
    const std::string text = readCapped(bundle / manifestFile, maxManifestBytes);
    const std::string signature = readCapped(bundle / signatureFile, 1024);
    if (!verify(text, signature, publicKeyBase64)) {
      return "manifest signature does not verify: " + std::string(manifestFile);
    }

    std::map<std::string, std::string> expected;
    std::istringstream lines(text);
    std::string line;
    std::getline(lines, line);
    if (line != header) return "manifest is malformed: " + std::string(manifestFile);
    while (std::getline(lines, line)) {
      auto parts = splitLine(line);
      if (!parts || !expected.emplace(parts->second, parts->first).second) {
        return "manifest is malformed: " + std::string(manifestFile);
      }
    }

    const std::map<std::string, std::string> actual = describeTree(bundle);
    // Both maps are sorted: walk them together and report the first
    // difference in path order.
    auto want = expected.begin();
    auto have = actual.begin();
    while (want != expected.end() || have != actual.end()) {
      if (have == actual.end() || (want != expected.end() && want->first < have->first)) {
        return "missing file: " + want->first;
      }
      if (want == expected.end() || have->first < want->first) {
        return "extra file: " + have->first;
      }
      if (want->second != have->second) return "altered file: " + want->first;
      ++want;
      ++have;
    }
    return std::nullopt;
  } catch (const std::exception& error) {
    return std::string("cannot verify ") + bundle.string() + ": " + error.what();
  }
}

}  // namespace zev::manifest
