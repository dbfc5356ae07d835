// The small web page the daemon serves at "/": the same health as
// /api/health, readable by a person, refreshing itself every two seconds,
// with buttons that switch the simulation's scenario.
#ifndef ZEV_TOOLS_ZEVD_SIM_STATUS_PAGE_H_
#define ZEV_TOOLS_ZEVD_SIM_STATUS_PAGE_H_

#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "scenario.h"

namespace zev::sim {

// `document` is the health document (possibly one a scenario file changed
// beyond recognition: missing or mistyped fields are shown as "—").
std::string renderStatusPage(const nlohmann::ordered_json& document, Scenario scenario,
                             bool customAvailable);

// Escapes &, <, >, " and ' for HTML text and attribute values.
std::string htmlEscaped(std::string_view text);

}  // namespace zev::sim

#endif  // ZEV_TOOLS_ZEVD_SIM_STATUS_PAGE_H_
