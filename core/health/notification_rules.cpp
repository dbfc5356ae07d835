#include "core/health/notification_rules.h"

#include <cmath>
#include <cstdio>
#include <vector>

#include "core/logs/unicode_text.h"

namespace zev {
namespace {

constexpr std::string_view kEllipsis = "…";
constexpr std::size_t kCameraNameMaxChars = 40;
constexpr std::size_t kReasonMaxChars = 120;

// Bidirectional embeddings, overrides and isolates: they can make a reason
// read backwards, so they never reach the screen.
bool isBidiControl(char32_t c) {
  return (c >= 0x202A && c <= 0x202E) || (c >= 0x2066 && c <= 0x2069) || c == 0x200E ||
         c == 0x200F || c == 0x061C;
}

bool isControl(char32_t c) { return c < 0x20 || (c >= 0x7F && c <= 0x9F); }

void appendCodePoint(char32_t c, std::string& out) {
  if (c < 0x80) {
    out += char(c);
  } else if (c < 0x800) {
    out += char(0xC0 | (c >> 6));
    out += char(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    out += char(0xE0 | (c >> 12));
    out += char(0x80 | ((c >> 6) & 0x3F));
    out += char(0x80 | (c & 0x3F));
  } else {
    out += char(0xF0 | (c >> 18));
    out += char(0x80 | ((c >> 12) & 0x3F));
    out += char(0x80 | ((c >> 6) & 0x3F));
    out += char(0x80 | (c & 0x3F));
  }
}

std::string cameraList(const HealthSummary& summary) {
  std::vector<std::string> down;
  for (const HealthCamera& camera : summary.cameras) {
    if (!camera.live) {
      const std::string name = plainNotificationText(camera.name, kCameraNameMaxChars);
      down.push_back(name.empty() ? plainNotificationText(camera.id, kCameraNameMaxChars) : name);
    }
  }
  if (down.empty()) return {};
  std::string text =
      down.size() == 1 ? "Camera down: " : std::to_string(down.size()) + " cameras down: ";
  for (std::size_t i = 0; i < down.size(); ++i) {
    if (i) text += ", ";
    text += down[i];
    // The body cap would cut it anyway; stop building early for a daemon
    // that reports thousands of cameras.
    if (text.size() > 4 * notificationBodyMaxChars) break;
  }
  return text;
}

}  // namespace

std::string plainNotificationText(std::string_view text, std::size_t maxChars) {
  std::string out;
  std::size_t chars = 0;
  bool pendingBlank = false;
  bool cut = false;
  // Byte offset in `out` after the last code point that still leaves room
  // for the ellipsis, should the text turn out too long.
  std::size_t fitsWithEllipsis = 0;
  for (std::size_t at = 0; at < text.size();) {
    const detail::DecodedChar decoded = detail::decodeUTF8(text, at);
    at += decoded.size;
    const char32_t c = decoded.codePoint;
    if (isBidiControl(c)) continue;
    if (isControl(c) || detail::isUnicodeWhitespace(c)) {
      pendingBlank = !out.empty();
      continue;
    }
    const std::size_t needed = pendingBlank ? 2 : 1;
    if (chars + needed > maxChars) {
      cut = true;
      break;
    }
    if (pendingBlank) {
      out += ' ';
      ++chars;
      pendingBlank = false;
      if (chars + 1 <= maxChars) fitsWithEllipsis = out.size();
    }
    appendCodePoint(c, out);
    ++chars;
    if (chars + 1 <= maxChars) fitsWithEllipsis = out.size();
  }
  if (cut && maxChars > 0) {
    out.resize(fitsWithEllipsis);
    while (!out.empty() && out.back() == ' ') out.pop_back();
    out += kEllipsis;
  } else if (cut) {
    out.clear();
  }
  return out;
}

std::string redReason(const PollObservation& poll) {
  if (!poll.summary) {
    switch (poll.failure) {
      case PollFailure::timedOut:
        return "The daemon did not answer in time";
      case PollFailure::httpStatus:
        return "The daemon answered HTTP " + std::to_string(poll.httpStatus);
      case PollFailure::undecodable:
        return "The daemon's health report could not be read";
      case PollFailure::none:
      case PollFailure::unreachable:
        break;
    }
    return "The daemon is unreachable";
  }
  const int64_t cameras = poll.summary->totalCameras();
  if (poll.summary->liveStreams == 0 && cameras > 1) {
    return "All " + std::to_string(cameras) + " cameras are down";
  }
  if (poll.summary->liveStreams == 0 && cameras == 1) return "The camera is down";
  return "No stream is live";
}

std::string yellowReason(const HealthSummary& summary) {
  if (summary.totalStreams == 0) return "No cameras are configured";
  for (const std::string& reason : summary.degradedReasons) {
    if (detail::parseMoreMarker(reason)) continue;
    const std::string text = plainNotificationText(reason, kReasonMaxChars);
    if (text.empty()) continue;
    int64_t others = 0;
    if (!degradedIssueCountOverflows(summary.degradedReasons)) {
      others = summary.degradedIssueCount() - 1;
    }
    return others > 0 ? text + " (+" + std::to_string(others) + " more)" : text;
  }
  if (std::string cameras = cameraList(summary); !cameras.empty()) return cameras;
  if (summary.degraded.value_or(false)) return "The daemon reports degraded recording";
  if (!(summary.thumbDropRatio < healthThumbDropMaxRatio)) {
    if (!std::isfinite(summary.thumbDropRatio)) return "Thumbnail drops are too high";
    char text[64];
    std::snprintf(text, sizeof text, "Thumbnail drops at %.0f %%", summary.thumbDropRatio * 100);
    return text;
  }
  if (summary.newestFrameAgeMS < 0) return "Frame ages are out of range";
  char text[64];
  std::snprintf(text, sizeof text, "Newest frame is %.1f s old",
                double(summary.newestFrameAgeMS) / 1000.0);
  return text;
}

std::optional<Notification> HealthNotificationRules::observe(const PollObservation& poll,
                                                             Clock::time_point now) {
  const HealthStatus status = poll.status;
  if (!m_settled) {
    // The first colour after start-up is where we start from, not news.
    m_settled = status;
    return std::nullopt;
  }
  if (status == *m_settled) {
    m_pending.reset();
    return std::nullopt;
  }
  // A clock that went back restarts the wait instead of stretching it.
  if (m_pending != status || now < m_pendingSince) {
    m_pending = status;
    m_pendingSince = now;
    return std::nullopt;
  }
  if (now - m_pendingSince < m_minimumHold) return std::nullopt;

  m_settled = status;
  m_pending.reset();
  switch (status) {
    case HealthStatus::red:
      m_problemAnnounced = true;
      return Notification{NotificationKind::recordingStopped, "ZEV recording stopped",
                          plainNotificationText(redReason(poll), notificationBodyMaxChars),
                          NotificationTarget::logWindow};
    case HealthStatus::yellow:
      m_problemAnnounced = true;
      return Notification{NotificationKind::recordingDegraded, "ZEV recording degraded",
                          poll.summary ? plainNotificationText(yellowReason(*poll.summary),
                                                               notificationBodyMaxChars)
                                       : std::string(),
                          NotificationTarget::popover};
    case HealthStatus::green:
      if (!m_problemAnnounced) return std::nullopt;
      m_problemAnnounced = false;
      std::string body;
      if (poll.summary) {
        body = std::to_string(poll.summary->liveCameras()) + "/" +
               std::to_string(poll.summary->totalCameras()) + " cameras live";
      }
      return Notification{NotificationKind::recordingHealthy, "ZEV recording is healthy again",
                          body, NotificationTarget::popover};
  }
  return std::nullopt;
}

}  // namespace zev
