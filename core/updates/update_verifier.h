// Judges the daemon's health after an update against the baseline taken
// before it, and certifies the update after three consecutive healthy samples.
//
// A value without locking: the launcher feeds it one sample at a time from
// its main thread. It lives only in memory and starts again from zero after
// every relaunch. It never fails an update; the caller's deadline does.
#ifndef ZEV_CORE_UPDATE_VERIFIER_H_
#define ZEV_CORE_UPDATE_VERIFIER_H_

#include <cstdint>
#include <string>

#include "core/updates/update_health.h"

namespace zev {

// The verdict on one sample. The three stream verdicts carry the baseline
// stream's id; the others carry an empty one.
struct VerificationAssessment {
  enum class Kind {
    missingStream,         // a baseline stream is absent from the sample
    staleStream,           // present but disabled, not live or not fresh
    recordingNotAdvanced,  // was recording, and shows no newer segment
    healthy,
    wrongVersion,  // the daemon reports another version than the target
  };

  Kind kind = Kind::healthy;
  std::string streamID;

  static VerificationAssessment missingStream(std::string id) {
    return {Kind::missingStream, std::move(id)};
  }
  static VerificationAssessment staleStream(std::string id) {
    return {Kind::staleStream, std::move(id)};
  }
  static VerificationAssessment recordingNotAdvanced(std::string id) {
    return {Kind::recordingNotAdvanced, std::move(id)};
  }
  static VerificationAssessment healthy() { return {Kind::healthy, {}}; }
  static VerificationAssessment wrongVersion() { return {Kind::wrongVersion, {}}; }

  bool operator==(const VerificationAssessment&) const = default;
};

enum class VerificationProgress { pending, certified };

class UpdateVerifier {
 public:
  UpdateVerifier(std::string targetVersion, UpdateBaseline baseline);

  const std::string& targetVersion() const { return m_targetVersion; }
  const UpdateBaseline& baseline() const { return m_baseline; }

  // The first rule that applies: another build version is wrongVersion; an
  // empty baseline is healthy; then each baseline stream in order must be in
  // the sample (the first with its id), enabled, live and fresh, and, if it
  // was recording, show a strictly newer lastSegmentMS. The sample's own
  // recording flag and streams outside the baseline are not consulted.
  VerificationAssessment assessment(const UpdateHealth& health) const;

  // Any unhealthy sample starts the run again. With no configured streams the
  // first healthy sample certifies; otherwise the third consecutive one does,
  // and every healthy sample after it.
  VerificationProgress observe(const UpdateHealth& health);

 private:
  std::string m_targetVersion;
  UpdateBaseline m_baseline;
  int64_t m_consecutiveHealthySamples = 0;
};

}  // namespace zev

#endif  // ZEV_CORE_UPDATE_VERIFIER_H_
