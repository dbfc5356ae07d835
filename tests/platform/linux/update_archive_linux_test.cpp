#include "platform/linux/update_archive_linux.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "support/archive_builder.h"
#include "support/scratch_directory.h"

namespace zev {
namespace {

namespace fs = std::filesystem;
using testing::ArchiveEntrySpec;
using T = ArchiveEntrySpec::Type;

// Every entry path below the scratch directory, to prove nothing was written
// beside the staging directory.
std::vector<std::string> entriesOutsideStaging(const fs::path& root) {
  std::vector<std::string> found;
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    const std::string relative = fs::relative(entry.path(), root).string();
    if (relative != "staging" && relative.rfind("staging/", 0) != 0) found.push_back(relative);
  }
  return found;
}

TEST(UnpackUpdateArchive, UnpacksABundleKeepingLinksAndSafeModes) {
  for (const auto format : {testing::ArchiveFormat::tarXz, testing::ArchiveFormat::zip}) {
    SCOPED_TRACE(format == testing::ArchiveFormat::zip ? "zip" : "tar.xz");
    testing::ScratchDirectory scratch;
    fs::create_directory(scratch.path() / "staging");
    auto entries = testing::minimalBundleEntries();
    entries.push_back({T::file, "./ZEV.app/Contents/Helpers/zevd", "daemon", 06777});
    entries.push_back({T::symlink, "ZEV.app/Contents/Current", "Linux/ZEVLauncher"});
    entries.push_back({T::symlink, "ZEV.app/Contents/Linux/Up", "../../Contents"});
    EXPECT_EQ(unpackUpdateArchiveBytes(testing::buildArchive(entries, format),
                                       scratch.path() / "staging"),
              std::nullopt);

    const fs::path bundle = scratch.path() / "staging" / "ZEV.app";
    std::ifstream daemon(bundle / "Contents/Helpers/zevd");
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(daemon), {}), "daemon");
    struct stat info {};
    ASSERT_EQ(::stat((bundle / "Contents/Helpers/zevd").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0755u);  // setuid, setgid, sticky, o+w gone
    EXPECT_EQ(fs::read_symlink(bundle / "Contents/Current"), "Linux/ZEVLauncher");
    EXPECT_TRUE(fs::is_regular_file(bundle / "Contents/Linux/Up/Info.plist"));
  }
}

TEST(UnpackUpdateArchive, RefusesEntriesThatCouldReachOutside) {
  struct Case {
    const char* name;
    std::vector<ArchiveEntrySpec> extra;
    const char* error;  // beginning of the refusal
  };
  const Case cases[] = {
      {"dot-dot", {{T::file, "ZEV.app/../evil", "x"}}, "entry escapes the staging directory"},
      {"dot-dot first", {{T::file, "../evil", "x"}}, "entry escapes the staging directory"},
      {"absolute", {{T::file, "/tmp/zev-evil", "x"}}, "entry with an absolute path"},
      {"other top level", {{T::file, "Other.app/x", "x"}}, "entry outside ZEV.app"},
      {"link climbing out", {{T::symlink, "ZEV.app/Contents/out", "../.."}},
       "link pointing outside the bundle refused"},
      {"absolute link", {{T::symlink, "ZEV.app/Contents/passwd", "/etc/passwd"}},
       "link pointing outside the bundle refused"},
      // Deep/L resolves to ZEV.app, so Linux/M would be the staging directory
      // although it climbs no higher than its own depth.
      {"climb after a name",
       {{T::symlink, "ZEV.app/Contents/Deep/L", "../.."},
        {T::symlink, "ZEV.app/Contents/Linux/M", "../Deep/L/.."}},
       "link pointing outside the bundle refused"},
      {"write through a link",
       {{T::symlink, "ZEV.app/Contents/L", "."}, {T::file, "ZEV.app/Contents/L/x", "x"}},
       "entry goes through a link or file"},
      {"hard link", {{T::hardlink, "ZEV.app/Contents/h", "ZEV.app/Contents/Info.plist"}},
       "hard link refused"},
      {"device", {{T::device, "ZEV.app/Contents/null", ""}}, "special file refused"},
      {"fifo", {{T::fifo, "ZEV.app/Contents/pipe", ""}}, "special file refused"},
      {"duplicate", {{T::file, "ZEV.app/Contents/Info.plist", "again"}}, "duplicate entry"},
      {"bundle is a file", {{T::file, "ZEV.app", "x"}}, "ZEV.app is not a directory"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    testing::ScratchDirectory scratch;
    fs::create_directory(scratch.path() / "staging");
    auto entries = testing::minimalBundleEntries();
    entries.insert(entries.end(), c.extra.begin(), c.extra.end());
    const auto error = unpackUpdateArchiveBytes(testing::buildArchive(entries, testing::ArchiveFormat::tar),
                                                scratch.path() / "staging");
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(error->rfind(c.error, 0), 0u) << *error;
    EXPECT_EQ(entriesOutsideStaging(scratch.path()), std::vector<std::string>{});
    EXPECT_FALSE(fs::exists("/tmp/zev-evil"));
  }
}

TEST(UnpackUpdateArchive, RefusesBrokenOrOversizedArchives) {
  const auto good = testing::buildArchive(testing::minimalBundleEntries());
  std::vector<std::uint8_t> truncated(good.begin(), good.begin() + good.size() / 2);
  std::vector<std::uint8_t> noise(4096, 0x5a);
  const auto noPlist =
      testing::buildArchive({{T::file, "ZEV.app/Contents/Linux/ZEVLauncher", "x", 0755}});
  struct Case {
    const char* name;
    std::vector<std::uint8_t> bytes;
    UnpackLimits limits;
    const char* error;
  };
  const Case cases[] = {
      {"truncated", truncated, {}, ""},
      {"not an archive", noise, {}, "not a readable update archive"},
      {"empty", {}, {}, ""},
      {"no Info.plist", noPlist, {}, "archive's ZEV.app has no Contents/Info.plist"},
      {"too large", good, {.maxTotalBytes = 12}, "archive too large once unpacked"},
      {"too many entries", good, {.maxEntries = 2}, "archive has too many entries"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    testing::ScratchDirectory scratch;
    fs::create_directory(scratch.path() / "staging");
    const auto error = unpackUpdateArchiveBytes(c.bytes, scratch.path() / "staging", c.limits);
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(error->rfind(c.error, 0), 0u) << *error;
  }
}

TEST(UnpackUpdateArchive, ReadsFromAFileAndReportsAMissingOne) {
  testing::ScratchDirectory scratch;
  fs::create_directory(scratch.path() / "staging");
  testing::writeBytes(scratch.path() / "update.tar.xz",
                      testing::buildArchive(testing::minimalBundleEntries()));
  EXPECT_EQ(unpackUpdateArchive(scratch.path() / "update.tar.xz", scratch.path() / "staging"),
            std::nullopt);
  EXPECT_TRUE(fs::is_regular_file(scratch.path() / "staging/ZEV.app/Contents/Info.plist"));
  const auto missing = unpackUpdateArchive(scratch.path() / "none.tar.xz", scratch.path() / "s2");
  ASSERT_TRUE(missing.has_value());
  EXPECT_EQ(missing->rfind("cannot open the update archive", 0), 0u) << *missing;
}

}  // namespace
}  // namespace zev
