// decodeHealth and every derived value on arbitrary bytes.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "core/health/health_status.h"
#include "core/health/health_summary.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const auto summary = zev::decodeHealth(bytes);
  (void)zev::classifyHealth(summary);
  if (!summary) return 0;

  volatile size_t sink = 0;
  sink = sink + static_cast<size_t>(summary->totalCameras() + summary->liveCameras());
  sink = sink + summary->visibleDegradedReasons().size();
  sink = sink + summary->worstFrameAgeText().size();
  if (summary->defaultRoute) {
    sink = sink + summary->defaultRoute->summaryText().size() + summary->defaultRoute->isWarning();
  }
  // Overflowing the "more:N" sum aborts by design; that is the one outcome
  // this target must not report, so it skips exactly that case.
  if (!zev::degradedIssueCountOverflows(summary->degradedReasons)) {
    sink = sink + static_cast<size_t>(summary->degradedIssueCount());
  }
  // A decoded document must survive a second decode unchanged in meaning.
  const auto again = zev::decodeHealth(bytes);
  if (!again || !(*again == *summary)) __builtin_trap();
  return 0;
}
