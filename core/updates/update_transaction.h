// One update attempt, from preparation to its end, as persisted by
// UpdateTransactionStore so that it survives the launcher's own relaunch in the
// middle of an update.
//
// A plain value; safe to copy between threads. The identity, versions,
// baseline, archive path and creation time never change; the state, its
// reason and the time of the last change are set by the update flow.
#ifndef ZEV_CORE_UPDATE_TRANSACTION_H_
#define ZEV_CORE_UPDATE_TRANSACTION_H_

#include <optional>
#include <string>
#include <string_view>

#include "core/support/timestamp.h"
#include "core/updates/update_health.h"
#include "core/updates/update_state.h"
#include "core/support/uuid.h"

namespace zev {

class UpdateTransaction {
 public:
  // A new attempt: state preparing, created and updated `now`, no reason.
  UpdateTransaction(std::string sourceVersion, std::string targetVersion, UpdateBaseline baseline,
                    std::string archivePath, Timestamp now, Uuid id);

  const Uuid& id() const { return m_id; }
  const std::string& sourceVersion() const { return m_sourceVersion; }
  const std::string& targetVersion() const { return m_targetVersion; }
  const UpdateBaseline& baseline() const { return m_baseline; }
  const std::string& archivePath() const { return m_archivePath; }
  Timestamp createdAt() const { return m_createdAt; }
  Timestamp updatedAt() const { return m_updatedAt; }
  UpdateState state() const { return m_state; }
  const std::optional<std::string>& failureReason() const { return m_failureReason; }

  void setUpdatedAt(Timestamp updatedAt) { m_updatedAt = updatedAt; }
  void setState(UpdateState state) { m_state = state; }
  void setFailureReason(std::optional<std::string> reason) { m_failureReason = std::move(reason); }

  // The record as the relaunched launcher resumes it: an installing attempt
  // moves to verifying, updated `now`. Any other state comes back unchanged,
  // so a relaunch during verification does not push its deadline back.
  UpdateTransaction resumedAfterLaunch(Timestamp now) const;
  UpdateTransaction resumedAfterLaunch() const { return resumedAfterLaunch(currentTimestamp()); }

  bool operator==(const UpdateTransaction&) const = default;

 private:
  friend UpdateTransaction decodeUpdateTransaction(std::string_view bytes);
  UpdateTransaction() = default;

  Uuid m_id;
  std::string m_sourceVersion;
  std::string m_targetVersion;
  UpdateBaseline m_baseline;
  std::string m_archivePath;
  Timestamp m_createdAt;
  Timestamp m_updatedAt;
  UpdateState m_state = UpdateState::preparing;
  std::optional<std::string> m_failureReason;
};

// The record's file form: one compact JSON object with the keys id,
// sourceVersion, targetVersion, baseline, archivePath, createdAt, updatedAt,
// state and failureReason, in that order. The id is the upper-case canonical
// UUID, times are milliseconds since 1970, and failureReason is left out when
// there is none. Throws nlohmann::json::type_error when a string is not valid
// UTF-8 (JSON cannot carry it).
std::string encodeUpdateTransaction(const UpdateTransaction& transaction);

// Reads that form back. Unknown keys are ignored; a null failureReason means
// none; times may be integers or fractions. Throws DecodingError for
// malformed JSON, a missing or mistyped key, a malformed id or an unknown state.
UpdateTransaction decodeUpdateTransaction(std::string_view bytes);

}  // namespace zev

#endif  // ZEV_CORE_UPDATE_TRANSACTION_H_
