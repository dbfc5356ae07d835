#include "core/updates/update_verifier.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

namespace zev {

void PrintTo(const VerificationAssessment& a, std::ostream* os) {
  static const char* const kNames[] = {"missingStream", "staleStream", "recordingNotAdvanced",
                                       "healthy", "wrongVersion"};
  *os << kNames[static_cast<int>(a.kind)];
  if (!a.streamID.empty()) *os << "(" << a.streamID << ")";
}

namespace {

using A = VerificationAssessment;

const HealthBuild kTarget{"2.0.0", "r", false, 0};

UpdateBaseline baseline(std::vector<BaselineStream> streams, int64_t configured = -1) {
  const int64_t count = configured >= 0 ? configured : static_cast<int64_t>(streams.size());
  return {timestampFromMillisecondsSince1970(0), count, std::move(streams)};
}

UpdateStreamHealth fine(const std::string& id, std::optional<int64_t> segment = 2000) {
  return {id, true, true, 100, true, segment};
}

TEST(UpdateVerifier, AssessmentAppliesTheFirstRuleThatFails) {
  struct Case {
    const char* name;
    UpdateBaseline before;
    UpdateHealth sample;
    VerificationAssessment expected;
  };
  const UpdateBaseline two = baseline({{"a", true, 1000}, {"b", false, std::nullopt}});
  const auto of = [](std::vector<UpdateStreamHealth> streams) {
    return UpdateHealth{kTarget, std::move(streams)};
  };
  const auto aged = [&](int64_t ageMS) {
    UpdateHealth sample = of({fine("a"), fine("b")});
    sample.streams[0].frameAgeMS = ageMS;
    return sample;
  };
  UpdateStreamHealth disabled = fine("a"), down = fine("b"), notRecording = fine("a");
  disabled.enabled = false;
  down.live = false;
  notRecording.recording = false;
  UpdateStreamHealth downA = down, idleB = fine("b", std::nullopt);
  downA.id = "a";
  idleB.recording = false;
  const auto stale = A::staleStream;
  const auto notAdvanced = A::recordingNotAdvanced;
  const A healthy = A::healthy(), wrong = A::wrongVersion();
  const std::nullopt_t none = std::nullopt;
  const HealthBuild older{"1.9.9", "r", false, 0}, padded{"2.0.0 ", "", false, 0};
  const std::vector<Case> cases = {
      {"version mismatch wins even with empty baseline", baseline({}), {older, {}}, wrong},
      {"version mismatch wins over missing streams", two, {padded, {}}, wrong},
      {"empty baseline, right version", baseline({}, 3), of({}), healthy},
      {"extra streams ignored", two, of({fine("new", none), fine("b", none), fine("a")}), healthy},
      {"missing first wins over later stale", two, of({down}), A::missingStream("a")},
      {"disabled", two, of({disabled, fine("b")}), stale("a")},
      {"not live", two, of({fine("a"), down}), stale("b")},
      {"age 5000 is fresh", two, aged(5000), healthy},
      {"age 5001 is stale", two, aged(5001), stale("a")},
      {"negative age is stale", two, aged(-1), stale("a")},
      {"same segment has not advanced", two, of({fine("a", 1000), fine("b")}), notAdvanced("a")},
      {"one millisecond newer has advanced", two, of({fine("a", 1001), fine("b")}), healthy},
      {"no segment in sample", two, of({fine("a", none), fine("b")}), notAdvanced("a")},
      {"no segment in baseline", baseline({{"a", true, none}}), of({fine("a")}), notAdvanced("a")},
      {"sample's recording flag is not consulted", two, of({notRecording, fine("b")}), healthy},
      {"not recording before, nothing recorded after", two, of({fine("a"), idleB}), healthy},
      {"only the first duplicate is judged", two, of({downA, fine("a"), fine("b")}), stale("a")},
      {"signed comparison of segments", baseline({{"a", true, -5}}), of({fine("a", -4)}), healthy},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(UpdateVerifier("2.0.0", c.before).assessment(c.sample), c.expected);
  }
}

TEST(UpdateVerifier, ObserveCertifiesAfterThreeConsecutiveHealthySamples) {
  using P = VerificationProgress;
  const UpdateHealth healthy{kTarget, {fine("a")}};
  const UpdateHealth stale{kTarget, {{"a", true, true, 9000, true, 2000}}};
  const UpdateHealth wrong{{"1.0.0", "", false, 0}, {fine("a")}};
  struct Case {
    const char* name;
    UpdateBaseline before;
    std::vector<UpdateHealth> samples;
    std::vector<P> expected;
  };
  const std::vector<Case> cases = {
      {"run broken by a stale sample",
       baseline({{"a", true, 1000}}),
       {healthy, healthy, stale, healthy, healthy, healthy, healthy},
       {P::pending, P::pending, P::pending, P::pending, P::pending, P::certified, P::certified}},
      {"wrong version also resets",
       baseline({{"a", true, 1000}}),
       {healthy, healthy, wrong, healthy, healthy, healthy},
       {P::pending, P::pending, P::pending, P::pending, P::pending, P::certified}},
      {"no configured streams: first healthy sample certifies",
       baseline({}, 0),
       {wrong, healthy, healthy},
       {P::pending, P::certified, P::certified}},
      {"configured but empty baseline still needs three",
       baseline({}, 2),
       {healthy, healthy, healthy},
       {P::pending, P::pending, P::certified}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    UpdateVerifier verifier("2.0.0", c.before);
    std::vector<P> progress;
    for (const UpdateHealth& sample : c.samples) progress.push_back(verifier.observe(sample));
    EXPECT_EQ(progress, c.expected);
  }
}

}  // namespace
}  // namespace zev
