#include "core/updates/update_notification.h"

#include <gtest/gtest.h>

#include <string>

namespace zev {
namespace {

// An attempt from 1.4.2 whose baseline holds five streams of four cameras.
UpdateTransaction attempt(UpdateState state, std::string target = "1.5.0",
                          std::optional<std::string> reason = std::nullopt) {
  const Timestamp at = timestampFromMillisecondsSince1970(1763683200000);
  UpdateBaseline baseline{at, 5, {}};
  for (const char* id : {"cam1/main", "cam1/sub", "cam2/main", "cam3/main", "cam4/main"}) {
    baseline.streams.push_back({id, true, 1});
  }
  UpdateTransaction transaction("1.4.2", std::move(target), baseline, "/a", at, Uuid());
  transaction.setState(state);
  transaction.setFailureReason(std::move(reason));
  return transaction;
}

HealthSummary live(int liveCameras, int total) {
  HealthSummary summary;
  for (int i = 0; i < total; ++i) summary.cameras.push_back({.id = "c", .live = i < liveCameras});
  return summary;
}

TEST(UpdateNotification, NamesVersionAndOutcome) {
  using S = UpdateState;
  const struct {
    const char* name;
    UpdateTransaction transaction;
    std::optional<HealthSummary> latest;
    std::string expected;  // "target: title | body", or "" for none
  } cases[] = {
      {"certified, cameras from the baseline", attempt(S::certified), std::nullopt,
       "popover: ZEV 1.5.0 certified: all 4 cameras recording | Updated from 1.4.2"},
      {"certified, cameras from the latest health", attempt(S::certified), live(3, 4),
       "popover: ZEV 1.5.0 certified: 3 of 4 cameras recording | Updated from 1.4.2"},
      {"failed names the reason, one line",
       attempt(S::failed, "1.5.0", "verification timed out\nafter 180 s"), std::nullopt,
       "log: ZEV 1.5.0 update failed | verification timed out after 180 s"},
      {"failed without a reason", attempt(S::failed), std::nullopt,
       "log: ZEV 1.5.0 update failed | No reason was recorded"},
      {"rolled back without a reason", attempt(S::rolledBack), std::nullopt,
       "log: ZEV 1.5.0 update failed | The previous build was restored"},
      {"a hostile version is cut", attempt(S::failed, std::string(500, '9'), "x"), std::nullopt,
       "log: ZEV 99999999999999999999999… update failed | x"},
      {"markup in a version never reaches the title", attempt(S::certified, "<b>1.5</b>&amp;\n"),
       live(1, 1), "popover: ZEV b1.5bamp certified: the camera is recording | Updated from 1.4.2"},
      {"unfinished attempts say nothing", attempt(S::verifying), std::nullopt, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const auto n = updateNotification(c.transaction, c.latest);
    const char* target = n && n->target == NotificationTarget::popover ? "popover: " : "log: ";
    EXPECT_EQ(n ? target + n->title + " | " + n->body : "", c.expected);
  }
}

}  // namespace
}  // namespace zev
