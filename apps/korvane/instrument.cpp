// The instrument as a whole, and other programs: state, recording, automation calls, layers from outside, whose check
// runs in a process that a layer may take down.
#include <algorithm>
#include <iostream>

#include "commands.h"
#include "korvane/automation.h"
#include "korvane/conformance.h"
#include "korvane/instrument_contract.h"
#include "korvane/recording.h"
#include "run.h"
#include "self_description.h"

#ifndef _WIN32
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#endif

namespace korvane::program {

namespace {

std::string quad_type_text(enumQuadType type) {
    return type == enumQuadType::MaxMass4k ? "4000 amu" : type == enumQuadType::MaxMass8k ? "8000 amu" : "unknown";
}

ExitCode show_state(Session& session, const NoOptions&) {
    TuneGlobals& globals = session.globals();
    InstrumentGlobals& instrument = session.instrument();
    const auto not_ready =
        instrument.actual_value(contract::instrument_register.not_ready_state, contract::not_ready_state_type);
    const Json state{{"title", instrument.title()},
                     {"source", globals.GetSourceTypeStr()},
                     {"polarity", globals.GetPolarityStr()},
                     {"state", globals.GetCurrentInstrumentStateAsString()},
                     {"time_segment", globals.CurrentTimeSegment()},
                     {"scan_segment", globals.CurrentScanSegment()},
                     {"quad_type", quad_type_text(globals.QuadType())},
                     {"max_mass", globals.GetMaxMassForCurrentMassRange()},
                     {"min_spectrum_time_usec", globals.GetMinSpectrumTime_usec()},
                     {"max_spectrum_time_usec", globals.GetMaxSpectrumTime_usec()},
                     {"sampling_interval_ns", instrument.sampling_interval_seconds() * 1e9},
                     {"saturation_threshold_begin", globals.GetSaturationThreshold_Begin()},
                     {"saturation_threshold_hard", globals.GetSaturationThreshold_Hard()},
                     {"ready", number_of(not_ready, "not-ready state") > -0.5},  // negative is not ready
                     {"base_folder", session.base_folder()}};
    Table table({"<", "<||.10g"});
    for (const auto& [name, value] : state.items()) {
        std::string label = name;
        std::replace(label.begin(), label.end(), '_', ' ');
        if (label.ends_with(" usec")) label.replace(label.size() - 4, 4, "µs");
        table.add(label, value);
    }
    return session.show(state, table);
}

struct RecordOptions {
    std::optional<std::string> file;
    std::int64_t spectra = 1;
};

ExitCode record(Session& session, const RecordOptions& options) {
    session.begin_run();
    record_spectra(session.platform(), path_of(*options.file), static_cast<std::int32_t>(options.spectra),
                   [&](std::int32_t taken) {
                       session.show_progress(fmt::format("spectrum {} of {}", taken + 1, options.spectra));
                   });
    return session.show(Json{{"file", *options.file}, {"spectra", options.spectra}}, *options.file + "\n");
}

constexpr const char* call_help =
    R"(An argument is JSON (numbers, texts in quotes, true, false, null, arrays, records as objects of their fields) or
plain text; NAME=ARG passes it by the parameter's name, and parameters may be left out from the end. An object is
asked of another member: '{"call": "TuneGlobals.GetCurrentCalibrationObjFromDD"}'. Prints one JSON object: the
result, and the new values of the arguments that the member changed. A property is set with CLASS.PROPERTY= VALUE.
With "-" alone, calls are read from standard input, a line a call with the words as here and a shell's quotes, on
objects that stay alive; each prints one line, {"result": ...} or {"error": ...}, and the exit code is that of
the last failure.
Options of the program come before "call"; all that follows belongs to the call. Members: korvane automation list.

Examples:
  korvane call TuneGlobals.GetCurrentInstrumentStateAsString                 a text
  korvane call SpectrumParser.GetPeakAttribute 5 566.89 dMassWindow=0.5      a parameter by its name
)";

/// Calls from standard input, a line a call, on objects that stay alive. The code is that of the last failure.
ExitCode call_lines(Session& session) {
    automation::TextCalls calls(session.platform());
    ExitCode code = ExitCode::done;
    for (std::string line; !stop_signal() && std::getline(std::cin, line);) {
        Json failure;
        try {
            const std::vector<std::string> words = automation::words_of_line(line);
            if (words.empty()) continue;
            session.print_line(calls.call(words));
            session.keep_moves();
        } catch (const Error& error) {
            code = exit_code_of(error);
            failure["error"] = {{"kind", kind_name(error.kind())},
                                {"number", error.number()},
                                {"routine", error.source()},
                                {"text", error.description()}};
            session.print_line(failure.dump(-1, ' ', false, Json::error_handler_t::replace));
        }
    }
    return code;
}

ExitCode call(Session& session, std::vector<std::string> words) {
    if (words.empty()) throw UsageError("CLASS.MEMBER is missing");
    if (words.size() == 1 && words.front() == "-") return call_lines(session);
    try {
        const std::string text = automation::TextCalls(session.platform()).call(words, 2);
        session.keep_moves();
        return session.show(Json::parse(text), text + "\n");
    } catch (const Error& error) {
        constexpr std::int32_t no_such_class = 429;
        if (error.kind() != ErrorKind::usage && error.number() != no_such_class) throw;
        const WordList members = names_for(session, "MEMBER");
        const std::string& member = words.front();
        const bool is_known = std::ranges::count(members, member.substr(0, member.find('=')));
        throw UsageError(error.description() + (is_known ? "" : did_you_mean(member, members)));
    }
}

ExitCode list_members(Session& session, const NoOptions&) {
    Table rows({"|class", "|member", "|dispid", "|signature", "|help"});
    std::string text, last;
    for (const auto& [class_name, name, dispid, signature, help] : automation::member_summaries()) {
        rows.add(class_name, name, dispid, signature, help);
        if (class_name != last) text += fmt::format("{}{}\n", text.empty() ? "" : "\n", class_name);
        last = class_name;
        text += fmt::format("  {:>3}  {}\n", dispid, signature);
    }
    return session.show(Json{{"members", rows.json()}}, text);
}

void add_text_command(CLI::App& group, Session& session, const char* name, const char* help, std::string (*text)()) {
    runs(*group.add_subcommand(name, help)->group("Commands"), session, [text](Session& running) {
        return running.show(Json{{"text", text()}}, text());
    });
}

struct ConformOptions {
    std::string layer;
    bool contract = false;
};

ExitCode show_results(Session& session, const std::vector<ConformanceResult>& results) {
    std::int64_t passed = 0, failed = 0;
    Table rows({"|operation", "|check", "|passed", "|detail"});
    std::string text;
    for (const auto& [operation, check, is_passed, detail] : results) {
        (is_passed ? passed : failed) += 1;
        rows.add(operation, check, is_passed, detail);
        text += fmt::format("{}  {}: {}{}{}\n", is_passed ? "pass" : "FAIL", operation, check, is_passed ? "" : ": ",
                            detail);
    }
    text += fmt::format("{} passed, {} failed\n", passed, failed);
    session.show(Json{{"checks_passed", passed}, {"checks_failed", failed}, {"checks", rows.json()}}, text);
    return failed ? ExitCode::check_failed : ExitCode::done;
}

ExitCode check_layer(Session& session, const ConformanceObserver& observer) {
    const Platform& platform = session.platform();
    session.begin_run();
    const auto results = check_instrument_layer(*platform.instrument, observer);
    if (std::ranges::none_of(results, &ConformanceResult::passed))
        platform.instrument->create_globals();  // a layer that cannot be had says why
    return show_results(session, results);
}

#ifndef _WIN32

/// The checks in a child, which does all that the command has to do. What it tells of the checks is read here, for the
/// case that the layer ends it.
ExitCode check_apart(Session& session) {
    std::FILE* const told = std::tmpfile();
    const pid_t child = told ? fork() : -1;
    if (child < 0) return check_layer(session, {});
    if (child == 0)
        return check_layer(session, [told](const ConformanceResult& result, bool is_over) {
            const Json row{result.operation, result.check, result.passed, result.detail, is_over};
            fmt::print(told, "{}\n", row.dump(-1, ' ', false, Json::error_handler_t::replace));
            if (std::fflush(told) != 0) std::_Exit(EXIT_FAILURE);
        });
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(status)) std::_Exit(WEXITSTATUS(status));
    std::rewind(told);
    std::vector<ConformanceResult> results;
    char* line = nullptr;
    for (std::size_t size = 0; getline(&line, &size, told) > 0;) {
        const Json row = Json::parse(line);
        if (row[4]) results.pop_back();  // its beginning
        results.push_back({row[0], row[1], row[2], row[3]});
    }
    std::free(line);
    if (results.empty()) results.push_back({"InstrumentLayer", "can be loaded", false, {}});
    results.back().passed = false;
    results.back().detail = fmt::format("the layer ends the process, signal {}", WTERMSIG(status));
    return show_results(session, results);
}

