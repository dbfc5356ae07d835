// Where an update attempt stands. Stored in the update records by its raw
// value; note that rolledBack is stored as "rolled_back".
#ifndef ZEV_CORE_UPDATE_STATE_H_
#define ZEV_CORE_UPDATE_STATE_H_

#include <optional>
#include <string_view>

namespace zev {

enum class UpdateState {
  preparing,   // record created; baseline taken, archive of the running build being made
  installing,  // the updater may install the new build
  verifying,   // the new build runs and is compared with the baseline
  certified,   // verification passed (terminal)
  failed,      // the attempt failed; the record's failureReason says why (terminal)
  rolledBack,  // the previous build was restored (terminal; the launcher never writes it)
};

// "preparing", "installing", "verifying", "certified", "failed", "rolled_back".
std::string_view rawValue(UpdateState state);
// The inverse of rawValue; exact and case-sensitive ("rolledBack" is not a state).
std::optional<UpdateState> updateStateFromRawValue(std::string_view raw);

}  // namespace zev

#endif  // ZEV_CORE_UPDATE_STATE_H_
