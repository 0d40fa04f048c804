#include "search_mark.h"

#include <fmt/format.h>

#include <fstream>

#include "calibrants.h"
#include "korvane/instrument_contract.h"

namespace korvane::program {

namespace {

std::filesystem::path mark_file(Session& session) {
    return path_of(session.base_folder()) / "korvane_search.json";
}

/// What a search reduces, and nobody else sets.
Json reduced_setpoints(Session& session) {
    constexpr auto& setpoint = contract::setpoint;
    SetpointTable& table = session.instrument().setpoints();
    Json values = Json::object();
    for (const std::int32_t index : {setpoint.transients_1_ghz.key, setpoint.transients_2_ghz.key,
                                     setpoint.transients_4_ghz.key, setpoint.scintillator.key})
        values[table.internal_name(index)] = number_of(table.value(index, 0, 0), "setpoint value");
    return values;
}

}  // namespace

SearchMark::SearchMark(Session& session) {
    if (!left_reduced(session).empty()) return;  // the values found first stay the ones to go back to
    file_ = mark_file(session);
    std::ofstream(file_) << reduced_setpoints(session).dump(1);
}

SearchMark::~SearchMark() {
    std::error_code ignored;
    if (!file_.empty()) std::filesystem::remove(file_, ignored);
}

std::string left_reduced(Session& session) {
    std::ifstream file(mark_file(session));
    if (!file) return {};
    const Json found = Json::parse(file, nullptr, false), now = reduced_setpoints(session);
    std::string differences;
    if (!found.is_object()) return {};
    for (const auto& [name, value] : found.items())
        if (value.is_number() && now.contains(name) && now[name] != value)
            differences += fmt::format("{}{} is {}, was {}", differences.empty() ? "" : ", ", name,
                                       now[name].get<double>(), value.get<double>());
    return differences;
}

}  // namespace korvane::program
