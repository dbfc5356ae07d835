#include "core/health/health_summary.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <string>
#include <vector>

#include "core/health/health_status.h"

namespace zev {
namespace {

// A complete, valid document (the health fuzzer's seed); tests patch one
// piece of it at a time.
const std::string kHealthy = [] {
  const auto root = std::filesystem::path(ZEV_TEST_DATA_DIR).parent_path().parent_path();
  std::ifstream in(root / "fuzz/corpus/health/healthy.json");
  return std::string(std::istreambuf_iterator<char>(in), {});
}();

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  const auto at = text.find(from);
  EXPECT_NE(at, std::string::npos) << "fixture has no " << from;
  if (at != std::string::npos) text.replace(at, from.size(), to);
  return text;
}

TEST(DecodeHealth, ReadsEveryField) {
  const HealthSummary expected{
      .ok = true, .version = "1.4.2", .liveStreams = 3, .totalStreams = 4,
      .newestFrameAgeMS = 120, .worstFrameAgeMS = 1234, .cpuPercent = 12.5,
      .rssBytes = 73400320, .thumbDropRatio = 0.01,
      .cameras = {{"cam-1", "Front door", true, 120, 800, true,
                   std::vector<HealthStream>{{"main", true, true, 120, true, 1700000000000}}},
                  {"cam-2", "Garage", false, 90000, std::nullopt, std::nullopt, std::nullopt}},
      .build = HealthBuild{"1.4.2", "abc123", false, 1699999999000}, .degraded = false,
      .degradedReasons = {"disk slow"},
      .defaultRoute = HealthDefaultRoute{"en0", "ethernet", 1000, "1000baseT"}};
  EXPECT_TRUE(decodeHealth(kHealthy) == expected);
  EXPECT_EQ(expected.liveCameras(), 1);
}

// One patch of the valid document per row: optional fields may be absent or
// null; a missing or mistyped required field fails the whole document.
TEST(DecodeHealth, AcceptsOptionalAbsenceButFailsTheDocumentOnABadRequiredField) {
  const struct {
    const char* from;
    const char* to;
    bool decodes;
  } cases[] = {
      {R"(["disk slow"])", "null", true},
      {R"("default_route":{)", R"("unused":{)", true},
      {R"("ok":true,)", R"("ok":true,"ok":"bad",)", false},  // the last one counts
      {R"("cameras":[)", R"("cameras":null,"x":[)", false},
      {R"("live_streams":3)", R"("live_streams":"3")", false},
      {R"("cpu_percent":12.5)", R"("cpu_percent":"12.5")", false},
      {R"("name":"Garage",)", "", false},
      {R"("degraded":false)", R"("degraded":"no")", false},
      {R"(["disk slow"])", R"(["disk slow",3])", false},
      {"Garage", "Gar\xC3", false},  // cut multi-byte character
      {"0.01", "1e400", false},
      {"1000baseT\"}}", "1000baseT\"}} {}", false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.from) + " -> " + c.to);
    EXPECT_EQ(decodeHealth(replaced(kHealthy, c.from, c.to)).has_value(), c.decodes);
  }
  for (const char* notAnObject : {"", "null", "[]", "{"}) EXPECT_FALSE(decodeHealth(notAnObject));
}

// Beyond 2^53 a number written as a float could only be rounded, so it fails.
TEST(DecodeHealth, IntegersWrittenWithFractionOrExponentReadAsWholeNumbers) {
  const std::pair<const char*, std::optional<int64_t>> cases[] = {
      {"3.0", 3}, {"4.5e1", 45}, {"3.5", std::nullopt}, {"9007199254740992.0", 9007199254740992},
      {"-9223372036854775808", INT64_MIN}, {"9223372036854775807", INT64_MAX},
      {"9223372036854775808", std::nullopt}, {"9007199254740994.0", std::nullopt}};
  for (const auto& [text, expected] : cases) {
    SCOPED_TRACE(text);
    const auto summary = decodeHealth(
        replaced(kHealthy, R"("rss_bytes":73400320)", std::string(R"("rss_bytes":)") + text));
    EXPECT_EQ(summary ? std::optional(summary->rssBytes) : std::nullopt, expected);
  }
}

