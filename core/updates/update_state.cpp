#include "core/updates/update_state.h"

#include <array>
#include <utility>

namespace zev {

namespace {

constexpr std::array<std::pair<UpdateState, std::string_view>, 6> kRawValues = {{
    {UpdateState::preparing, "preparing"},
    {UpdateState::installing, "installing"},
    {UpdateState::verifying, "verifying"},
    {UpdateState::certified, "certified"},
    {UpdateState::failed, "failed"},
    {UpdateState::rolledBack, "rolled_back"},
}};

}  // namespace

std::string_view rawValue(UpdateState state) {
  for (const auto& [candidate, raw] : kRawValues) {
    if (candidate == state) return raw;
  }
  return {};
}

std::optional<UpdateState> updateStateFromRawValue(std::string_view raw) {
  for (const auto& [state, candidate] : kRawValues) {
    if (candidate == raw) return state;
  }
  return std::nullopt;
}

}  // namespace zev
