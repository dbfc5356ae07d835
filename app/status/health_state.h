// The latest health of the daemon as the status item last saw it: the decoded
// document (absent when the last poll failed), its colour and the time of the
// last poll attempt. The popover observes it through `changed`.
//
// GUI thread only. Written by StatusItemController after every poll, read by
// PopoverView.
#ifndef ZEV_APP_HEALTH_STATE_H_
#define ZEV_APP_HEALTH_STATE_H_

#include <QObject>
#include <chrono>
#include <optional>

#include "core/health/health_status.h"
#include "core/health/health_summary.h"

namespace zev {

class HealthState : public QObject {
  Q_OBJECT

 public:
  explicit HealthState(QObject* parent = nullptr);

  const std::optional<HealthSummary>& summary() const { return m_summary; }
  HealthStatus status() const { return m_status; }
  // The time of the last poll, successful or not.
  const std::optional<std::chrono::system_clock::time_point>& lastUpdated() const {
    return m_lastUpdated;
  }

  // Sets summary, status and lastUpdated, in that order, then emits `changed`
  // once, so observers never see a half-applied poll.
  void update(std::optional<HealthSummary> summary, HealthStatus status,
              std::chrono::system_clock::time_point lastUpdated);

 signals:
  void changed();

 private:
  std::optional<HealthSummary> m_summary;
  HealthStatus m_status = HealthStatus::red;
  std::optional<std::chrono::system_clock::time_point> m_lastUpdated;
};

}  // namespace zev

#endif  // ZEV_APP_HEALTH_STATE_H_
