// A Notifier that records what it was asked to show and lets the test play
// the user's click.
#ifndef ZEV_TESTS_APP_FAKES_FAKE_NOTIFIER_H_
#define ZEV_TESTS_APP_FAKES_FAKE_NOTIFIER_H_

#include <functional>
#include <vector>

#include "app/ports/notifier.h"

namespace zev::testing {

class FakeNotifier : public Notifier {
 public:
  std::vector<Notification> shown;

  void show(const Notification& notification) override { shown.push_back(notification); }
  void setActivationHandler(std::function<void(NotificationTarget)> handler) override {
    m_handler = std::move(handler);
  }
  // Plays a click on a notification with `target`.
  void click(NotificationTarget target) {
    if (m_handler) m_handler(target);
  }

 private:
  std::function<void(NotificationTarget)> m_handler;
};

}  // namespace zev::testing

#endif  // ZEV_TESTS_APP_FAKES_FAKE_NOTIFIER_H_
