#include "command_line.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <string>

#include "commands.h"
#include "number_options.h"

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
    "  korvane peak 1382.74 --attribute resolution    one figure of one peak\n"
    "  korvane setpoint list                          names, values, limits\n"
    "  korvane setpoint set FragmentTune 180          change a voltage\n"
    "  korvane adjust FragmentTune --mz 566.89 --target 50000 --apply\n"
    "  korvane calibration show --repeat 10           mass errors and their spread\n"
    "  korvane params get RampParams MinimumAcceptableAbundance\n"
    "  korvane prefs set LogSetpointTraffic Yes       a switch of the tune programs\n"
    "  korvane masslist show                          the calibrants in use\n"
    "  korvane abort request                          stop a tune that runs elsewhere\n"
    "  korvane call TuneGlobals.QuadType              any member of the automation classes\n"
    "  korvane automation list                        ... and which there are\n"
    "  korvane conform                                does the instrument layer do what it has to?\n"
    "  korvane record today.mzML -n 5                 keep five spectra\n"
    "  korvane measure --replay today.mzML            ... and measure them later\n"
    "\n"
    "Data goes to standard output, talk to standard error. The options above may also follow the command.\n\n";

void add_global_options(CLI::App& program, GlobalOptions& options) {
    CLI::Option* base =
        program.add_option("--base", options.base, "base folder (KORVANE_BASE, else your own, made on first use)")
            ->type_name("DIR")
            ->check(not_empty);
    CLI::Option* replay =
        program.add_option("--replay", options.replay, "recording (mzML) in the place of the simulated instrument")
            ->type_name("FILE")
            ->check(not_empty);
    CLI::Option* scene = program.add_option("--scene", options.scene, "scene of the simulated instrument")
                             ->type_name("FILE")
                             ->check(not_empty);
    add_seed(program, options.seed);
    program
        .add_option("--instrument", options.instrument,
                    "instrument layer from outside: a shared library, or on Windows a ProgID (KORVANE_INSTRUMENT)")
        ->type_name("LAYER")
        ->check(not_empty)
        ->excludes(base, replay, scene);
    program.set_version_flag("--version", "korvane " KORVANE_VERSION, "print the version");
}

struct CommandGroup {
    std::string heading;
    std::vector<void (*)(CLI::App&, Session&)> commands;
};

void add_commands(CLI::App& program, Session& session) {
    const std::vector<CommandGroup> groups{
        {"Begin", {add_init, add_state}},
        {"Measure and adjust", {add_measure, add_peak, add_verify, add_adjust, add_calibration, add_record}},
        {"Set", {add_setpoint, add_params, add_prefs, add_masslist}},
        {"Work with other programs", {add_abort, add_call, add_automation, add_conform}},
    };
    for (const CommandGroup& group : groups)
        for (const auto add : group.commands) {
            add(program, session);
            program.get_subcommands({}).back()->group(group.heading);
        }
}

// The words of the command that the arguments named: "setpoint set".
std::string command_name(const CLI::App& program) {
    std::string name;
    const CLI::App* command = &program;
    while (!command->get_subcommands().empty()) {
        command = command->get_subcommands().front();
        name += (name.empty() ? "" : " ") + command->get_name();
    }
    return name;
}

// A word that is no command leaves its command missing.
std::string fault_text(const CLI::App& program, const CLI::ParseError& fault) {
    const bool lacks_command = dynamic_cast<const CLI::RequiredError*>(&fault) != nullptr;
    const auto words = program.remaining(true);
    return lacks_command && !words.empty() ? fmt::format("there is no \"{}\"", words.front()) : fault.what();
}

std::string usage_line(const std::string& command, const std::string& fault) {
    const std::string whole = command.empty() ? "korvane" : "korvane " + command;
    std::string line = fault;
    for (char& character : line)
        if (character == '\n' || character == '\r') character = ' ';
    return fmt::format("{}: {} (see {} --help)", whole, line, whole);
}

int code(ExitCode exit_code) {
    return static_cast<int>(exit_code);
}

/// Nothing when a command is to be run; else the exit code of what was printed instead.
std::optional<int> parse(CLI::App& program, int argc, const char* const* argv, Session& session) {
    try {
        program.parse(argc, argv);
        return std::nullopt;
    } catch (const CLI::Success& wanted) {
        std::ostringstream text;
        program.exit(wanted, text, text);
        session.print(text.str());
        return code(ExitCode::done);
    } catch (const CLI::ParseError& fault) {
        session.talk(usage_line(command_name(program), fault_text(program, fault)));
        return code(ExitCode::usage);
    }
}

int run(Session& session, const std::string& command) {
    try {
        return code(session.command());
    } catch (const UsageError& fault) {
        session.talk(usage_line(command, fault.what()));
        return code(ExitCode::usage);
    } catch (const Error& error) {
        session.talk(failure_line(error, command, session.known_base_folder()));
        return code(exit_code_of(error));
    } catch (const std::exception& fault) {
        session.talk(fmt::format("korvane: {}: internal fault: {}", command, fault.what()));
    } catch (...) {
        session.talk(fmt::format("korvane: {}: internal fault", command));
    }
    return code(ExitCode::internal_fault);
}

}  // namespace

int run_command_line(int argc, const char* const* argv, Streams streams, Platform system) {
    Session session(streams, std::move(system));
    CLI::App program(about, "korvane");
    program.allow_windows_style_options(false);  // an argument that begins with a slash is a path or a query
    program.fallthrough();
    program.require_subcommand(1);
    program.get_formatter()->column_width(34);
    program.get_formatter()->label("SUBCOMMAND", "COMMAND");
    add_global_options(program, session.options);
    add_commands(program, session);
    program.footer(examples + exit_code_help() + "\n");

    const auto printed = parse(program, argc, argv, session);
    const int exit_code = printed ? *printed : run(session, command_name(program));
    streams.out.flush();
    if (streams.out || exit_code) return exit_code;
    session.talk(failure_line(Error(57, "standard output", "the data could not be written"), "korvane"));
    return code(ExitCode::configuration);
}

}  // namespace korvane::program
