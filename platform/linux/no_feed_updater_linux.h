// An updater without a feed: what Linux has until its own updater arrives.
// It reports no feed address, and checks find nothing. A user-initiated check
// says so through the delegate instead of staying silent.
#ifndef ZEV_PLATFORM_LINUX_NO_FEED_UPDATER_LINUX_H_
#define ZEV_PLATFORM_LINUX_NO_FEED_UPDATER_LINUX_H_

#include "app/ports/updater.h"

namespace zev {

class NoFeedUpdater : public Updater {
 public:
  void start(UpdaterDelegate& delegate) override { m_delegate = &delegate; }
  void setAutomaticallyChecksForUpdates(bool) override {}
  void setAutomaticallyDownloadsUpdates(bool) override {}
  std::optional<std::string> feedURL() const override { return std::nullopt; }
  void checkForUpdatesInBackground() override {}
  void checkForUpdates() override;

 private:
  UpdaterDelegate* m_delegate = nullptr;
};

}  // namespace zev

#endif  // ZEV_PLATFORM_LINUX_NO_FEED_UPDATER_LINUX_H_
