#include "core/updates/update_health.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/support/decoding_error.h"
#include "core/health/health_summary.h"

namespace zev {
namespace {

const Timestamp kAt = timestampFromMillisecondsSince1970(1763683200123);

HealthSummary summaryWith(std::vector<HealthCamera> cameras, std::optional<HealthBuild> build) {
  HealthSummary summary;
  summary.version = "2.0.0";
  summary.cameras = std::move(cameras);
  summary.build = std::move(build);
  return summary;
}

TEST(UpdateHealth, FlattensStreamsInDocumentOrderWithCameraPrefixedIds) {
  const HealthSummary summary = summaryWith(
      {
          {"cam0", "Yard", true, 10, std::nullopt, true,
           std::vector<HealthStream>{{"main", true, true, 40, true, 1000}}},
          {"cam-nostreams", "Hall", true, 10, std::nullopt, std::nullopt, std::nullopt},
          // Camera-level live/recording are ignored: only the streams speak.
          {"cam1", "Door", false, 99999, std::nullopt, false,
           std::vector<HealthStream>{{"main", false, true, -1, false, std::nullopt},
                                     {"a/b", true, false, 7, true, 5}}},
      },
      HealthBuild{"2.0.1", "abc", true, 42});

  const UpdateHealth health = summary.updateHealth();
  EXPECT_EQ(health.build, (HealthBuild{"2.0.1", "abc", true, 42}));
  const std::vector<UpdateStreamHealth> expected = {
      {"cam0/main", true, true, 40, true, 1000},
      {"cam1/main", false, true, -1, false, std::nullopt},
      {"cam1/a/b", true, false, 7, true, 5},  // no escaping of "/" inside ids
  };
  EXPECT_EQ(health.streams, expected);
}

TEST(UpdateHealth, WithoutBuildObjectIsJudgedByTopLevelVersion) {
  const UpdateHealth health = summaryWith({}, std::nullopt).updateHealth();
  EXPECT_EQ(health.build, (HealthBuild{"2.0.0", "", false, 0}));
  EXPECT_TRUE(health.streams.empty());
}

TEST(UpdateBaseline, FreshnessBoundIsInclusiveAndNegativeAgesAreStale) {
  struct Case {
    int64_t ageMS;
    bool fresh;
  };
  for (const Case& c : std::vector<Case>{{0, true},
                                         {5000, true},
                                         {5001, false},
                                         {-1, false},
                                         {INT64_MIN, false},
                                         {INT64_MAX, false}}) {
    SCOPED_TRACE(c.ageMS);
    EXPECT_EQ(isFreshFrameAge(c.ageMS), c.fresh);
    const UpdateBaseline baseline = UpdateBaseline::capture(
        {{"1", "", false, 0}, {{"c/s", true, true, c.ageMS, false, {}}}}, kAt);
    EXPECT_EQ(baseline.streams.size(), c.fresh ? 1u : 0u);
    EXPECT_EQ(baseline.configuredStreamCount, 1);
  }
}

TEST(UpdateBaseline, CountsEnabledStreamsAndKeepsHealthyOnesInOrder) {
  const UpdateHealth health{{"1.0", "", false, 0},
                            {
                                {"c/disabled-but-fine", false, true, 10, true, 1},
                                {"c/enabled-not-live", true, false, 10, true, 2},
                                {"c/recording", true, true, 10, true, 3},
                                {"c/stale", true, true, 6000, true, 4},
                                {"c/not-recording", true, true, 4999, false, std::nullopt},
                            }};
  const UpdateBaseline baseline = UpdateBaseline::capture(health, kAt);
  EXPECT_EQ(baseline.capturedAt, kAt);
  EXPECT_EQ(baseline.configuredStreamCount, 4);
  const std::vector<BaselineStream> expected = {{"c/recording", true, 3},
                                                {"c/not-recording", false, std::nullopt}};
  EXPECT_EQ(baseline.streams, expected);
  EXPECT_FALSE(baseline.isUnexpectedlyEmpty());
}

TEST(UpdateBaseline, UnexpectedlyEmptyOnlyWhenConfiguredStreamsAllUnhealthy) {
  struct Case {
    const char* name;
    std::vector<UpdateStreamHealth> streams;
    bool unexpectedlyEmpty;
  };
  const std::vector<Case> cases = {
      {"no streams at all", {}, false},
      {"only disabled streams", {{"c/s", false, true, 0, true, 1}}, false},
      {"one enabled stale stream", {{"c/s", true, true, 5001, true, 1}}, true},
      {"one enabled healthy stream", {{"c/s", true, true, 5000, false, {}}}, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(UpdateBaseline::capture({{"1", "", false, 0}, c.streams}, kAt).isUnexpectedlyEmpty(),
              c.unexpectedlyEmpty);
  }
}

TEST(UpdateHealthJSON, ReadsNullSegmentAsAbsentAndRejectsMistypedFields) {
  BaselineStream stream;
  fromJSON(nlohmann::json::parse(R"({"id":"x","recording":true,"lastSegmentMS":null})"), stream);
  EXPECT_EQ(stream, (BaselineStream{"x", true, std::nullopt}));

  for (const char* text : {R"({"id":"x","recording":1})", R"({"id":"x"})",
                           R"({"id":"x","recording":true,"lastSegmentMS":1.5})",
                           R"({"id":"x","recording":true,"lastSegmentMS":"1"})", R"([])"}) {
    SCOPED_TRACE(text);
    EXPECT_THROW(fromJSON(nlohmann::json::parse(text), stream), DecodingError);
  }
}

}  // namespace
}  // namespace zev
