#include "core/updates/update_notification.h"

#include <gtest/gtest.h>

#include <string>

namespace zev {
namespace {

UpdateTransaction attempt(UpdateState state, std::string target = "1.5.0",
                          std::optional<std::string> reason = std::nullopt) {
  const Timestamp at = timestampFromMillisecondsSince1970(1763683200000);
  UpdateBaseline baseline{at,
                          5,
                          {{"cam1/main", true, 1},
                           {"cam1/sub", true, 1},
                           {"cam2/main", true, 1},
                           {"cam3/main", true, 1},
                           {"cam4/main", true, 1}}};
  UpdateTransaction transaction("1.4.2", std::move(target), baseline, "/a", at, Uuid());
  transaction.setState(state);
  transaction.setFailureReason(std::move(reason));
  return transaction;
}

HealthSummary live(int liveCameras, int total) {
  HealthSummary summary;
  for (int i = 0; i < total; ++i) {
    HealthCamera camera;
    camera.id = "c" + std::to_string(i);
    camera.live = i < liveCameras;
    summary.cameras.push_back(camera);
  }
  return summary;
}

TEST(UpdateNotification, NamesVersionAndOutcome) {
  const struct {
    const char* name;
    UpdateTransaction transaction;
    std::optional<HealthSummary> latest;
    std::string expected;  // "title | body", or "" for none
  } cases[] = {
      {"certified, cameras from the baseline", attempt(UpdateState::certified), std::nullopt,
       "ZEV 1.5.0 certified: all 4 cameras recording | Updated from 1.4.2"},
      {"certified, cameras from the latest health", attempt(UpdateState::certified), live(3, 4),
       "ZEV 1.5.0 certified: 3 of 4 cameras recording | Updated from 1.4.2"},
      {"failed names the reason, one line",
       attempt(UpdateState::failed, "1.5.0", "verification timed out\nafter 180 s"), std::nullopt,
       "ZEV 1.5.0 update failed | verification timed out after 180 s"},
      {"failed without a reason", attempt(UpdateState::failed), std::nullopt,
       "ZEV 1.5.0 update failed | No reason was recorded"},
      {"a hostile version is cut", attempt(UpdateState::failed, std::string(500, '9'), "x"),
       std::nullopt, "ZEV 99999999999999999999999… update failed | x"},
      {"markup in a version never reaches the title",
       attempt(UpdateState::certified, "<b>1.5</b>&amp;\n"), live(1, 1),
       "ZEV b1.5bamp certified: the camera is recording | Updated from 1.4.2"},
      {"unfinished attempts say nothing", attempt(UpdateState::verifying), std::nullopt, ""},
      {"nor does one being prepared", attempt(UpdateState::preparing), std::nullopt, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const auto n = updateNotification(c.transaction, c.latest);
    EXPECT_EQ(n ? n->title + " | " + n->body : "", c.expected);
    if (n) {
      EXPECT_EQ(n->target, c.transaction.state() == UpdateState::certified
                               ? NotificationTarget::popover
                               : NotificationTarget::logWindow);
    }
  }
}

}  // namespace
}  // namespace zev