TEST(HealthSummaryDerived, DegradedIssueCountExpandsTrailingMoreMarker) {
  const std::pair<std::vector<std::string>, int64_t> cases[] = {
      {{}, 0},
      {{"a", "b", "more:5"}, 7},
      {{"a", "more:x"}, 2},
      {{"a", "more:+4"}, 5},
      {{"a", "b", "more:-1"}, 1},
      {{"more:4", "a"}, 2},  // only the last entry is a marker
      {{"a", "more:99999999999999999999"}, 2},
      {{"more:9223372036854775807"}, INT64_MAX},
  };
  for (const auto& [reasons, expected] : cases) {
    SCOPED_TRACE(testing::PrintToString(reasons));
    EXPECT_EQ(HealthSummary{.degradedReasons = reasons}.degradedIssueCount(), expected);
  }
  const HealthSummary overflowing{.degradedReasons = {"a", "more:9223372036854775807"}};
  EXPECT_TRUE(degradedIssueCountOverflows(overflowing.degradedReasons));
  EXPECT_DEATH(overflowing.degradedIssueCount(), "overflows");
}

TEST(HealthDefaultRoute, SummaryTextAndWarning) {
  const struct {
    std::string kind;
    int64_t speed;
    std::string text;
    bool warning;
  } cases[] = {
      {"ethernet", 0, "en0 ethernet", false},
      {"ethernet", 999, "en0 ethernet 999 Mb/s", true},
      {"ethernet", 1000, "en0 ethernet 1000 Mb/s", false},
      {"wifi", 0, "en0 wifi", true},
      {"Wifi", 100, "en0 Wifi 100 Mb/s", false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.kind + " " + std::to_string(c.speed));
    const HealthDefaultRoute route{"en0", c.kind, c.speed, "autoselect"};
    EXPECT_EQ(route.summaryText(), c.text);
    EXPECT_EQ(route.isWarning(), c.warning);
  }
}

// `ok` is never part of the verdict.
HealthSummary summaryWith(int64_t total, int64_t live, std::optional<bool> degraded, double thumbs,
                          int64_t newestAge, bool ok = true) {
  return {.ok = ok, .liveStreams = live, .totalStreams = total, .newestFrameAgeMS = newestAge,
          .thumbDropRatio = thumbs, .degraded = degraded};
}

TEST(ClassifyHealth, RulesApplyInOrder) {
  constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
  const struct {
    const char* name;
    std::optional<HealthSummary> summary;
    HealthStatus expected;
  } cases[] = {
      {"no summary", std::nullopt, HealthStatus::red},
      {"nothing configured beats none live", summaryWith(0, 0, false, 0, 0), HealthStatus::yellow},
      {"configured, none live", summaryWith(4, 0, false, 0, 0), HealthStatus::red},
      {"daemon verdict wins over stale frame", summaryWith(4, 1, false, 0.9, 60000), HealthStatus::green},
      {"daemon says degraded", summaryWith(4, 4, true, 0, 10), HealthStatus::yellow},
      {"thumb ratio at limit", summaryWith(4, 4, std::nullopt, 0.2, 10), HealthStatus::yellow},
      {"thumb ratio NaN", summaryWith(4, 4, std::nullopt, kNaN, 10), HealthStatus::yellow},
      {"just fresh, just below ratio", summaryWith(4, 4, std::nullopt, 0.19, 1999, false), HealthStatus::green},
      {"frame age at limit", summaryWith(4, 4, std::nullopt, 0, 2000), HealthStatus::yellow},
      {"negative frame age", summaryWith(4, 4, std::nullopt, 0, -1), HealthStatus::yellow},
      {"negative stream counts are not zero", summaryWith(-1, -1, std::nullopt, 0, 0), HealthStatus::green},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(classifyHealth(c.summary), c.expected);
  }
  EXPECT_EQ(healthStatusFromRawValue(rawValue(HealthStatus::yellow)), HealthStatus::yellow);
  EXPECT_FALSE(healthStatusFromRawValue("Green").has_value());
}

}  // namespace
}  // namespace zev
