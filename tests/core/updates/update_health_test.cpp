#include "core/updates/update_health.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/health/health_summary.h"
#include "core/support/decoding_error.h"

namespace zev {
namespace {

const Timestamp kAt = timestampFromMillisecondsSince1970(1763683200123);
const HealthBuild kBuild{"1", "", false, 0};

TEST(UpdateHealth, FlattensStreamsInDocumentOrderAndFallsBackToTheTopLevelVersion) {
  HealthSummary summary;
  summary.version = "2.0.0";
  EXPECT_EQ(summary.updateHealth(), (UpdateHealth{{"2.0.0", "", false, 0}, {}}));
  summary.cameras = {
      {"cam0", "Yard", true, 10, std::nullopt, true,
       std::vector<HealthStream>{{"main", true, true, 40, true, 1000}}},
      {"cam-nostreams", "Hall", true, 10, std::nullopt, std::nullopt, std::nullopt},
      // Camera-level live/recording are ignored: only the streams speak.
      {"cam1", "Door", false, 99999, std::nullopt, false,
       std::vector<HealthStream>{{"main", false, true, -1, false, std::nullopt},
                                 {"a/b", true, false, 7, true, 5}}},
  };
  summary.build = HealthBuild{"2.0.1", "abc", true, 42};
  const UpdateHealth expected{*summary.build,
                              {{"cam0/main", true, true, 40, true, 1000},
                               {"cam1/main", false, true, -1, false, std::nullopt},
                               {"cam1/a/b", true, false, 7, true, 5}}};
  EXPECT_EQ(summary.updateHealth(), expected);
}

TEST(UpdateBaseline, FreshnessBoundIsInclusiveAndNegativeAgesAreStale) {
  for (const auto& [ageMS, fresh] : std::vector<std::pair<int64_t, bool>>{{0, true},
                                                                          {5000, true},
                                                                          {5001, false},
                                                                          {-1, false},
                                                                          {INT64_MIN, false},
                                                                          {INT64_MAX, false}}) {
    SCOPED_TRACE(ageMS);
    EXPECT_EQ(isFreshFrameAge(ageMS), fresh);
    const UpdateBaseline baseline =
        UpdateBaseline::capture({kBuild, {{"c/s", true, true, ageMS, false, {}}}}, kAt);
    EXPECT_EQ(baseline.streams.size(), fresh ? 1u : 0u);
  }
}

TEST(UpdateBaseline, CountsEnabledStreamsAndKeepsHealthyOnesInOrder) {
  const UpdateBaseline baseline =
      UpdateBaseline::capture({kBuild,
                               {
                                   {"c/disabled-but-fine", false, true, 10, true, 1},
                                   {"c/enabled-not-live", true, false, 10, true, 2},
                                   {"c/recording", true, true, 10, true, 3},
                                   {"c/stale", true, true, 6000, true, 4},
                                   {"c/not-recording", true, true, 4999, false, std::nullopt},
                               }},
                              kAt);
  EXPECT_EQ(baseline,
            (UpdateBaseline{
                kAt, 4, {{"c/recording", true, 3}, {"c/not-recording", false, std::nullopt}}}));
}

TEST(UpdateBaseline, UnexpectedlyEmptyOnlyWhenConfiguredStreamsAllUnhealthy) {
  const std::pair<std::vector<UpdateStreamHealth>, bool> cases[] = {
      {{}, false},
      {{{"only disabled", false, true, 0, true, 1}}, false},
      {{{"one enabled stale", true, true, 5001, true, 1}}, true},
      {{{"one enabled healthy", true, true, 5000, false, {}}}, false},
  };
  for (const auto& [streams, unexpectedlyEmpty] : cases) {
    SCOPED_TRACE(streams.empty() ? "none" : streams[0].id);
    EXPECT_EQ(UpdateBaseline::capture({kBuild, streams}, kAt).isUnexpectedlyEmpty(),
              unexpectedlyEmpty);
  }
}

TEST(UpdateHealthJSON, ReadsNullSegmentAsAbsentAndRejectsAFractionalOne) {
  BaselineStream stream;
  fromJSON(nlohmann::json::parse(R"({"id":"x","recording":true,"lastSegmentMS":null})"), stream);
  EXPECT_EQ(stream, (BaselineStream{"x", true, std::nullopt}));
  EXPECT_THROW(
      fromJSON(nlohmann::json::parse(R"({"id":"x","recording":true,"lastSegmentMS":1.5})"), stream),
      DecodingError);
}

}  // namespace
}  // namespace zev
