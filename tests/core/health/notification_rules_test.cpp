#include "core/health/notification_rules.h"

#include <gtest/gtest.h>

#include <limits>
#include <sstream>
#include <string>
#include <vector>

namespace zev {
namespace {

using Time = HealthNotificationRules::Clock::time_point;

HealthSummary cameras(int live, int total) {
  HealthSummary summary{.liveStreams = live, .totalStreams = total, .degraded = false};
  for (int i = 0; i < total; ++i) {
    const std::string n = std::to_string(i);
    summary.cameras.push_back({"cam" + n, "Camera " + n, i < live, 0, {}, {}, {}});
  }
  return summary;
}

const HealthSummary kHealthy = cameras(4, 4);
const HealthSummary kAllDown = cameras(0, 4);
const HealthSummary kOneDown = cameras(0, 1);
const HealthSummary kDegraded{
    .totalStreams = 4, .degraded = true,
    .degradedReasons = {"more:0", "uplink on <b>wifi</b>\n& slow", "disk 91 % full", "more:2"}};

// A poll by letter: 'g'reen, 'y'ellow, red with all cameras 'd'own or the
// 'o'nly one down, else unreachable. (The failures' own texts are the
// notification controller's test's, on a real HTTP exchange.)
PollObservation observation(char what) {
  switch (what) {
    case 'g': return {HealthStatus::green, &kHealthy, PollFailure::none};
    case 'y': return {HealthStatus::yellow, &kDegraded, PollFailure::none};
    case 'd': return {HealthStatus::red, &kAllDown, PollFailure::none};
    case 'o': return {HealthStatus::red, &kOneDown, PollFailure::none};
    default: return {HealthStatus::red, nullptr, PollFailure::unreachable};
  }
}

TEST(HealthNotificationRules, NotifiesOncePerConfirmedChange) {
  // Polls (see observation()), each followed by its time in seconds.
  const std::string red = "ZEV recording stopped | ";
  const std::string stopped = red + "The daemon is unreachable";
  const std::string healthy = "ZEV recording is healthy again | 4/4 cameras live";
  const std::string degraded = "ZEV recording degraded | uplink on <b>wifi</b> & slow (+4 more)";
  const struct {
    const char* name;
    const char* polls;
    std::vector<std::string> expected;  // "@<seconds> title | body"
  } cases[] = {
      {"start-up colour is not news, nor is recovering from it", "r0 r5 r10 g15 g20", {}},
      {"one red poll is flapping", "g0 r5 g10 r15 g20", {}},
      {"alternating red and yellow never settles", "g0 r5 y10 r15 y20", {}},
      {"second poll too soon (popover opened) waits for the next, 4 s will do", "g0 d5 d6 d9",
       {"@9 " + red + "All 4 cameras are down"}},
      {"yellow names the first reason, plain", "g0 y5 y10 g15 g20",
       {"@10 " + degraded, "@20 " + healthy}},
      {"yellow, then red for the only camera, then recovery", "g0 y5 y10 o15 o20 g25 g30",
       {"@10 " + degraded, "@20 " + red + "The camera is down", "@30 " + healthy}},
      // and once told, red stays quiet
      {"clock jumping back restarts the wait", "g100 r105 r50 r52 r55 r60 r65", {"@55 " + stopped}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    HealthNotificationRules rules;
    std::vector<std::string> got;
    std::istringstream polls(c.polls);
    char what;
    int at;
    while (polls >> what >> at) {
      if (auto n = rules.observe(observation(what), Time(std::chrono::seconds(at)))) {
        got.push_back("@" + std::to_string(at) + " " + n->title + " | " + n->body);
      }
    }
    EXPECT_EQ(got, c.expected);
  }
}

TEST(HealthNotificationRules, YellowReasonFallsBackFromReasonsToCamerasToFigures) {
  HealthSummary twoDown = cameras(2, 4);
  twoDown.cameras[2].name = "Garage\u202E";  // a bidi override must not reach the screen
  twoDown.cameras[3].name = "";              // nameless: its id stands in
  twoDown.degradedReasons = {"more:7", "   "};  // marker and blank reasons are skipped
  // No reason, no camera down, no verdict: the figures speak.
  const auto figures = [](double thumbDropRatio, int64_t newestFrameAgeMS) {
    return HealthSummary{
        .totalStreams = 4, .newestFrameAgeMS = newestFrameAgeMS, .thumbDropRatio = thumbDropRatio};
  };
  HealthSummary overflowing = kDegraded;
  overflowing.degradedReasons = {"disk full", "more:9223372036854775807"};
  const struct {
    HealthSummary summary;
    const char* reason;
  } cases[] = {
      {cameras(0, 0), "No cameras are configured"},
      {twoDown, "2 cameras down: Garage, cam3"},
      {figures(0.26, 0), "Thumbnail drops at 26 %"},
      {figures(std::numeric_limits<double>::quiet_NaN(), 0), "Thumbnail drops are too high"},
      {figures(0, 2500), "Newest frame is 2.5 s old"},
      {overflowing, "disk full"},  // a count that would overflow is left out
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.reason);
    EXPECT_EQ(yellowReason(c.summary), c.reason);
  }
}

TEST(PlainNotificationText, OneCappedLineOfValidUTF8) {
  const struct {
    std::string in;
    std::size_t max;
    std::string out;
  } cases[] = {
      {"  two\n\tlines\r\n ", 80, "two lines"},
      {"bad \xC3 byte", 80, "bad \uFFFD byte"},
      {"a\u202Eb\u2066c", 80, "abc"},
      {"a\x1b[31mred", 80, "a [31mred"},
      {"exactly10!", 10, "exactly10!"},
      {"word word word", 10, "word word…"},
      {"abcd efgh", 6, "abcd…"},  // no blank before the ellipsis
      {"ééééé", 3, "éé…"},        // cut between code points, never inside one
      {"abc", 0, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.in);
    EXPECT_EQ(plainNotificationText(c.in, c.max), c.out);
  }
}

}  // namespace
}  // namespace zev
