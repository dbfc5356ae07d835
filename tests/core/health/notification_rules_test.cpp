#include "core/health/notification_rules.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

namespace zev {
namespace {

using std::chrono::seconds;
using Time = HealthNotificationRules::Clock::time_point;

HealthSummary cameras(int live, int total) {
  HealthSummary summary;
  summary.totalStreams = total;
  summary.liveStreams = live;
  summary.degraded = false;
  for (int i = 0; i < total; ++i) {
    HealthCamera camera;
    camera.id = "cam" + std::to_string(i);
    camera.name = "Camera " + std::to_string(i);
    camera.live = i < live;
    summary.cameras.push_back(camera);
  }
  return summary;
}

const HealthSummary kHealthy = cameras(4, 4);
const HealthSummary kAllDown = cameras(0, 4);
const HealthSummary kDegraded = [] {
  HealthSummary summary = cameras(4, 4);
  summary.degraded = true;
  summary.degradedReasons = {"more:0", "uplink on <b>wifi</b>\n& slow", "disk 91 % full", "more:2"};
  return summary;
}();

// One poll of a sequence: 'g', 'y', 'r' (unreachable) or 'd' (red, all
// cameras down), at a time in seconds.
struct Poll {
  char what;
  int atSeconds;
};

PollObservation observation(char what) {
  switch (what) {
    case 'g':
      return {HealthStatus::green, &kHealthy, PollFailure::none};
    case 'y':
      return {HealthStatus::yellow, &kDegraded, PollFailure::none};
    case 'd':
      return {HealthStatus::red, &kAllDown, PollFailure::none};
    default:
      return {HealthStatus::red, nullptr, PollFailure::unreachable};
  }
}

TEST(HealthNotificationRules, NotifiesOncePerConfirmedChange) {
  const struct {
    const char* name;
    std::vector<Poll> polls;
    std::vector<std::string> expected;  // "@<seconds> title | body"
  } cases[] = {
      {"start-up colour is not news, red or green", {{'r', 0}, {'r', 5}, {'r', 10}}, {}},
      {"start-up green stays quiet", {{'g', 0}, {'g', 5}}, {}},
      {"red for two polls",
       {{'g', 0}, {'r', 5}, {'r', 10}, {'r', 15}, {'r', 20}},
       {"@10 ZEV recording stopped | The daemon is unreachable"}},
      {"one red poll is flapping", {{'g', 0}, {'r', 5}, {'g', 10}, {'r', 15}, {'g', 20}}, {}},
      {"alternating red and yellow never settles",
       {{'g', 0}, {'r', 5}, {'y', 10}, {'r', 15}, {'y', 20}},
       {}},
      {"second poll too soon (popover opened) waits for the next",
       {{'g', 0}, {'d', 5}, {'d', 6}, {'d', 10}},
       {"@10 ZEV recording stopped | All 4 cameras are down"}},
      {"recovery after a red notification",
       {{'g', 0}, {'r', 5}, {'r', 10}, {'g', 15}, {'g', 20}, {'g', 25}},
       {"@10 ZEV recording stopped | The daemon is unreachable",
        "@20 ZEV recording is healthy again | 4/4 cameras live"}},
      {"recovery from a start-up red is not announced", {{'r', 0}, {'g', 5}, {'g', 10}}, {}},
      {"yellow names the first reason, plain, with the rest counted",
       {{'g', 0}, {'y', 5}, {'y', 10}, {'g', 15}, {'g', 20}},
       {"@10 ZEV recording degraded | uplink on <b>wifi</b> & slow (+4 more)",
        "@20 ZEV recording is healthy again | 4/4 cameras live"}},
      {"yellow then red is a second change",
       {{'g', 0}, {'y', 5}, {'y', 10}, {'r', 15}, {'r', 20}},
       {"@10 ZEV recording degraded | uplink on <b>wifi</b> & slow (+4 more)",
        "@20 ZEV recording stopped | The daemon is unreachable"}},
      {"a clock that jumps back restarts the wait",
       {{'g', 100}, {'r', 105}, {'r', 50}, {'r', 52}, {'r', 55}},
       {"@55 ZEV recording stopped | The daemon is unreachable"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    HealthNotificationRules rules;
    std::vector<std::string> got;
    for (const Poll& poll : c.polls) {
      if (auto n = rules.observe(observation(poll.what), Time(seconds(poll.atSeconds)))) {
        got.push_back("@" + std::to_string(poll.atSeconds) + " " + n->title + " | " + n->body);
      }
    }
    EXPECT_EQ(got, c.expected);
  }
}

TEST(HealthNotificationRules, RedReasonNamesWhatFailed) {
  HealthSummary oneCamera = cameras(0, 1);
  const struct {
    PollObservation poll;
    const char* reason;
  } cases[] = {
      {{HealthStatus::red, nullptr, PollFailure::unreachable}, "The daemon is unreachable"},
      {{HealthStatus::red, nullptr, PollFailure::timedOut}, "The daemon did not answer in time"},
      {{HealthStatus::red, nullptr, PollFailure::httpStatus, 503}, "The daemon answered HTTP 503"},
      {{HealthStatus::red, nullptr, PollFailure::undecodable},
       "The daemon's health report could not be read"},
      {{HealthStatus::red, &kAllDown, PollFailure::none}, "All 4 cameras are down"},
      {{HealthStatus::red, &oneCamera, PollFailure::none}, "The camera is down"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.reason);
    EXPECT_EQ(redReason(c.poll), c.reason);
  }
}

TEST(HealthNotificationRules, YellowReasonFallsBackFromReasonsToCamerasToFigures) {
  HealthSummary twoDown = cameras(2, 4);
  twoDown.degraded = true;
  twoDown.cameras[2].name = "Garage\u202E";  // a bidi override must not reach the screen
  twoDown.cameras[3].name = "";              // nameless: its id stands in
  HealthSummary onlyMarker = twoDown;
  onlyMarker.degradedReasons = {"more:7", "   "};
  HealthSummary thumbs = cameras(4, 4);
  thumbs.degraded.reset();
  thumbs.thumbDropRatio = 0.26;
  HealthSummary nanThumbs = thumbs;
  nanThumbs.thumbDropRatio = std::numeric_limits<double>::quiet_NaN();
  HealthSummary stale = cameras(4, 4);
  stale.degraded.reset();
  stale.newestFrameAgeMS = 2500;
  HealthSummary overflowing = kDegraded;
  overflowing.degradedReasons = {"disk full", "more:9223372036854775807"};
  const struct {
    const char* name;
    HealthSummary summary;
    const char* reason;
  } cases[] = {
      {"nothing configured", cameras(0, 0), "No cameras are configured"},
      {"cameras down", twoDown, "2 cameras down: Garage, cam3"},
      {"marker and blank reasons are skipped", onlyMarker, "2 cameras down: Garage, cam3"},
      {"thumbnail drops", thumbs, "Thumbnail drops at 26 %"},
      {"thumbnail ratio not a number", nanThumbs, "Thumbnail drops are too high"},
      {"stale frame", stale, "Newest frame is 2.5 s old"},
      {"issue count that would overflow is left out", overflowing, "disk full"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
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
      {"exactly10!x", 10, "exactly10…"},
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
