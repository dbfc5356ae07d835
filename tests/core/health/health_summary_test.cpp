#include "core/health/health_summary.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace zev {
namespace {

// A complete, valid document; tests patch one piece of it at a time.
constexpr const char* kHealthy = R"({
  "ok": true, "version": "1.4.2", "live_streams": 3, "total_streams": 4,
  "newest_frame_age_ms": 120, "worst_frame_age_ms": 1234, "cpu_percent": 12.5,
  "rss_bytes": 73400320, "thumb_drop_ratio": 0.01,
  "cameras": [
    {"id": "cam-1", "name": "Front door", "live": true, "frame_age_ms": 120,
     "worst_frame_age_ms": 800, "recording": true,
     "streams": [{"id": "main", "enabled": true, "live": true, "frame_age_ms": 120,
                  "recording": true, "last_segment_ms": 1700000000000}]},
    {"id": "cam-2", "name": "Garage", "live": false, "frame_age_ms": 90000}
  ],
  "build": {"version": "1.4.2", "revision": "abc123", "modified": false, "built_ms": 1699999999000},
  "degraded": false, "degraded_reasons": ["disk slow"],
  "default_route": {"interface": "en0", "kind": "ethernet", "speed_mbps": 1000, "media": "1000baseT"}
})";

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
  const auto summary = decodeHealth(kHealthy);
  ASSERT_TRUE(summary.has_value());
  EXPECT_TRUE(*summary == expected);
  EXPECT_EQ(summary->totalCameras(), 2);
  EXPECT_EQ(summary->liveCameras(), 1);
}

TEST(DecodeHealth, OptionalFieldsAcceptAbsenceAndNull) {
  struct Case {
    const char* name;
    std::string from, to;
  };
  const std::vector<Case> cases = {
      {"reasons null", R"(["disk slow"])", "null"},
      {"reasons absent", R"("degraded_reasons": ["disk slow"],)", ""},
      {"worst age null", R"("worst_frame_age_ms": 1234)", R"("worst_frame_age_ms": null)"},
      {"build null", R"({"version": "1.4.2", "revision")", R"(null, "x": {"revision")"},
      {"degraded null", R"("degraded": false)", R"("degraded": null)"},
      {"route absent", R"("default_route": {)", R"("unused": {)"},
      {"segment absent", R"(, "last_segment_ms": 1700000000000)", ""},
      {"streams null", R"("recording": true,
     "streams")", R"("recording": true, "streams": null, "s")"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const auto summary = decodeHealth(replaced(kHealthy, c.from, c.to));
    ASSERT_TRUE(summary.has_value());
    if (std::string(c.name).starts_with("reasons")) {
      EXPECT_TRUE(summary->degradedReasons.empty());
    }
  }
}

