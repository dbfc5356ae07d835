// When the launcher tells the user about the daemon's health with a desktop
// notification, and what the notification says.
//
// HealthNotificationRules watches the colour of every poll. A new colour must
// hold for two consecutive polls, at least `minimumHold` apart, before it
// counts: a dot that flaps for one poll says nothing. The first colour after
// start-up only sets the starting point. Each confirmed change gives at most
// one notification: red "ZEV recording stopped", yellow "ZEV recording
// degraded", and green only when a red or yellow one was shown before.
//
// Plain values, no Qt; not thread-safe (the app drives it from the GUI
// thread). Daemon-provided text is passed through plainNotificationText, so a
// notification is always a short single line of valid UTF-8.
#ifndef ZEV_CORE_HEALTH_NOTIFICATION_RULES_H_
#define ZEV_CORE_HEALTH_NOTIFICATION_RULES_H_

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "core/health/health_status.h"
#include "core/health/health_summary.h"

namespace zev {

// Where a click on the notification should take the user.
enum class NotificationTarget { popover, logWindow };

// What a notification is about; the platform uses it for urgency.
enum class NotificationKind {
  recordingStopped,
  recordingDegraded,
  recordingHealthy,
  updateCertified,
  updateFailed,
};

struct Notification {
  NotificationKind kind;
  std::string title;  // one line; only our own words, digits and version characters
  std::string body;   // one line, no markup; may be empty
  NotificationTarget target;

  bool operator==(const Notification&) const = default;
};

// Caps for text that reaches a notification.
inline constexpr std::size_t notificationTitleMaxChars = 80;
inline constexpr std::size_t notificationBodyMaxChars = 160;

// `text` as one line of plain text: invalid UTF-8 becomes U+FFFD, control
// characters and line breaks become blanks, bidirectional overrides are
// dropped, runs of whitespace shrink to one blank, the ends are trimmed, and
// anything past `maxChars` code points is cut, ending in "…". Markup
// characters are left alone: escaping is the business of the platform that
// would interpret them.
std::string plainNotificationText(std::string_view text, std::size_t maxChars);

// Why a poll produced no health document.
enum class PollFailure {
  none,         // a document was decoded
  unreachable,  // refused, reset, no route
  timedOut,     // no answer within the request's time-out
  httpStatus,   // answered with another status than 200
  undecodable,  // a 200 whose body is missing or does not decode
};

// One poll as the rules see it.
struct PollObservation {
  HealthStatus status = HealthStatus::red;
  const HealthSummary* summary = nullptr;  // null without a document
  PollFailure failure = PollFailure::unreachable;
  int httpStatus = 0;  // meaningful with PollFailure::httpStatus
};

// The one-line reason a red poll gives: "zevd is not answering", "zevd
// answered HTTP 503", "All 4 cameras are down", ...
std::string redReason(const PollObservation& poll);
// The one-line reason of a yellow poll: the daemon's first degradation reason,
// else the cameras that are down, else what made the figures yellow.
std::string yellowReason(const HealthSummary& summary);

class HealthNotificationRules {
 public:
  using Clock = std::chrono::system_clock;
  // Polls come every 5 s; two of them closer than this (an extra poll when
  // the popover opens) are not yet two polls' worth of evidence.
  static constexpr std::chrono::milliseconds defaultMinimumHold{4000};

  explicit HealthNotificationRules(std::chrono::milliseconds minimumHold = defaultMinimumHold)
      : m_minimumHold(minimumHold) {}

  // Feeds one poll, at `now`; returns the notification it makes due, if any.
  std::optional<Notification> observe(const PollObservation& poll, Clock::time_point now);

  // The colour the rules last confirmed (none before the first poll).
  std::optional<HealthStatus> settledStatus() const { return m_settled; }

 private:
  std::chrono::milliseconds m_minimumHold;
  std::optional<HealthStatus> m_settled;
  bool m_problemAnnounced = false;  // a red or yellow notification was shown
  std::optional<HealthStatus> m_pending;
  Clock::time_point m_pendingSince;
};

}  // namespace zev

#endif  // ZEV_CORE_HEALTH_NOTIFICATION_RULES_H_
