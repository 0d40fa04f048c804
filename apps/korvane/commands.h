// The commands. Each function adds one of them, with its options, and hands its work to the session.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "session.h"

namespace korvane::program {

void add_init(CLI::App& program, Session& session);
void add_state(CLI::App& program, Session& session);
void add_measure(CLI::App& program, Session& session);
void add_peak(CLI::App& program, Session& session);
void add_verify(CLI::App& program, Session& session);
void add_adjust(CLI::App& program, Session& session);
void add_calibration(CLI::App& program, Session& session);
void add_setpoint(CLI::App& program, Session& session);
void add_params(CLI::App& program, Session& session);
void add_prefs(CLI::App& program, Session& session);
void add_masslist(CLI::App& program, Session& session);
void add_abort(CLI::App& program, Session& session);
void add_record(CLI::App& program, Session& session);
void add_call(CLI::App& program, Session& session);
void add_automation(CLI::App& program, Session& session);
void add_conform(CLI::App& program, Session& session);

/// Adds a command with --json and an example below its help.
inline CLI::App* add_command(CLI::App& parent, Session& session, const std::string& name, const std::string& help,
                             const std::string& example) {
    CLI::App* command = parent.add_subcommand(name, help);
    command->add_flag("--json", session.json, "print one JSON object instead of text");
    command->group("Commands");
    command->footer("Example:\n  " + example + "\n");
    return command;
}

/// Check of an option that names a file or a folder.
inline std::string not_empty(const std::string& text) {
    return text.empty() ? "the name is empty" : std::string();
}

/// A command that is a group of commands.
inline CLI::App* add_group(CLI::App& program, const std::string& name, const std::string& help) {
    CLI::App* group = program.add_subcommand(name, help);
    group->require_subcommand(1);
    return group;
}

/// Runs `work(options)` once the whole command line has been read. The options live as long as the command.
template <class Options, class Work>
void on_run(CLI::App* command, Session& session, std::shared_ptr<Options> options, Work work) {
    command->final_callback([&session, options = std::move(options), work = std::move(work)] {
        session.command = [&session, options, work] { return work(session, *options); };
    });
}
template <class Work>
void on_run(CLI::App* command, Session& session, Work work) {
    command->final_callback(
        [&session, work = std::move(work)] { session.command = [&session, work] { return work(session); }; });
}

}  // namespace korvane::program
