#include "command_line.h"

#include <array>

#include "commands.h"
#include "korvane/build_information.h"
#include "self_description.h"

namespace korvane::program {

namespace {

constexpr const char* about =
    "Measures and adjusts a quadrupole time-of-flight mass spectrometer: calibrant peaks, setpoints,\n"
    "mass calibration and the configuration of the tune. Works on the embedded simulated instrument,\n"
    "or on a recording (--replay).\n";

constexpr const char* examples =
    "A first session:\n"
    "  korvane init tune                              make a base folder\n"
    "  export KORVANE_BASE=$PWD/tune                  ... and work in it\n"
    "  korvane state                                  what the instrument is set to\n"
    "  korvane measure                                where the calibrants are\n"
    "  korvane measure --mass 838.84 --json           one ion, for a script\n"
    "  korvane verify && echo ready                   enough calibrants to tune?\n"
    "  korvane tune                                   a whole tune by a recipe, with a record and a report\n"
    "  korvane peak 1382.74 --attribute resolution    one figure of one peak\n"
    "  korvane peaks --min-height 5000                all peaks of a spectrum\n"
    "  korvane setpoint list                          names, values, limits\n"
    "  korvane setpoint set FragmentTune 180          change a voltage\n"
    "  korvane adjust FragmentTune --mz 566.89 --target 50000 --apply\n"
    "  korvane calibration show --repeat 10           mass errors and their spread\n"
    "  korvane params get RampParams MinimumAcceptableAbundance\n"
    "  korvane prefs set LogSetpointTraffic Yes       a switch of the tune programs\n"
    "  korvane masslist show                          the calibrants in use\n"
    "  korvane abort request                          stop a tune that runs elsewhere\n"
    "  korvane abort reset                            ... and let others run again\n"
    "  korvane call TuneGlobals.QuadType              any member of the automation classes\n"
    "  korvane automation list                        ... and which there are\n"
    "  korvane conform                                does the instrument layer do what it has to?\n"
    "  korvane record today.mzML -n 5                 keep five spectra\n"
    "  korvane measure --replay today.mzML            ... and measure them later\n"
    "\n"
    "Data goes to standard output, talk to standard error. The options above may also follow the command.\n"
    "KORVANE_TRACE=FILE keeps a trace of every routine (- is standard error).\n\n";

struct CommandRow {
    const char* heading;  ///< of those from here on; empty: as before
    const char* name;
    const char* help;
    void (*declare)(CLI::App&, Session&);
};

constexpr auto commands = std::to_array<CommandRow>(
    {{"Begin", "help", "tell more of a command: korvane help setpoint set", [](CLI::App&, Session&) {}},
     {"", "init", "make a base folder with the standard configuration", declare_init},
     {"", "state", "tell what the instrument is set to: source, polarity, mass range, saturation, readiness",
      declare_state},
     {"Measure and adjust", "measure", "find the calibrant peaks: position, height, width, mass error",
      declare_measure},
     {"", "peak", "measure the highest peak near one mass, in the next spectrum", declare_peak},
     {"", "peaks", "list all peaks of a spectrum or of a file", declare_peaks},
     {"", "verify", "check that the spectrum shows enough calibrants to tune on; exit code 1 when it does not",
      declare_verify},
     {"", "adjust", "search the setpoint value that brings a peak's abundance down to a target", declare_adjust},
     {"", "calibration", "the mass calibration of the current polarity", declare_calibration},
     {"", "plot", "draw the calibrant peaks, samples and fit, or their mass errors", declare_plot},
     {"", "tune", "verify, adjust, calibrate, measure and judge by a recipe, with a report", declare_tune},
     {"", "record", "write the next spectra of the instrument as mzML", declare_record},
     {"Look back", "history", "the records of earlier runs (measure --keep): list, show, compare, hand on",
      declare_history},
     {"", "report", "write the page of a record, to hand on", declare_report},
     {"", "trend", "control charts of the history; exit code 1 where the tune is out of control", declare_trend},
     {"Set", "setpoint", "read and change the instrument's setpoints", declare_setpoint},
     {"", "params", "read and change the numbers in TuneParams.xml", declare_params},
     {"", "prefs", "read and change the switches in TunePreferences.xml", declare_prefs},
     {"", "masslist", "the calibrant masses by ion source and polarity", declare_masslist},
     {"", "logs", "remove old logs of the base folder", declare_logs},
     {"Work with other programs", "abort", "ask a running tune to stop, from anywhere", declare_abort},
     {"", "call", "call a member of an automation class", declare_call},
     {"", "automation", "describe the automation interface", declare_automation},
     {"", "conform", "check an instrument layer, operation by operation", declare_conform}});

/// Not shown: what the completion of a shell asks for, behind the words that it has.
void declare_complete(CLI::App& command, Session& session) {
    command.fallthrough(false)->prefix_command();
    runs(command, session, [&command](Session& running) {
        CLI::App& program = *command.get_parent();
        for (const CommandRow& row : commands) row.declare(*program.get_subcommand(row.name), running);
        std::string lines;
        for (const std::string& word : completions(running, program, command.remaining())) lines += word + "\n";
        return running.show({}, lines);
    });
}

constexpr CommandRow completion{"", "complete", "print what may stand in the place of the last word", declare_complete};

void add_recording_options(CLI::App& program, RecordingOptions& options) {
    const auto read_level = [&options](const std::string& text) {
        constexpr std::int64_t most = 100;
        const auto level = text == "all" ? every_ms_level : parse_integer(text).value_or(-1);
        if (level < 0 || level > most || (level == every_ms_level && text != "all"))
            throw CLI::ValidationError("--ms-level", fmt::format("\"{}\" is neither an MS level nor \"all\"", text));
        options.ms_level = static_cast<std::int32_t>(level);
    };
    program.add_option_function<std::string>(
        "--ms-level", read_level, "MS level of a recording's spectra, or all (the lowest; \"peaks\" takes all)");
    const auto read_polarity = [&options](const std::string& name) {
        options.polarity = name == "positive" ? PolaritySetpoint::Positive : PolaritySetpoint::Negative;
    };
    program
        .add_option_function<std::string>("--assume-polarity", read_polarity,
                                          "polarity of recorded spectra that do not state theirs (positive)")
        ->transform(CLI::IsMember({"positive", "negative"}, CLI::ignore_case));
}

void add_global_options(CLI::App& program, GlobalOptions& options) {
    CLI::Option* base = add_name(program, "--base", options.base,
                                 "base folder (KORVANE_BASE, else your own, made on first use)", "DIR");
    CLI::Option* replay = add_name(program, "--replay", options.replay,
                                   "recording (mzML) in the place of the simulated instrument", "FILE");
    add_recording_options(program, options.recording);
    CLI::Option* scene = add_name(program, "--scene", options.scene, "scene of the simulated instrument", "FILE");
    add_count(program, "--seed", options.seed, "seed of the simulated instrument: same seed, same spectra (1)", 0,
              std::numeric_limits<std::uint64_t>::max())
        ->type_name("SEED");
    add_name(program, "--history", options.history,
             "history: a file, or postgresql://... (KORVANE_HISTORY, else TuneHistory.sqlite of the base folder)",
             "WHERE")
        ->envname("KORVANE_HISTORY");
    add_name(program, "--instrument", options.instrument,
             "instrument layer from outside: a shared library, or on Windows a ProgID (KORVANE_INSTRUMENT)", "LAYER")
        ->excludes(base, replay, scene);
    program.set_version_flag("--version", "korvane " KORVANE_VERSION, "print the version");
}

/// The command that the arguments named, the program itself where they named none.
const CLI::App& named_command(const CLI::App& program) {
    const auto chosen = program.get_subcommands();
    return chosen.empty() ? program : named_command(*chosen.front());
}

/// Its words: "setpoint set".
std::string command_name(const CLI::App& program) {
    std::string name;
    for (const CLI::App* command = &named_command(program); command->get_parent(); command = command->get_parent())
        name = command->get_name() + (name.empty() ? "" : " ") + name;
    return name;
}

// A word that is no command leaves its command missing.
std::string fault_text(const CLI::App& program, const CLI::ParseError& fault) {
    const auto words = program.remaining(true);
    if (words.empty()) return fault.what();
    const bool lacks_command = dynamic_cast<const CLI::RequiredError*>(&fault) != nullptr;
    const auto option = std::ranges::find_if(words, [](const std::string& word) { return word.starts_with("-"); });
    const std::string& word = lacks_command || option == words.end() ? words.front() : *option;
    return (lacks_command || option != words.end() ? fmt::format("there is no \"{}\"", word) : fault.what()) +
           did_you_mean(word, words_that_may_follow(named_command(program), word.starts_with("-")));
}

/// How a command ended: the line for standard error where it failed, and what a JSON object says of it.
struct End {
    int code = 0;
    std::string line = {};
    Json more = Json::object();
};

End failed(ExitCode code, std::string line, const char* kind, Json number, const std::string& routine,
           const std::string& text) {
    Json error{{"kind", kind}, {"number", std::move(number)}, {"routine", routine}, {"text", joined_lines(text)}};
    return {static_cast<int>(code), std::move(line), Json{{"error", std::move(error)}}};
}

End misused(const std::string& command, const std::string& fault) {
    const std::string whole = command.empty() ? "korvane" : "korvane " + command;
    std::string line = fault;
    std::ranges::replace_if(
        line, [](char character) { return character == '\n' || character == '\r'; }, ' ');
    return failed(ExitCode::usage, fmt::format("{}: {} (see {} --help)", whole, line, whole), "usage", nullptr, command,
                  fault);
}

/// Whether the words ask for it, wherever it stands, but for what "call" hands on.
bool asks_for_json(int argc, const char* const* argv) {
    for (int i = 1; i < argc && std::string_view(argv[i]) != "call"; ++i)
        if (std::string_view(argv[i]) == "--json") return true;
    return false;
}

Json version_json() {
    const BuildInformation build = build_information();
    Json object{{"commit", build.commit.empty() ? Json() : Json(build.commit)}, {"libraries", Json::object()}};
    for (const auto& [name, version] : build.libraries) object["libraries"][name] = version;
    object["features"] = {"simulator", "replay", "layers"};
#ifdef _WIN32
    object["features"].push_back("automation server");
#endif
    return object;
}

/// Nothing when a command is to be run; else what was asked instead, or is wrong.
std::optional<End> parse(CLI::App& program, int argc, const char* const* argv, Session& session) {
    try {
        program.parse(argc, argv);
        return std::nullopt;
    } catch (const CLI::CallForVersion& wanted) {
        session.json = asks_for_json(argc, argv);
        session.show(version_json(), wanted.what() + std::string("\n"));
        return End{};
    } catch (const CLI::Success& wanted) {
        std::ostringstream text;
        program.exit(wanted, text, text);
        session.print(text.str());
        session.json = false;
        return End{};
    } catch (const CLI::ParseError& fault) {
        session.json = asks_for_json(argc, argv);
        return misused(command_name(program), fault_text(program, fault));
    }
}

End failed(Session& session, const Error& error, const std::string& command) {
    return failed(exit_code_of(error), failure_line(error, command, session.known_base_folder()),
                  kind_name(error.kind()), error.number(), error.source().empty() ? command : error.source(),
                  error.description());
}

End work_done(Session& session, const std::string& command) {
    std::string fault_text = "an exception that is no error";
    try {
        const ExitCode code = session.work(session);
        if (session.stop()) return failed(session, *session.stop(), command);
        End end = session.fault ? failed(session, *session.fault, command) : End{};
        end.code = static_cast<int>(code);
        return end;
    } catch (const UsageError& fault) {
        return misused(command, fault.what());
    } catch (const Error& error) {
        return failed(session, error, command);
    } catch (const std::exception& fault) {
        fault_text = fault.what();
    } catch (...) {  // the text that stands there
    }
    return failed(ExitCode::internal_fault, fmt::format("korvane: {}: internal fault: {}", command, fault_text),
                  "internal", nullptr, command, fault_text);
}

/// Gives the instrument back, and says so.
void give_back(Session& session, End& end) {
    std::string done, failures;
    Table rows({"|name", "|before", "|now", "|failure"});
    for (const auto& [name, before, now, failure, found] : session.give_back()) {
        if (found == before && failure.empty()) continue;
        std::string& list = failure.empty() ? done : failures;
        list += fmt::format("{}{} to {}{}", list.empty() ? "" : ", ", name, before,
                            failure.empty() ? "" : " (" + joined_lines(failure) + ")");
        rows.add(name, before, now, failure.empty() ? Json() : Json(failure));
    }
    if (rows.size() == 0) return;
    end.more["put_back"] = rows.json();
    if (!failures.empty() && end.code == 0) end.code = static_cast<int>(ExitCode::instrument);
    if (!done.empty()) done = "put back " + done;
    if (!failures.empty()) done += (done.empty() ? "" : "; ") + ("could not put back " + failures);
    end.line += (end.line.empty() ? "" : "; ") + done;
}

End run(Session& session, const std::string& command) {
    End end = work_done(session, command);
    if (const int signal = stop_signal(); signal && end.code != 0) {
        const std::string text = "stopped by " + stop_name(signal);
        end = failed(ExitCode::aborted, stop_name(signal).empty() ? "" : fmt::format("korvane: {}: {}", command, text),
                     "aborted", nullptr, command, text);
    }
    give_back(session, end);
    return end;
}

void add_command(CLI::App& program, Session& session, const CommandRow& row, const std::string& heading) {
    CLI::App* const command = program.add_subcommand(row.name, row.help)->group(heading);
    // Only what the command line names is declared further.
    command->preparse_callback([&row, command, &session](std::size_t) { row.declare(*command, session); });
}

}  // namespace

int run_command_line(int argc, const char* const* argv, Streams streams, Platform system) {
    Session session(streams, std::move(system));
    std::vector<const char*> words(argv, argv + argc);
    if (argc > 1 && std::string_view(words[1]) == "help") {  // "help setpoint set" is "setpoint set --help"
        words.erase(words.begin() + 1);
        words.push_back("--help");
    }
    CLI::App program(about, "korvane");
    program.allow_windows_style_options(false);  // an argument that begins with a slash is a path or a query
    program.fallthrough();
    program.require_subcommand(1);
    program.get_formatter()->column_width(34);
    program.get_formatter()->label("SUBCOMMAND", "COMMAND");
    add_global_options(program, session.options);
    program.add_flag("--json", session.json, "print one JSON object instead of text, of a failure too");
    std::string heading;
    for (const CommandRow& row : commands)
        add_command(program, session, row, *row.heading ? heading = row.heading : heading);
    add_command(program, session, completion, "");
    program.footer(examples + exit_code_help() + "\n");

    const auto parsed = parse(program, argc, words.data(), session);
    const End end = parsed ? *parsed : run(session, command_name(program));
    session.print_result(end.more);
    streams.out.flush();
    if (!end.line.empty()) session.talk(end.line);
    constexpr int of_signals = 128;
    if (stop_signal()) return of_signals + stop_signal();
    if (streams.out || end.code != 0) return end.code;
    session.talk(failure_line(Error(57, "standard output", "the data could not be written"), "korvane"));
    return static_cast<int>(ExitCode::configuration);
}

}  // namespace korvane::program
