#include "core/updates/update_verifier.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

namespace zev {
namespace {

using A = VerificationAssessment;

const HealthBuild kTarget{"2.0.0", "r", false, 0};

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
  const HealthBuild older{"1.9.9", "r", false, 0}, padded{"2.0.0 ", "", false, 0};
  const struct {
    const char* name;
    UpdateBaseline before;
    UpdateHealth sample;
    A expected;
  } cases[] = {
      {"version mismatch wins even with empty baseline", baseline({}), of({}, older), wrong},
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
      {"wrong version also resets", baseline({{"a", true, 1000}}), "hhwhhh", 6},
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

}  // namespace
}  // namespace zev
