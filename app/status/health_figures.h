// The daemon's figures and texts as the status item and popover show them.
//
// Everything here comes from the daemon, so nothing is taken on trust: a
// figure out of any sensible range reads "—" instead of "inf%", a negative
// size or a nineteen-digit count; texts are cut to a length a row can show;
// and the degradation count never reaches the core's fatal overflow.
#ifndef ZEV_APP_STATUS_HEALTH_FIGURES_H_
#define ZEV_APP_STATUS_HEALTH_FIGURES_H_

#include <QString>
#include <cstdint>
#include <string>

#include "core/health/health_status.h"
#include "core/health/health_summary.h"

namespace zev {

// The largest issue count shown as a number; more reads "99999+".
inline constexpr int64_t maxShownIssueCount = 99999;
// Daemon texts longer than this are cut, with "…" at the end.
inline constexpr qsizetype maxShownTextLength = 200;

// "12%" for a CPU share from 0 to 99 999 %, else "—".
QString cpuText(double percent);
// "1.4 GB" (decimal gigabytes, one decimal) for 0 bytes up to 100 TB, else "—".
QString rssText(int64_t bytes);
// "3%" for a ratio from 0 to 1, else "—".
QString thumbDropText(double ratio);
// "850 ms" below 100 000 ms, then whole seconds ("1500 s"), hours, days;
// "—" when negative or past 99 999 days.
QString frameAgeText(int64_t milliseconds);
// The number in "Degraded: N issues": the core's count, except that a count
// the core would overflow on, or one above maxShownIssueCount, reads
// "99999+", and a count below the number of listed reasons (a negative
// "more:" marker) is the number listed.
QString issueCountText(const HealthSummary& summary);

// The route as "eth0 ethernet 1000 Mb/s", or without the speed when it is
// unknown (below 1) or beyond any link (above 10 000 000 Mb/s).
QString linkText(const HealthDefaultRoute& route);

// A daemon text for a label: as UTF-8, control characters and bidirectional
// overrides as blanks, cut to maxShownTextLength.
QString shownText(const std::string& text);

// `text` for a tooltip that must read as plain text: Qt renders a tooltip as
// rich text when it looks like markup, so such a text is escaped and marked.
QString plainToolTip(const QString& text);

// The classification the launcher shows: the core's, except that a document
// whose degradation count overflows is at least yellow (the daemon says there
// are more issues than can be counted).
HealthStatus shownStatus(const std::optional<HealthSummary>& summary);

}  // namespace zev

#endif  // ZEV_APP_STATUS_HEALTH_FIGURES_H_