TEST(DecodeHealth, FailsWholeDocumentOnMissingOrMistypedRequiredField) {
  struct Case {
    const char* name;
    std::string from, to;
  };
  const std::vector<Case> cases = {
      {"no cameras", R"("cameras": [)", R"("cameraz": [)"},
      {"cameras null", R"("cameras": [)", R"("cameras": null, "x": [)"},
      {"ok null", R"("ok": true)", R"("ok": null)"},
      {"ok as number", R"("ok": true)", R"("ok": 1)"},
      {"version as number", R"("version": "1.4.2", "live)", R"("version": 142, "live)"},
      {"count as string", R"("live_streams": 3)", R"("live_streams": "3")"},
      {"count with fraction", R"("live_streams": 3)", R"("live_streams": 3.5)"},
      {"count above int64", R"("rss_bytes": 73400320)", R"("rss_bytes": 9223372036854775808)"},
      {"count below int64", R"("rss_bytes": 73400320)", R"("rss_bytes": -9223372036854775809)"},
      {"double as string", R"("cpu_percent": 12.5)", R"("cpu_percent": "12.5")"},
      {"stream without recording", R"("recording": true, "last_segment_ms")", R"("last_segment_ms")"},
      {"camera without name", R"("name": "Garage", )", ""},
      {"build without revision", R"("revision": "abc123", )", ""},
      {"route without media", R"(, "media": "1000baseT")", ""},
      {"optional of wrong type", R"("degraded": false)", R"("degraded": "no")"},
      {"reason not a string", R"(["disk slow"])", R"(["disk slow", 3])"},
      {"camera not an object", R"({"id": "cam-2")", R"("cam-2", {"id": "x")"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_FALSE(decodeHealth(replaced(kHealthy, c.from, c.to)).has_value());
  }
}

TEST(DecodeHealth, RejectsBytesThatAreNotOneJsonObject) {
  const std::vector<std::string> inputs = {
      "", "null", "[]", "\"ok\"", "{", std::string(kHealthy) + " {}",
      std::string(kHealthy).substr(0, 200),  // truncated body
      replaced(kHealthy, "Garage", "Gar\xC3"),  // cut multi-byte character
      replaced(kHealthy, "0.01", "1e400"),     // not representable
  };
  for (const std::string& input : inputs) {
    SCOPED_TRACE(input.substr(0, 40));
    EXPECT_FALSE(decodeHealth(input).has_value());
  }
}

// Beyond 2^53 a number written as a float could only be rounded, so it fails.
TEST(DecodeHealth, IntegersWrittenWithFractionOrExponentReadAsWholeNumbers) {
  const std::pair<const char*, std::optional<int64_t>> cases[] = {
      {"3.0", 3}, {"-0.0", 0}, {"4.5e1", 45}, {"9007199254740992.0", 9007199254740992},
      {"-9223372036854775808", INT64_MIN}, {"9223372036854775807", INT64_MAX},
      {"9.223372036854775808e18", std::nullopt}, {"9007199254740994.0", std::nullopt},
      {"1e17", std::nullopt}};
  for (const auto& [text, expected] : cases) {
    SCOPED_TRACE(text);
    const auto summary = decodeHealth(
        replaced(kHealthy, R"("rss_bytes": 73400320)", std::string(R"("rss_bytes": )") + text));
    EXPECT_EQ(summary ? std::optional(summary->rssBytes) : std::nullopt, expected);
  }
}

TEST(DecodeHealth, IgnoresUnknownKeysAndLetsTheLastDuplicateWin) {
  auto summary = decodeHealth(replaced(kHealthy, R"("ok": true,)",
                                       R"("ok": false, "future": {"x": [1, 2]}, "ok": true,)"));
  ASSERT_TRUE(summary.has_value());
  EXPECT_TRUE(summary->ok);
  // A bad value that is later overridden does not fail the document...
  EXPECT_TRUE(decodeHealth(replaced(kHealthy, R"("ok": true,)", R"("ok": "bad", "ok": true,)")));
  // ...but a good one overridden by a bad one does.
  EXPECT_FALSE(decodeHealth(replaced(kHealthy, R"("ok": true,)", R"("ok": true, "ok": "bad",)")));
}

TEST(DecodeHealth, KeepsNonAsciiTextIntact) {
  const auto summary = decodeHealth(replaced(kHealthy, "Garage", "Gar\\u00e4ge \xF0\x9F\x93\xB7"));
  ASSERT_TRUE(summary.has_value());
  EXPECT_EQ(summary->cameras[1].name, "Gar\xC3\xA4ge \xF0\x9F\x93\xB7");
}

HealthSummary withReasons(std::vector<std::string> reasons) {
  HealthSummary summary;
  summary.degradedReasons = std::move(reasons);
  return summary;
}

TEST(HealthSummaryDerived, DegradedIssueCountExpandsTrailingMoreMarker) {
  struct Case {
    std::vector<std::string> reasons;
    int64_t expected;
  };
  const std::vector<Case> cases = {
      {{}, 0},
      {{"a", "b", "more:5"}, 7},
      {{"a", "more:x"}, 2},
      {{"more:3"}, 3},
      {{"a", "more:+4"}, 5},
      {{"a", "b", "more:-1"}, 1},
      {{"a", "more: 4"}, 2},
      {{"a", "more:+"}, 2},
      {{"more:4", "a"}, 2},  // only the last entry is a marker
      {{"a", "more:99999999999999999999"}, 2},  // does not parse as 64-bit
      {{"more:9223372036854775807"}, INT64_MAX},
      {{"a", "more:-9223372036854775808"}, INT64_MIN + 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.reasons));
    const HealthSummary summary = withReasons(c.reasons);
    EXPECT_FALSE(degradedIssueCountOverflows(summary.degradedReasons));
    EXPECT_EQ(summary.degradedIssueCount(), c.expected);
  }
}

TEST(HealthSummaryDeathTest, DegradedIssueCountOverflowIsFatal) {
  const HealthSummary summary = withReasons({"a", "more:9223372036854775807"});
  EXPECT_TRUE(degradedIssueCountOverflows(summary.degradedReasons));
  EXPECT_DEATH(summary.degradedIssueCount(), "overflows");
}

TEST(HealthSummaryDerived, WorstFrameAgeText) {
  HealthSummary summary;
  for (const auto& [age, text] : std::vector<std::pair<std::optional<int64_t>, std::string>>{
           {std::nullopt, "\u2014"}, {-1, "\u2014"}, {INT64_MIN, "\u2014"}, {0, "0 ms"},
           {INT64_MAX, "9223372036854775807 ms"}}) {
    summary.worstFrameAgeMS = age;
    EXPECT_EQ(summary.worstFrameAgeText(), text) << age.value_or(42);
  }
}

TEST(HealthDefaultRoute, SummaryTextAndWarning) {
  struct Case {
    std::string kind;
    int64_t speed;
    std::string text;
    bool warning;
  };
  const std::vector<Case> cases = {
      {"ethernet", 0, "en0 ethernet", false},
      {"ethernet", -5, "en0 ethernet", false},
      {"ethernet", 1, "en0 ethernet 1 Mb/s", true},
      {"ethernet", 999, "en0 ethernet 999 Mb/s", true},
      {"ethernet", 1000, "en0 ethernet 1000 Mb/s", false},
      {"wifi", 0, "en0 wifi", true},
      {"Wifi", 100, "en0 Wifi 100 Mb/s", false},
      {"cellular", 50, "en0 cellular 50 Mb/s", false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.kind + " " + std::to_string(c.speed));
    const HealthDefaultRoute route{"en0", c.kind, c.speed, "autoselect"};
    EXPECT_EQ(route.summaryText(), c.text);
    EXPECT_EQ(route.isWarning(), c.warning);
  }
}

}  // namespace
}  // namespace zev
