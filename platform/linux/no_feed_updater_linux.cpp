#include "platform/linux/no_feed_updater_linux.h"

namespace zev {

void NoFeedUpdater::checkForUpdates() {
  if (!m_delegate) return;
  UpdateCheckFeedback feedback;
  feedback.kind = UpdateCheckFeedback::Kind::error;
  feedback.errorDescription = "This build has no update feed configured.";
  m_delegate->showUserInitiatedCheckFeedback(feedback);
}

}  // namespace zev
