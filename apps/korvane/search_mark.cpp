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
std::vector<std::string> reduced_setpoints(SetpointTable& table) {
    constexpr auto& setpoint = contract::setpoint;
    std::vector<std::string> names;
    for (const std::int32_t index : {setpoint.transients_1_ghz.key, setpoint.transients_2_ghz.key,
                                     setpoint.transients_4_ghz.key, setpoint.scintillator.key})
        names.push_back(table.internal_name(index));
    return names;
}

double value_of(SetpointTable& table, const std::string& name) {
    return number_of(table.value(table.index_of(name), 0, 0), "setpoint value");
}

}  // namespace

SearchMark::SearchMark(Session& session, const std::vector<std::string>& more) {
    if (!left_reduced(session).empty()) return;  // the values found first stay the ones to go back to
    file_ = mark_file(session);
    SetpointTable& table = session.instrument().setpoints();
    std::vector<std::string> names = reduced_setpoints(table);
    names.insert(names.end(), more.begin(), more.end());
    Json values = Json::object();
    for (const std::string& name : names) values[name] = value_of(table, name);
    std::ofstream(file_) << values.dump(1);
}

SearchMark::~SearchMark() {
    std::error_code ignored;
    if (!file_.empty()) std::filesystem::remove(file_, ignored);
}

std::string left_reduced(Session& session) {
    std::ifstream file(mark_file(session));
    if (!file) return {};
    const Json found = Json::parse(file, nullptr, false);
    std::string differences;
    if (!found.is_object()) return {};
    for (const auto& [name, value] : found.items()) {
        if (!value.is_number()) continue;
        const double now = value_of(session.instrument().setpoints(), name);
        if (now != value.get<double>())
            differences +=
                fmt::format("{}{} is {}, was {}", differences.empty() ? "" : ", ", name, now, value.get<double>());
    }
    return differences;
}

}  // namespace korvane::program
