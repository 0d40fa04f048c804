// All setpoints in a file: saved, compared, restored.
#include <algorithm>
#include <cmath>

#include "calibrants.h"
#include "commands.h"
#include "korvane/instrument_contract.h"
#include "korvane/system.h"
#include "setpoint_description.h"
#include "text_files.h"
#include "text_table.h"

namespace korvane::program {

namespace {

constexpr int file_schema = 1;

struct FileName {
    std::optional<std::string> path;
};

/// A setpoint that is not as the file says.
struct SavedSetpoint {
    SetpointDescription setpoint;
    double saved = 0;
    std::string end;  ///< "differs", and of restoring it "restored", "not tried", or why it was not
};

/// What others depend on comes first: the source, the polarity, the range of masses and the digitiser; then all by
/// index.
std::pair<int, std::int32_t> restoring_order(std::int32_t index) {
    const std::int32_t first[] = {contract::setpoint.source_type, contract::setpoint.polarity,
                                  contract::setpoint.mass_range, contract::setpoint.sampling_rate};
    return {static_cast<int>(std::ranges::find(first, index) - std::begin(first)), index};
}

ExitCode save_setpoints(Session& session, const FileName& file) {
    Json values = Json::object();
    for (const std::int32_t index : session.instrument().setpoints().indexes()) {
        const SetpointDescription setpoint = describe_setpoint(session, index);
        values[setpoint.internal_name] = setpoint.value;
    }
    const std::size_t count = values.size();
    const Json object{{"schema", file_schema}, {"title", session.instrument().title()}, {"setpoints", values}};
    save_text(session, *file.path, object.dump(2) + "\n");
    return session.show(Json{{"file", *file.path}, {"setpoints", count}}, fmt::format("{} setpoints\n", count));
}

/// Those that differ, in the order of restoring. Error -904 naming all that the instrument does not have or does not
/// allow.
std::vector<SavedSetpoint> saved_setpoints(Session& session, const std::string& path) {
    const Json object = Json::parse(read_text(session, path), nullptr, false);
    if (!object.is_object() || !object.contains("setpoints") || !object["setpoints"].is_object() ||
        object.value("schema", Json()) != file_schema)
        throw Error(error_number::file_or_element, "", path + ": no setpoints of korvane setpoint save, schema 1");
    SetpointTable& table = session.instrument().setpoints();
    std::vector<SavedSetpoint> rows;
    std::string faults;
    for (const auto& [name, value] : object["setpoints"].items()) {
        try {
            if (!value.is_number()) throw UsageError(name + ": " + value.dump() + " is no number");
            const SetpointDescription setpoint = describe_setpoint(session, table.index_of(name));
            const double saved = value.get<double>();
            if (std::abs(setpoint.value - saved) <= 1e-9 * std::abs(saved)) continue;
            require_whole(setpoint, saved);
            require_within_limits(setpoint, saved);
            rows.push_back({setpoint, saved, "differs"});
        } catch (const std::exception& fault) {
            faults += (faults.empty() ? "" : "; ") + joined_lines(fault.what());
        }
    }
    if (!faults.empty()) throw Error(error_number::file_or_element, "", path + ": " + faults);
    std::ranges::sort(rows, {}, [](const SavedSetpoint& row) { return restoring_order(row.setpoint.index); });
    return rows;
}

ExitCode show_rows(Session& session, const FileName& file, const std::vector<SavedSetpoint>& rows, ExitCode code) {
    Json setpoints = Json::array();
    TextTable table({"index", "<internal name", "value", "saved", "<"});
    for (const auto& [setpoint, saved, end] : rows) {
        setpoints.push_back(Json{{"index", setpoint.index},
                                 {"internal_name", setpoint.internal_name},
                                 {"value", setpoint.value},
                                 {"saved", saved},
                                 {"end", end}});
        table.add_row(setpoint.index, setpoint.internal_name, setpoint.value, saved, end);
    }
    session.show(Json{{"file", *file.path}, {"setpoints", std::move(setpoints)}}, table);
    return code;
}

ExitCode compare_setpoints(Session& session, const FileName& file) {
    const auto rows = saved_setpoints(session, *file.path);
    return show_rows(session, file, rows, rows.empty() ? ExitCode::done : ExitCode::check_failed);
}

ExitCode restore_setpoints(Session& session, const FileName& file) {
    session.begin_run();
    std::vector<SavedSetpoint> rows = saved_setpoints(session, *file.path);
    TuneGlobals globals(session.platform());
    for (SavedSetpoint& row : rows) {
        row.end = "not tried";
        if (session.stop()) continue;
        try {
            globals.SetMSSetpointValueByIdx(row.setpoint.index, row.saved);
            followed_value(session, row.setpoint, row.saved);
            row.end = "restored";
        } catch (const Error& error) {
            row.end = joined_lines(error.description());
            if (!session.fault) session.fault = error;
        }
    }
    session.keep_moves();
    return show_rows(session, file, rows, session.fault ? exit_code_of(*session.fault) : ExitCode::done);
}

}  // namespace

void declare_setpoint_files(CLI::App& group, Session& session) {
    const auto [save, saving] = add_command(group, session, "save", "write all setpoints to a file",
                                            "korvane setpoint save monday.json", save_setpoints);
    const auto [diff, comparing] =
        add_command(group, session, "diff", "print the setpoints that are not as in a file; exit code 1 where any is",
                    "korvane setpoint diff monday.json", compare_setpoints);
    add_csv(diff, session);
    const auto [restore, restoring] = add_command(group, session, "restore", "set the setpoints as a file has them",
                                                  "korvane setpoint restore monday.json", restore_setpoints);
    add_csv(restore, session);
    add_name(save, "FILE", saving.path, "JSON file", "FILE")->required();
    add_name(diff, "FILE", comparing.path, "JSON file", "FILE")->required();
    add_name(restore, "FILE", restoring.path, "JSON file", "FILE")->required();
}

}  // namespace korvane::program
