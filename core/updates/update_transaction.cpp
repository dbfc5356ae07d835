#include "core/updates/update_transaction.h"

#include <utility>

#include "core/support/decoding_error.h"
#include "core/support/json_fields.h"

namespace zev {

UpdateTransaction::UpdateTransaction(std::string sourceVersion, std::string targetVersion,
                                     UpdateBaseline baseline, std::string archivePath,
                                     Timestamp now, Uuid id)
    : m_id(id),
      m_sourceVersion(std::move(sourceVersion)),
      m_targetVersion(std::move(targetVersion)),
      m_baseline(std::move(baseline)),
      m_archivePath(std::move(archivePath)),
      m_createdAt(now),
      m_updatedAt(now) {}

UpdateTransaction UpdateTransaction::resumedAfterLaunch(Timestamp now) const {
  UpdateTransaction copy = *this;
  if (copy.m_state == UpdateState::installing) {
    copy.m_state = UpdateState::verifying;
    copy.m_updatedAt = now;
  }
  return copy;
}

std::string encodeUpdateTransaction(const UpdateTransaction& transaction) {
  nlohmann::ordered_json object;
  object["id"] = transaction.id().string();
  object["sourceVersion"] = transaction.sourceVersion();
  object["targetVersion"] = transaction.targetVersion();
  object["baseline"] = toJSON(transaction.baseline());
  object["archivePath"] = transaction.archivePath();
  object["createdAt"] = millisecondsSince1970(transaction.createdAt());
  object["updatedAt"] = millisecondsSince1970(transaction.updatedAt());
  object["state"] = rawValue(transaction.state());
  if (transaction.failureReason()) object["failureReason"] = *transaction.failureReason();
  return object.dump();
}

UpdateTransaction decodeUpdateTransaction(std::string_view bytes) {
  using detail::readString;
  using detail::readTimestamp;
  using detail::requiredMember;

  const detail::Json document = detail::parseDocument(bytes);
  UpdateTransaction t;
  const auto id = Uuid::parse(readString(requiredMember(document, "id"), "id"));
  if (!id) throw DecodingError("id: not a UUID");
  t.m_id = *id;
  t.m_sourceVersion = readString(requiredMember(document, "sourceVersion"), "sourceVersion");
  t.m_targetVersion = readString(requiredMember(document, "targetVersion"), "targetVersion");
  fromJSON(requiredMember(document, "baseline"), t.m_baseline);
  t.m_archivePath = readString(requiredMember(document, "archivePath"), "archivePath");
  t.m_createdAt = readTimestamp(requiredMember(document, "createdAt"), "createdAt");
  t.m_updatedAt = readTimestamp(requiredMember(document, "updatedAt"), "updatedAt");
  const std::string state = readString(requiredMember(document, "state"), "state");
  const auto parsed = updateStateFromRawValue(state);
  if (!parsed) throw DecodingError("state: unknown state \"" + state + "\"");
  t.m_state = *parsed;
  if (const detail::Json* reason = detail::optionalMember(document, "failureReason")) {
    t.m_failureReason = readString(*reason, "failureReason");
  }
  return t;
}

}  // namespace zev
