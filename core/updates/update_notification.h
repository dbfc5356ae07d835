// The desktop notification that ends an update attempt: one when the new
// build is certified, one when it fails, naming the version and the reason.
// Pure function of the finished transaction; no Qt.
#ifndef ZEV_CORE_UPDATES_UPDATE_NOTIFICATION_H_
#define ZEV_CORE_UPDATES_UPDATE_NOTIFICATION_H_

#include <optional>

#include "core/health/health_summary.h"
#include "core/health/notification_rules.h"
#include "core/updates/update_transaction.h"

namespace zev {

// Versions come from the update feed and the transaction file: only letters,
// digits and . - + _ ~ are shown, and longer ones are cut.
inline constexpr std::size_t notificationVersionMaxChars = 24;

// "ZEV 1.5.0 certified: all 4 cameras recording" for a certified attempt, or
// "ZEV 1.5.0 update failed" with the failure reason for a failed or rolled
// back one; nothing for an attempt that has not finished. The camera count
// is the latest health's when one is given, else the cameras that were
// healthy in the attempt's baseline (certification means they are again).
std::optional<Notification> updateNotification(const UpdateTransaction& transaction,
                                               const std::optional<HealthSummary>& latest);

}  // namespace zev

#endif  // ZEV_CORE_UPDATES_UPDATE_NOTIFICATION_H_