#endif

ExitCode conform(Session& session, const ConformOptions& options) {
    if (options.contract) return session.show(Json{{"text", contract::contract_text()}}, contract::contract_text());
    if (!options.layer.empty()) session.options.instrument = options.layer;
#ifndef _WIN32
    if (session.owns_process()) return check_apart(session);
#endif
    return check_layer(session, {});
}

}  // namespace

void declare_state(CLI::App& command, Session& session) {
    runs(command, session, "korvane state --json", show_state);
}

void declare_record(CLI::App& command, Session& session) {
    RecordOptions& options = runs(command, session, "korvane record today.mzML -n 5", record);
    add_name(command, "FILE", options.file, "file to write", "TEXT")->required();
    add_count(command, "-n", options.spectra, "number of spectra (1)", 1, 100000);
}

void declare_call(CLI::App& command, Session& session) {
    command.footer(call_help);
    // What follows the member may begin with a dash, a negative number above all.
    command.fallthrough(false)->prefix_command();
    runs(command, session, [&command](Session& running) { return call(running, command.remaining()); });
}

void declare_automation(CLI::App& group, Session& session) {
    add_command(group, session, "list", "print classes and members with their signatures",
                "korvane automation list --json", list_members);
    add_text_command(group, session, "idl", "print the interface definition", &automation::idl_text);
    add_text_command(group, session, "reference", "print the reference page", &automation::reference_text);
}

void declare_conform(CLI::App& command, Session& session) {
    ConformOptions& options = runs(command, session, "korvane conform ./libmylayer.so", conform);
    command.add_option("LAYER", options.layer,
                       "shared library, or on Windows a ProgID; without it the instrument that the program works on");
    command.add_flag("--contract", options.contract, "print what the library asks of an instrument, and check nothing");
}

}  // namespace korvane::program
