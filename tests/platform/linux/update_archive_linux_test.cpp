#include "platform/linux/update_archive_linux.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "support/archive_builder.h"
#include "support/scratch_directory.h"

namespace zev {
namespace {

namespace fs = std::filesystem;
using testing::ArchiveEntrySpec;
using T = ArchiveEntrySpec::Type;

// Unpacks `bytes` into <scratch>/staging.
std::optional<std::string> unpackInto(const testing::ScratchDirectory& scratch,
                                      const std::vector<std::uint8_t>& bytes,
                                      const UnpackLimits& limits = {}) {
  fs::create_directory(scratch.path() / "staging");
  return unpackUpdateArchiveBytes(bytes, scratch.path() / "staging", limits);
}

// The first bad entry stops the unpacking, and nothing appears beside the
// staging directory.
TEST(UnpackUpdateArchive, RefusesEntriesThatCouldReachOutside) {
  struct Case {
    const char* name;
    std::vector<ArchiveEntrySpec> extra;
    const char* error;  // beginning of the refusal
  };
  const Case cases[] = {
      {"dot-dot", {{T::file, "ZEV.app/../../evil", "x"}}, "entry escapes the staging directory"},
      {"other top level", {{T::file, "Other.app/x", "x"}}, "entry outside ZEV.app"},
      {"link climbing out", {{T::symlink, "ZEV.app/Contents/out", "../.."}}, "link pointing out"},
      {"absolute link", {{T::symlink, "ZEV.app/Contents/pw", "/etc/passwd"}}, "link pointing out"},
      // Deep/L resolves to ZEV.app, so Linux/M would be the staging directory
      // although it climbs no higher than its own depth.
      {"climb after a name",
       {{T::symlink, "ZEV.app/Contents/Deep/L", "../.."},
        {T::symlink, "ZEV.app/Contents/Linux/M", "../Deep/L/.."}},
       "link pointing out"},
      {"write through a link",
       {{T::symlink, "ZEV.app/Contents/L", "."}, {T::file, "ZEV.app/Contents/L/x", "x"}},
       "entry goes through a link or file"},
      {"hard link", {{T::hardlink, "ZEV.app/Contents/h", "ZEV.app/Contents/x"}}, "hard link"},
      {"device", {{T::device, "ZEV.app/Contents/null", ""}}, "special file refused"},
      {"duplicate", {{T::file, "ZEV.app/Contents/Info.plist", "again"}}, "duplicate entry"},
      {"bundle is a file", {{T::file, "ZEV.app", "x"}}, "ZEV.app is not a directory"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    testing::ScratchDirectory scratch;
    auto entries = testing::minimalBundleEntries();
    entries.insert(entries.end(), c.extra.begin(), c.extra.end());
    const auto error =
        unpackInto(scratch, testing::buildArchive(entries, testing::ArchiveFormat::tar));
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(error->rfind(c.error, 0), 0u) << *error;
    EXPECT_EQ(std::distance(fs::directory_iterator(scratch.path()), {}), 1);
  }
}

// The minimal bundle is three entries holding 18 bytes. Accepted here as a
// zip; plain tar is the updater tests', tar.xz the end-to-end check's.
TEST(UnpackUpdateArchive, RefusesBrokenArchivesAndHoldsItsLimitsToTheByte) {
  const auto good =
      testing::buildArchive(testing::minimalBundleEntries(), testing::ArchiveFormat::zip);
  // Cut in half. (A zip cut after its last entry still unpacks: its data is
  // read as it streams, and the signature check comes first anyway.)
  const auto xz = testing::buildArchive(testing::minimalBundleEntries());
  const std::vector<std::uint8_t> truncated(xz.begin(), xz.begin() + xz.size() / 2);
  const std::vector<std::uint8_t> noise(4096, 0x5a);
  const auto noPlist =
      testing::buildArchive({{T::file, "ZEV.app/Contents/Linux/ZEVLauncher", "x", 0755}});
  struct Case {
    const char* name;
    std::vector<std::uint8_t> bytes;
    UnpackLimits limits;
    std::optional<std::string> error;  // its beginning; nothing when accepted
  };
  const Case cases[] = {
      {"truncated", truncated, {}, ""},
      {"not an archive", noise, {}, "not a readable update archive"},
      {"empty", {}, {}, ""},
      {"no Info.plist", noPlist, {}, "archive's ZEV.app has no Contents/Info.plist"},
      {"bytes at the limit", good, {.maxTotalBytes = 18}, std::nullopt},
      {"one byte too many", good, {.maxTotalBytes = 17}, "archive too large once unpacked"},
      {"entries at the limit", good, {.maxEntries = 3}, std::nullopt},
      {"one entry too many", good, {.maxEntries = 2}, "archive has too many entries"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    testing::ScratchDirectory scratch;
    const auto error = unpackInto(scratch, c.bytes, c.limits);
    ASSERT_EQ(error.has_value(), c.error.has_value()) << error.value_or("");
    if (error) EXPECT_EQ(error->rfind(*c.error, 0), 0u) << *error;
  }
}

}  // namespace
}  // namespace zev
