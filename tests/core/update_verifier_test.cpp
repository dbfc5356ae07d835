#include "core/update_verifier.h"

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
  auto with = [](UpdateStreamHealth s, auto change) {
    change(s);
    return s;
  };
  const std::vector<Case> cases = {
      {"version mismatch wins even with empty baseline",
       baseline({}),
       {{"1.9.9", "r", false, 0}, {}},
       A::wrongVersion()},
      {"version mismatch wins over missing streams",
       two,
       {{"2.0.0 ", "", false, 0}, {}},
       A::wrongVersion()},
      {"empty baseline, right version", baseline({}, 3), {kTarget, {}}, A::healthy()},
      {"all baseline streams fine; extra streams ignored",
       two,
       {kTarget, {fine("new", std::nullopt), fine("b", std::nullopt), fine("a")}},
       A::healthy()},
      {"missing first wins over later stale",
       two,
       {kTarget, {with(fine("b"), [](auto& s) { s.live = false; })}},
       A::missingStream("a")},
      {"disabled",
       two,
       {kTarget, {with(fine("a"), [](auto& s) { s.enabled = false; }), fine("b")}},
       A::staleStream("a")},
      {"not live",
       two,
       {kTarget, {fine("a"), with(fine("b"), [](auto& s) { s.live = false; })}},
       A::staleStream("b")},
      {"age 5000 is fresh",
       two,
       {kTarget, {with(fine("a"), [](auto& s) { s.frameAgeMS = 5000; }), fine("b")}},
       A::healthy()},
      {"age 5001 is stale",
       two,
       {kTarget, {with(fine("a"), [](auto& s) { s.frameAgeMS = 5001; }), fine("b")}},
       A::staleStream("a")},
      {"negative age is stale",
       two,
       {kTarget, {with(fine("a"), [](auto& s) { s.frameAgeMS = -1; }), fine("b")}},
       A::staleStream("a")},
      {"same segment has not advanced",
       two,
       {kTarget, {fine("a", 1000), fine("b")}},
       A::recordingNotAdvanced("a")},
      {"one millisecond newer has advanced",
       two,
       {kTarget, {fine("a", 1001), fine("b")}},
       A::healthy()},
      {"no segment in sample",
       two,
       {kTarget, {fine("a", std::nullopt), fine("b")}},
       A::recordingNotAdvanced("a")},
      {"no segment in baseline",
       baseline({{"a", true, std::nullopt}}),
       {kTarget, {fine("a")}},
       A::recordingNotAdvanced("a")},
      {"sample's recording flag is not consulted",
       two,
       {kTarget, {with(fine("a"), [](auto& s) { s.recording = false; }), fine("b")}},
       A::healthy()},
      {"not recording before, nothing recorded after",
       two,
       {kTarget, {fine("a"), with(fine("b", std::nullopt), [](auto& s) { s.recording = false; })}},
       A::healthy()},
      {"only the first duplicate is judged",
       two,
       {kTarget, {with(fine("a"), [](auto& s) { s.live = false; }), fine("a"), fine("b")}},
       A::staleStream("a")},
      {"signed comparison of segments",
       baseline({{"a", true, -5}}),
       {kTarget, {fine("a", -4)}},
       A::healthy()},
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
