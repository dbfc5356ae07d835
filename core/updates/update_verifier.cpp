#include "core/updates/update_verifier.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace zev {

UpdateVerifier::UpdateVerifier(std::string targetVersion, UpdateBaseline baseline)
    : m_targetVersion(std::move(targetVersion)), m_baseline(std::move(baseline)) {}

VerificationAssessment UpdateVerifier::assessment(const UpdateHealth& health) const {
  if (health.build.version != m_targetVersion) return VerificationAssessment::wrongVersion();
  for (const BaselineStream& before : m_baseline.streams) {
    const auto now = std::find_if(health.streams.begin(), health.streams.end(),
                                  [&](const UpdateStreamHealth& s) { return s.id == before.id; });
    if (now == health.streams.end()) return VerificationAssessment::missingStream(before.id);
    if (!now->enabled || !now->live || !isFreshFrameAge(now->frameAgeMS)) {
      return VerificationAssessment::staleStream(before.id);
    }
    if (before.recording && (!before.lastSegmentMS || !now->lastSegmentMS ||
                             *before.lastSegmentMS >= *now->lastSegmentMS)) {
      return VerificationAssessment::recordingNotAdvanced(before.id);
    }
  }
  return VerificationAssessment::healthy();
}

VerificationProgress UpdateVerifier::observe(const UpdateHealth& health) {
  if (assessment(health).kind != VerificationAssessment::Kind::healthy) {
    m_consecutiveHealthySamples = 0;
    return VerificationProgress::pending;
  }
  if (m_baseline.configuredStreamCount == 0) return VerificationProgress::certified;
  if (__builtin_add_overflow(m_consecutiveHealthySamples, 1, &m_consecutiveHealthySamples)) {
    std::fputs("fatal: consecutive healthy sample count overflows\n", stderr);
    std::abort();
  }
  return m_consecutiveHealthySamples > 2 ? VerificationProgress::certified
                                         : VerificationProgress::pending;
}

}  // namespace zev
