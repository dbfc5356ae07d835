#include "app/status/health_state.h"

#include <utility>

namespace zev {

HealthState::HealthState(QObject* parent) : QObject(parent) {}

void HealthState::update(std::optional<HealthSummary> summary, HealthStatus status,
                         std::chrono::system_clock::time_point lastUpdated) {
  m_summary = std::move(summary);
  m_status = status;
  m_lastUpdated = lastUpdated;
  emit changed();
}

}  // namespace zev
