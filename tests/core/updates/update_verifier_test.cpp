// The health a certification judges: the streams of a sample, the baseline
// taken before the install, and the verifier's rules. The freshness bound is
// the verifier table's; an unexpectedly empty baseline is the coordinator
// test's.
#include "core/updates/update_verifier.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "core/health/health_summary.h"
#include "core/support/decoding_error.h"

namespace zev {
namespace {

using A = VerificationAssessment;

const HealthBuild kTarget{"2.0.0", "r", false, 0};
const Timestamp kAt = timestampFromMillisecondsSince1970(1763683200123);

UpdateBaseline baseline(std::vector<BaselineStream> streams, int64_t configured = -1) {
  const int64_t count = configured >= 0 ? configured : static_cast<int64_t>(streams.size());
  return {timestampFromMillisecondsSince1970(0), count, std::move(streams)};
}

UpdateStreamHealth fine(const std::string& id, std::optional<int64_t> segment = 2000,
                        int64_t ageMS = 100, bool live = true, bool enabled = true) {
  return {id, enabled, live, ageMS, true, segment};
}

UpdateHealth of(std::vector<UpdateStreamHealth> streams, HealthBuild build = kTarget) {
  return {std::move(build), std::move(streams)};
}

TEST(UpdateVerifier, AssessmentAppliesTheFirstRuleThatFails) {
  const UpdateBaseline two = baseline({{"a", true, 1000}, {"b", false, std::nullopt}});
  UpdateStreamHealth notRecording = fine("a"), idleB = fine("b", std::nullopt);
  notRecording.recording = idleB.recording = false;
  const auto none = std::nullopt;
  const auto stale = A::staleStream, notAdvanced = A::recordingNotAdvanced;
  const A healthy = A::healthy(), wrong = A::wrongVersion();
  const HealthBuild padded{"2.0.0 ", "", false, 0};
  const struct {
    const char* name;
    UpdateBaseline before;
    UpdateHealth sample;
    A expected;
  } cases[] = {
      {"version mismatch wins over missing streams", two, of({}, padded), wrong},
      {"empty baseline, right version", baseline({}, 3), of({}), healthy},
      {"extra streams ignored", two, of({fine("new", none), fine("b", none), fine("a")}), healthy},
      {"missing first wins over later stale", two, of({fine("b", 1, 100, false)}),
       A::missingStream("a")},
      {"disabled", two, of({fine("a", 2000, 100, true, false), fine("b")}), stale("a")},
      {"not live", two, of({fine("a"), fine("b", 1, 100, false)}), stale("b")},
      {"age 5000 is fresh", two, of({fine("a", 2000, 5000), fine("b")}), healthy},
      {"age 5001 is stale", two, of({fine("a", 2000, 5001), fine("b")}), stale("a")},
      {"negative age is stale", two, of({fine("a", 2000, -1), fine("b")}), stale("a")},
      {"same segment has not advanced", two, of({fine("a", 1000), fine("b")}), notAdvanced("a")},
      {"one millisecond newer has advanced", two, of({fine("a", 1001), fine("b")}), healthy},
      {"no segment in sample", two, of({fine("a", none), fine("b")}), notAdvanced("a")},
      {"no segment in baseline", baseline({{"a", true, none}}), of({fine("a")}), notAdvanced("a")},
      {"sample's recording flag is not consulted", two, of({notRecording, fine("b")}), healthy},
      {"not recording before, nothing recorded after", two, of({fine("a"), idleB}), healthy},
      {"only the first duplicate is judged", two,
       of({fine("a", 2000, 100, false), fine("a"), fine("b")}), stale("a")},
      {"signed comparison of segments", baseline({{"a", true, -5}}), of({fine("a", -4)}), healthy},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const A got = UpdateVerifier("2.0.0", c.before).assessment(c.sample);
    EXPECT_EQ(got, c.expected) << "kind " << int(got.kind) << " " << got.streamID;
  }
}

TEST(UpdateVerifier, ObserveCertifiesAfterThreeConsecutiveHealthySamples) {
  // h healthy, s stale, w wrong version; then the sample after which it
  // certifies.
  const std::map<char, UpdateHealth> samples = {{'h', of({fine("a")})},
                                                {'s', of({fine("a", 2000, 9000)})},
                                                {'w', of({fine("a")}, {"1.0.0", "", false, 0})}};
  const struct {
    const char* name;
    UpdateBaseline before;
    std::string samples;
    size_t certifiedAt;
  } cases[] = {
      {"run broken by a stale sample", baseline({{"a", true, 1000}}), "hhshhhh", 6},
      {"no configured streams: first healthy sample certifies", baseline({}, 0), "whh", 2},
      {"configured but empty baseline still needs three", baseline({}, 2), "hhh", 3},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    UpdateVerifier verifier("2.0.0", c.before);
    for (size_t i = 0; i < c.samples.size(); ++i) {
      EXPECT_EQ(verifier.observe(samples.at(c.samples[i])) == VerificationProgress::certified,
                i + 1 >= c.certifiedAt)
          << "sample " << i + 1;
    }
  }
}

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

TEST(UpdateBaseline, CountsEnabledStreamsAndKeepsHealthyOnesInOrder) {
  const UpdateBaseline baseline =
      UpdateBaseline::capture({kTarget,
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
