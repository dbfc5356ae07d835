#include "app/status/health_figures.h"

#include <QTextDocument>
#include <cmath>

namespace zev {
namespace {

const QString kDash = QStringLiteral("\u2014");

}  // namespace

QString cpuText(double percent) {
  if (!std::isfinite(percent) || percent < 0 || percent > 99999) return kDash;
  return QString::asprintf("%.0f%%", percent);
}

QString rssText(int64_t bytes) {
  if (bytes < 0 || bytes > int64_t{100'000'000'000'000}) return kDash;
  return QString::asprintf("%.1f GB", double(bytes) / 1e9);
}

QString thumbDropText(double ratio) {
  if (!std::isfinite(ratio) || ratio < 0 || ratio > 1) return kDash;
  return QString::asprintf("%.0f%%", ratio * 100);
}

QString frameAgeText(int64_t milliseconds) {
  if (milliseconds < 0) return kDash;
  if (milliseconds < 100'000) return QStringLiteral("%1 ms").arg(milliseconds);
  const int64_t seconds = milliseconds / 1000;
  if (seconds < 100'000) return QStringLiteral("%1 s").arg(seconds);
  const int64_t hours = seconds / 3600;
  if (hours < 100'000) return QStringLiteral("%1 h").arg(hours);
  const int64_t days = hours / 24;
  if (days < 100'000) return QStringLiteral("%1 d").arg(days);
  return kDash;
}

QString issueCountText(const HealthSummary& summary) {
  const auto listed = static_cast<int64_t>(summary.degradedReasons.size());
  if (degradedIssueCountOverflows(summary.degradedReasons)) {
    return QStringLiteral("%1+").arg(maxShownIssueCount);
  }
  const int64_t count = summary.degradedIssueCount();
  if (count > maxShownIssueCount) return QStringLiteral("%1+").arg(maxShownIssueCount);
  return QString::number(std::max(count, listed));
}

QString linkText(const HealthDefaultRoute& route) {
  HealthDefaultRoute sane = route;
  if (sane.speedMbps > 10'000'000) sane.speedMbps = 0;
  return shownText(sane.summaryText());
}

QString shownText(const std::string& text) {
  // Cut before converting: a megabyte of name must not become a megabyte of
  // QString per row. Four bytes per character is UTF-8's worst case.
  const std::size_t byteLimit = std::size_t(maxShownTextLength) * 4 + 4;
  QString shown = QString::fromUtf8(text.data(), qsizetype(std::min(text.size(), byteLimit)));
  for (QChar& c : shown) {
    // Bidirectional overrides and isolates too: they would let a name run
    // backwards into whatever follows it.
    const char16_t u = c.unicode();
    const bool bidiControl = (u >= 0x202A && u <= 0x202E) || (u >= 0x2066 && u <= 0x2069);
    if (c.category() == QChar::Other_Control || c == QChar::LineSeparator ||
        c == QChar::ParagraphSeparator || bidiControl) {
      c = QLatin1Char(' ');
    }
  }
  if (shown.size() > maxShownTextLength) {
    shown.truncate(maxShownTextLength - 1);
    if (!shown.isEmpty() && shown.back().isHighSurrogate()) shown.chop(1);
    shown += QChar(0x2026);
  }
  return shown;
}

QString plainToolTip(const QString& text) {
  if (!Qt::mightBeRichText(text)) return text;
  return QStringLiteral("<qt>") + text.toHtmlEscaped() + QStringLiteral("</qt>");
}

HealthStatus shownStatus(const std::optional<HealthSummary>& summary) {
  const HealthStatus status = classifyHealth(summary);
  if (status == HealthStatus::green && summary &&
      degradedIssueCountOverflows(summary->degradedReasons)) {
    return HealthStatus::yellow;
  }
  return status;
}

}  // namespace zev
