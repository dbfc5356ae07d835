#include "core/updates/update_notification.h"

#include <set>
#include <string>

namespace zev {
namespace {

// Versions are shown in titles, which some notification servers read as
// markup: only the characters versions are made of get through.
std::string versionText(std::string_view version) {
  std::string kept;
  for (char c : version) {
    const bool safe = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                      c == '.' || c == '-' || c == '+' || c == '_' || c == '~';
    if (safe) kept += c;
    if (kept.size() > notificationVersionMaxChars) break;
  }
  return plainNotificationText(kept, notificationVersionMaxChars);
}

std::string cameraCountText(const UpdateTransaction& transaction,
                            const std::optional<HealthSummary>& latest) {
  int64_t live = 0;
  int64_t total = 0;
  if (latest) {
    live = latest->liveCameras();
    total = latest->totalCameras();
  } else {
    // Baseline stream ids are "<camera>/<stream>".
    std::set<std::string> cameras;
    for (const BaselineStream& stream : transaction.baseline().streams) {
      cameras.insert(stream.id.substr(0, stream.id.find('/')));
    }
    live = total = static_cast<int64_t>(cameras.size());
  }
  if (total <= 0) return {};
  if (live == total) {
    return total == 1 ? ": the camera is recording"
                      : ": all " + std::to_string(total) + " cameras recording";
  }
  return ": " + std::to_string(live) + " of " + std::to_string(total) + " cameras recording";
}

}  // namespace

std::optional<Notification> updateNotification(const UpdateTransaction& transaction,
                                               const std::optional<HealthSummary>& latest) {
  std::string version = versionText(transaction.targetVersion());
  if (version.empty()) version = "update";
  switch (transaction.state()) {
    case UpdateState::certified: {
      std::string body;
      const std::string from = versionText(transaction.sourceVersion());
      if (!from.empty()) body = "Updated from " + from;
      return Notification{NotificationKind::updateCertified,
                          plainNotificationText("ZEV " + version + " certified" +
                                                    cameraCountText(transaction, latest),
                                                notificationTitleMaxChars),
                          body, NotificationTarget::popover};
    }
    case UpdateState::failed:
    case UpdateState::rolledBack: {
      std::string reason =
          plainNotificationText(transaction.failureReason().value_or(""), notificationBodyMaxChars);
      if (reason.empty()) {
        reason = transaction.state() == UpdateState::rolledBack ? "The previous build was restored"
                                                                : "No reason was recorded";
      }
      return Notification{
          NotificationKind::updateFailed,
          plainNotificationText("ZEV " + version + " update failed", notificationTitleMaxChars),
          reason, NotificationTarget::logWindow};
    }
    case UpdateState::preparing:
    case UpdateState::installing:
    case UpdateState::verifying:
      break;
  }
  return std::nullopt;
}

}  // namespace zev
