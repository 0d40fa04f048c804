// Setpoints, named by index or by name: get, set, list; and all of them in a file: saved, compared, restored.
#include "setpoints.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <fstream>
#include <memory>

#include "korvane/instrument_contract.h"
#include "korvane/system.h"
#include "run.h"
#include "self_description.h"

namespace korvane::program {

namespace {

std::string type_text(std::int32_t code) {
    constexpr auto& type = contract::variable_type;
    return code == type.int32.key   ? "int32"
           : code == type.real.key  ? "double"
           : code == type.int16.key ? "int16"
                                    : fmt::format("type {}", code);
}

SetpointDescription describe_setpoint(Session& session, std::int32_t index) {
    SetpointTable& table = session.instrument().setpoints();
    return {index,
            table.internal_name(index),
            table.external_name(index),
            number_of(table.value(index, 0, 0), "setpoint value"),
            table.lower_limit(index),
            table.upper_limit(index),
            table.resolution(index),
            type_text(table.variable_type(index))};
}

bool same_but_for_case(std::string_view text, std::string_view other) {
    const auto folded = [](unsigned char c) { return std::tolower(c); };
    return std::ranges::equal(text, other, {}, folded, folded);
}

void require_allowed(const SetpointDescription& setpoint, double value) {
    if (setpoint.type != "double" && value != std::trunc(value))
        throw UsageError(fmt::format("setpoint {} ({}) takes whole numbers only, not {}", setpoint.index,
                                     setpoint.internal_name, value));
    require_within_limits(setpoint, value);
}

using Words = std::vector<std::pair<std::string, double>>;

template <class Entries>
Words words_of(const Entries& group) {
    Words words;
    for (const contract::Number& entry : contract::entries<contract::Number>(group))
        words.emplace_back(entry.name, entry.key);
    return words;
}

/// The words that stand for the values of a setpoint.
Words value_words(std::int32_t index) {
    switch (index) {
        case contract::setpoint.polarity.key:
            return words_of(contract::polarity);
        case contract::setpoint.sampling_rate.key:
            return words_of(contract::sampling_rate);
        case contract::setpoint.preamp_gain_mode.key:
            return words_of(contract::preamp_gain_mode);
        case contract::setpoint.mass_range.key:
            return {{"low", 0}, {"standard", 1}, {"high", 2}};
    }
    for (const contract::Number& entry : contract::entries<contract::Number>(contract::setpoint))
        if (entry.key == index && std::string_view(entry.unit) == "flag") return {{"off", 0}, {"on", 1}};
    return {};
}

double value_named(const SetpointDescription& setpoint, const std::string& text) {
    if (const auto number = parse_number(text)) return *number;
    std::string known;
    for (const auto& [word, value] : value_words(setpoint.index)) {
        if (same_but_for_case(word, text)) return value;
        known += ", " + word;
    }
    throw UsageError(
        fmt::format("\"{}\" is not a number{}", text, known.empty() ? "" : ", and none of" + known.substr(1)));
}

Table table_of(const std::vector<SetpointDescription>& setpoints) {
    Table table({"index|index", "<internal name|internal_name", "|external_name", "value|value", "lower|lower_limit",
                 "upper|upper_limit", "resolution|resolution", "<type|type", "<external name"});
    for (const auto& [index, internal_name, external_name, value, lower, upper, resolution, type] : setpoints)
        table.add(index, internal_name, external_name, value, lower, upper, resolution, type, external_name);
    return table;
}

ExitCode show_setpoint(Session& session, SetpointDescription setpoint, double value) {
    setpoint.value = value;
    return session.show(table_of({setpoint}).json().front(), fmt::format("{}\n", value));
}

// It only reads, and so does not ask for the abort flag as the class does.
ExitCode get_setpoint(Session& session, const std::string& name) {
    const SetpointDescription setpoint = setpoint_named(session, name);
    return show_setpoint(session, setpoint, setpoint.value);
}

struct SetpointChange {
    std::string setpoint;
    std::optional<std::string> value;
    std::optional<double> delta, wait_seconds;
    bool until_set = false;
};

ExitCode set_setpoint(Session& session, const SetpointChange& options) {
    if (options.value.has_value() == options.delta.has_value()) throw UsageError("give either a value or --delta");
    const SetpointDescription setpoint = setpoint_named(session, options.setpoint);
    const double wanted = options.value ? value_named(setpoint, *options.value) : setpoint.value + *options.delta;
    require_allowed(setpoint, wanted);
    session.begin_run();
    const auto stays = [&](void*) { session.keep_moves(); };  // also where it was not seen to arrive
    const std::unique_ptr<void, decltype(stays)> at_end(&session, stays);
    try {
        session.globals().SetMSSetpointValueByIdx(
            setpoint.index, wanted, 0, static_cast<float>(options.wait_seconds.value_or(0)), options.until_set);
    } catch (const Error& error) {
        const std::string item = session.globals().unreported_item();
        if (error.number() != error_number::setpoint_not_reached || item.empty()) throw;
        throw error.described(error.description() + "; no spectrum reported [" + item + "]");
    }
    return show_setpoint(session, setpoint, followed_value(session, setpoint, wanted));
}

std::vector<SetpointDescription> all_setpoints(Session& session) {
    std::vector<SetpointDescription> all;
    for (const std::int32_t index : session.instrument().setpoints().indexes())
        all.push_back(describe_setpoint(session, index));
    return all;
}

ExitCode list_setpoints(Session& session, const NoOptions&) {
    const Table table = table_of(all_setpoints(session));
    return session.show(Json{{"setpoints", table.json()}}, table);
}

constexpr int file_schema = 1;

using FileName = std::optional<std::string>;

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
    for (const SetpointDescription& setpoint : all_setpoints(session)) values[setpoint.internal_name] = setpoint.value;
    const std::size_t count = values.size();
    const Json object{{"schema", file_schema}, {"title", session.instrument().title()}, {"setpoints", values}};
    save_text(session, *file, object.dump(2) + "\n");
    return session.show(Json{{"file", *file}, {"setpoints", count}}, fmt::format("{} setpoints\n", count));
}

/// Those that differ, in the order of restoring. Error -904 naming all that the instrument does not have or does not
/// allow.
std::vector<SavedSetpoint> saved_setpoints(Session& session, const std::string& path) {
    const Json object = Json::parse(text_of_file(session, path), nullptr, false);
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
            require_allowed(setpoint, saved);
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
    Table table({"index|index", "<internal name|internal_name", "value|value", "saved|saved", "<|end"});
    for (const auto& [setpoint, saved, end] : rows)
        table.add(setpoint.index, setpoint.internal_name, setpoint.value, saved, end);
    session.show(Json{{"file", *file}, {"setpoints", table.json()}}, table);
    return code;
}

ExitCode compare_setpoints(Session& session, const FileName& file) {
    const auto rows = saved_setpoints(session, *file);
    return show_rows(session, file, rows, rows.empty() ? ExitCode::done : ExitCode::check_failed);
}

ExitCode restore_setpoints(Session& session, const FileName& file) {
    session.begin_run();
    std::vector<SavedSetpoint> rows = saved_setpoints(session, *file);
    for (SavedSetpoint& row : rows) {
        row.end = "not tried";
        if (session.stop()) continue;
        try {
            session.globals().SetMSSetpointValueByIdx(row.setpoint.index, row.saved);
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

std::filesystem::path mark_file(Session& session) {
    return path_of(session.base_folder()) / "korvane_search.json";
}

double value_of(SetpointTable& table, const std::string& name) {
    return number_of(table.value(table.index_of(name), 0, 0), "setpoint value");
}

}  // namespace

SetpointDescription setpoint_named(Session& session, const std::string& text) {
    SetpointTable& table = session.instrument().setpoints();
    const auto number = parse_integer(text);
    const std::vector<std::int32_t> indexes = table.indexes();
    const std::function<bool(std::int32_t)> meanings[] = {
        [&](std::int32_t index) { return number ? index == *number : table.internal_name(index) == text; },
        [&](std::int32_t index) { return same_but_for_case(table.internal_name(index), text); },
        [&](std::int32_t index) { return same_but_for_case(table.external_name(index), text); }};
    for (const auto& meant : meanings)
        if (const auto found = std::ranges::find_if(indexes, meant); found != indexes.end())
            return describe_setpoint(session, *found);
    WordList known = names_for(session, "SETPOINT");
    for (const std::int32_t index : indexes) known.push_back(table.external_name(index));
    throw UsageError(fmt::format("the instrument has no setpoint {} (korvane setpoint list shows them){}", text,
                                 did_you_mean(text, known)));
}

void require_within_limits(const SetpointDescription& setpoint, double value) {
    if (value < setpoint.lower || value > setpoint.upper)
        throw UsageError(fmt::format("{} lies outside the limits of setpoint {} ({}), {} to {}", value, setpoint.index,
                                     setpoint.internal_name, setpoint.lower, setpoint.upper));
}

double followed_value(Session& session, const SetpointDescription& setpoint, double wanted) {
    SetpointTable& table = session.instrument().setpoints();
    const double shown = number_of(table.value(setpoint.index, 0, 0), "setpoint value");
    const double rounding = 1e-9 * std::abs(wanted);
    if (std::abs(shown - wanted) <= std::max(table.tolerance(setpoint.index), rounding)) return shown;
    throw Error(error_number::setpoint_not_reached, "",
                fmt::format("the instrument did not follow: setpoint {} ({}) shows {}, not {}", setpoint.index,
                            setpoint.internal_name, shown, wanted));
}

SearchMark::SearchMark(Session& session, const std::vector<std::string>& more) {
    if (!left_reduced(session).empty()) return;  // the values found first stay the ones to go back to
    file_ = mark_file(session);
    SetpointTable& table = session.instrument().setpoints();
    constexpr auto& reduced = contract::setpoint;  // by every search, and set by nobody else
    std::vector<std::string> names = more;
    for (const std::int32_t index : {reduced.transients_1_ghz.key, reduced.transients_2_ghz.key,
                                     reduced.transients_4_ghz.key, reduced.scintillator.key})
        names.push_back(table.internal_name(index));
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

CLI::Option* add_setpoint(CLI::App& command, std::string& setpoint) {
    return command.add_option("SETPOINT", setpoint, "index or name (korvane setpoint list)")->required();
}

void declare_setpoint(CLI::App& group, Session& session) {
    const auto [get, name] = add_command(group, session, "get", "print a setpoint's value",
                                         "korvane setpoint get FragmentTune", get_setpoint);
    add_setpoint(get, name);

    const auto [set, change] = add_command(group, session, "set", "change a setpoint and print the value read back",
                                           "korvane setpoint set FragmentTune --delta -5 --until-set", set_setpoint);
    add_setpoint(set, change.setpoint);
    set.add_option("VALUE", change.value, "the new value, or its word: Negative, on");
    add_number(set, "--delta", change.delta, "add this to the value instead");
    add_number(set, "--wait", change.wait_seconds, "wait so many seconds after the change",
               {.above = 0, .below = 86400});
    set.add_flag("--until-set", change.until_set, "return when a spectrum shows the new value; exit code 5 after 15 s");

    add_command(group, session, "list", "print all setpoints", "korvane setpoint list", list_setpoints, Prints::table);

    const auto [save, saving] = add_command(group, session, "save", "write all setpoints to a file",
                                            "korvane setpoint save monday.json", save_setpoints);
    const auto [diff, comparing] =
        add_command(group, session, "diff", "print the setpoints that are not as in a file; exit code 1 where any is",
                    "korvane setpoint diff monday.json", compare_setpoints, Prints::table);
    const auto [restore, restoring] =
        add_command(group, session, "restore", "set the setpoints as a file has them",
                    "korvane setpoint restore monday.json", restore_setpoints, Prints::table);
    for (const auto& [command, file] : {std::pair{&save, &saving}, {&diff, &comparing}, {&restore, &restoring}})
        add_name(*command, "FILE", *file, "JSON file", "FILE")->required();
}

}  // namespace korvane::program
