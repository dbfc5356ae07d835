// The Linux archive of the running bundle: a copy keeping modes and links,
// verified against the bundle's signed manifest. Every way a copy can differ
// from the signed bundle must be caught and named.
#include "platform/linux/archive_tool_linux.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QTemporaryDir>
#include <filesystem>
#include <fstream>
#include <functional>

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
    write(bundle / "Contents/Linux/ZEVLauncher",
          "\x7f"
          "ELF launcher");
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
  fs::path archive = root / "archives" / "ZEV.app.X";
  manifest::KeyPair keys = manifest::generateKeyPair();
};

TEST_F(ArchiveToolLinuxTest, CopyKeepsModesAndLinksAndVerifies) {
  LinuxArchiveTool tool(publicKey());
  fs::create_directories(archive.parent_path());
  ASSERT_EQ(tool.copyBundle(bundle, archive), std::nullopt);
  EXPECT_EQ(tool.verifyCopy(archive), std::nullopt);
  EXPECT_EQ(fs::status(archive / "Contents/Linux/ZEVLauncher").permissions() & fs::perms::all,
            fs::perms(0755));
  EXPECT_TRUE(fs::is_symlink(archive / "Contents/launcher-link"));
  EXPECT_EQ(fs::read_symlink(archive / "Contents/launcher-link"), "Linux/ZEVLauncher");
  EXPECT_TRUE(fs::is_directory(archive / "Contents/Resources/empty dir"));

  // Copying over an existing archive is refused rather than merged.
  EXPECT_THAT(tool.copyBundle(bundle, archive).value_or(""), StartsWith("archive exists already"));
}

TEST_F(ArchiveToolLinuxTest, EveryDifferenceFromTheSignedBundleIsNamed) {
  struct Case {
    const char* name;
    std::function<void(const fs::path& copy)> tamper;
    std::string expected;  // the description, or a prefix of it ending in ": "
  };
  const Case cases[] = {
      {"a file's bytes",
       [](const fs::path& c) { write(c / "Contents/Info.plist", "<plist></plist>"); },
       "altered file: Contents/Info.plist"},
      {"a file's mode",
       [](const fs::path& c) {
         fs::permissions(c / "Contents/Linux/ZEVLauncher", fs::perms(0644));
       },
       "altered file: Contents/Linux/ZEVLauncher"},
      {"a link's target",
       [](const fs::path& c) {
         fs::remove(c / "Contents/launcher-link");
         fs::create_symlink("/bin/sh", c / "Contents/launcher-link");
       },
       "altered file: Contents/launcher-link"},
      {"a link replaced by the file it pointed to",
       [](const fs::path& c) {
         fs::remove(c / "Contents/launcher-link");
         fs::copy_file(c / "Contents/Linux/ZEVLauncher", c / "Contents/launcher-link");
       },
       "altered file: Contents/launcher-link"},
      {"a missing file",
       [](const fs::path& c) { fs::remove(c / "Contents/Resources/name with blanks.txt"); },
       "missing file: Contents/Resources/name with blanks.txt"},
      {"a missing directory",
       [](const fs::path& c) { fs::remove(c / "Contents/Resources/empty dir"); },
       "missing file: Contents/Resources/empty dir"},
      {"an extra file", [](const fs::path& c) { write(c / "Contents/Linux/evil.so", "x"); },
       "extra file: Contents/Linux/evil.so"},
      {"an extra file in the manifest's directory",
       [](const fs::path& c) { write(c / "Contents/_CodeManifest/extra", "x"); },
       "extra file: Contents/_CodeManifest/extra"},
      {"a manifest line dropped",
       [](const fs::path& c) {
         const fs::path file = c / manifest::manifestFile;
         std::ifstream in(file);
         std::string text((std::istreambuf_iterator<char>(in)), {});
         text.erase(text.find("f 644"),
                    text.find('\n', text.find("f 644")) - text.find("f 644") + 1);
         write(file, text);
       },
       "manifest signature does not verify: Contents/_CodeManifest/files"},
      {"manifest signed by another key",
       [](const fs::path& c) {
         manifest::writeSignedManifest(c, manifest::generateKeyPair().secretKey);
       },
       "manifest signature does not verify: Contents/_CodeManifest/files"},
      {"no signature", [](const fs::path& c) { fs::remove(c / manifest::signatureFile); },
       "missing file: Contents/_CodeManifest/files.sig"},
      {"no manifest", [](const fs::path& c) { fs::remove_all(c / manifest::manifestDirectory); },
       "missing file: Contents/_CodeManifest/files"},
  };
  LinuxArchiveTool tool(publicKey());
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const fs::path copy = root / (std::string("copy-") + c.name);
    ASSERT_EQ(tool.copyBundle(bundle, copy), std::nullopt);
    c.tamper(copy);
    EXPECT_EQ(tool.verifyCopy(copy), c.expected);
  }
}

TEST_F(ArchiveToolLinuxTest, WithoutAUsableKeyNothingVerifies) {
  const std::pair<std::optional<std::string>, std::string> cases[] = {
      {std::nullopt, "no ZEVManifestPublicKey in Info.plist"},
      {"", "no ZEVManifestPublicKey in Info.plist"},
      {"not base64!", "manifest signature does not verify: Contents/_CodeManifest/files"},
      {manifest::toBase64(manifest::generateKeyPair().publicKey),
       "manifest signature does not verify: Contents/_CodeManifest/files"},
  };
  for (const auto& [key, expected] : cases) {
    SCOPED_TRACE(key.value_or("<none>"));
    EXPECT_EQ(LinuxArchiveTool(key).verifyCopy(bundle), expected);
  }
}

TEST(BundleManifestTest, SignaturesRoundTripThroughTheKeyFile) {
  QTemporaryDir dir;
  const fs::path keyFile = fs::path(dir.path().toStdString()) / "key";
  const manifest::KeyPair keys = manifest::generateKeyPair();
  manifest::writeSecretKeyFile(keyFile, keys.secretKey);
  EXPECT_EQ(fs::status(keyFile).permissions() & fs::perms::all,
            fs::perms::owner_read | fs::perms::owner_write);
  const manifest::SecretKey read = manifest::readSecretKeyFile(keyFile);
  EXPECT_EQ(manifest::publicKeyOf(read), keys.publicKey);

  const std::string signature = manifest::sign("archive bytes", read);
  EXPECT_EQ(manifest::fromBase64(signature)->size(), 64u);
  const std::string publicKey = manifest::toBase64(keys.publicKey);
  EXPECT_TRUE(manifest::verify("archive bytes", signature, publicKey));
  EXPECT_FALSE(manifest::verify("archive bytes!", signature, publicKey));
  EXPECT_FALSE(manifest::verify("archive bytes", signature.substr(4), publicKey));
}

}  // namespace
}  // namespace zev
