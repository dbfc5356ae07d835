// The small window that answers a user-initiated update check on systems
// whose updater has no window of its own: "Checking for updates…", then
// "You're up to date.", the offer of a new version (with Install and Later),
// or the error. One window, reused by each step of a check; never modal, so
// nothing waits for the user. Texts are shown as plain text. GUI thread.
#ifndef ZEV_APP_UPDATES_UPDATE_CHECK_FEEDBACK_WINDOW_H_
#define ZEV_APP_UPDATES_UPDATE_CHECK_FEEDBACK_WINDOW_H_

#include <QPointer>
#include <QString>

#include "app/ports/updater.h"

class QMessageBox;

namespace zev {

class UpdateCheckFeedbackWindow {
 public:
  UpdateCheckFeedbackWindow() = default;
  ~UpdateCheckFeedbackWindow();
  UpdateCheckFeedbackWindow(const UpdateCheckFeedbackWindow&) = delete;
  UpdateCheckFeedbackWindow& operator=(const UpdateCheckFeedbackWindow&) = delete;

  void show(const UpdateCheckFeedback& feedback);

  // The window's main text for a step of a check.
  static QString text(const UpdateCheckFeedback& feedback);

  QMessageBox* window() const;

 private:
  QPointer<QMessageBox> m_box;
};

}  // namespace zev

#endif  // ZEV_APP_UPDATES_UPDATE_CHECK_FEEDBACK_WINDOW_H_
