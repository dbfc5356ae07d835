// The Linux archive of the running bundle: a copy keeping modes and links,
// verified against the bundle's signed manifest. Every way a copy can differ
// from the signed bundle must be caught and named.
#include "platform/linux/archive_tool_linux.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QTemporaryDir>
#include <filesystem>
#include <fstream>

#include "platform/linux/bundle_manifest.h"

namespace zev {
namespace {

namespace fs = std::filesystem;
using ::testing::StartsWith;

class ArchiveToolLinuxTest : public ::testing::Test {
 protected:
  ArchiveToolLinuxTest() {
    fs::create_directories(bundle / "Contents/Linux");
    fs::create_directories(bundle / "Contents/Resources/empty dir");
    write(bundle / "Contents/Info.plist", "<plist/>");
    write(bundle / "Contents/Linux/ZEVLauncher", "launcher");
    fs::permissions(bundle / "Contents/Linux/ZEVLauncher", fs::perms(0755));
    write(bundle / "Contents/Resources/name with blanks.txt", "text");
    fs::create_symlink("Linux/ZEVLauncher", bundle / "Contents/launcher-link");
    manifest::writeSignedManifest(bundle, keys.secretKey);
  }

  static void write(const fs::path& file, const std::string& bytes) {
    std::ofstream(file, std::ios::binary | std::ios::trunc) << bytes;
  }

  std::string publicKey() const { return manifest::toBase64(keys.publicKey); }

  QTemporaryDir dir;
  fs::path root = dir.path().toStdString();
  fs::path bundle = root / "ZEV.app";
  manifest::KeyPair keys = manifest::generateKeyPair();
};

// A plain copy keeps modes, links and empty directories, so it verifies;
// every later change to it is named. A copy never goes over an existing one.
TEST_F(ArchiveToolLinuxTest, EveryDifferenceFromTheSignedBundleIsNamed) {
  const std::pair<void (*)(const fs::path&), std::optional<std::string>> cases[] = {
      {[](auto&) {}, std::nullopt},
      {[](auto& c) { write(c / "Contents/Info.plist", "<plist></plist>"); },
       "altered file: Contents/Info.plist"},
      {[](auto& c) { fs::permissions(c / "Contents/Linux/ZEVLauncher", fs::perms(0644)); },
       "altered file: Contents/Linux/ZEVLauncher"},
      {[](auto& c) {
         fs::remove(c / "Contents/launcher-link");
         fs::create_symlink("/bin/sh", c / "Contents/launcher-link");
       },
       "altered file: Contents/launcher-link"},
      {[](auto& c) { fs::remove(c / "Contents/Resources/name with blanks.txt"); },
       "missing file: Contents/Resources/name with blanks.txt"},
      {[](auto& c) { write(c / "Contents/Linux/evil.so", "x"); },
       "extra file: Contents/Linux/evil.so"},
      {[](auto& c) { write(c / "Contents/_CodeManifest/extra", "x"); },
       "extra file: Contents/_CodeManifest/extra"},
      {[](auto& c) { write(c / manifest::manifestFile, "zev-bundle-manifest 1\n"); },
       "manifest signature does not verify: Contents/_CodeManifest/files"},
  };
  LinuxArchiveTool tool(publicKey());
  int copies = 0;
  for (const auto& [tamper, expected] : cases) {
    SCOPED_TRACE(expected.value_or("untouched"));
    const fs::path copy = root / ("copy-" + std::to_string(++copies));
    ASSERT_EQ(tool.copyBundle(bundle, copy), std::nullopt);
    tamper(copy);
    EXPECT_EQ(tool.verifyCopy(copy), expected);
  }
  EXPECT_THAT(tool.copyBundle(bundle, root / "copy-1").value_or(""),
              StartsWith("archive exists already"));
}

TEST_F(ArchiveToolLinuxTest, WithoutTheRunningBundlesKeyNothingVerifies) {
  EXPECT_EQ(LinuxArchiveTool(std::nullopt).verifyCopy(bundle),
            "no ZEVManifestPublicKey in Info.plist");
  EXPECT_EQ(LinuxArchiveTool(manifest::toBase64(manifest::generateKeyPair().publicKey))
                .verifyCopy(bundle),
            "manifest signature does not verify: Contents/_CodeManifest/files");
}

TEST(BundleManifestTest, SecretKeyFileIsPrivateAndRoundTrips) {
  QTemporaryDir dir;
  const fs::path keyFile = fs::path(dir.path().toStdString()) / "key";
  const manifest::KeyPair keys = manifest::generateKeyPair();
  manifest::writeSecretKeyFile(keyFile, keys.secretKey);
  EXPECT_EQ(fs::status(keyFile).permissions() & fs::perms::all,
            fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_EQ(manifest::publicKeyOf(manifest::readSecretKeyFile(keyFile)), keys.publicKey);
}

}  // namespace
}  // namespace zev
