// The commands, and what they are declared with.
#pragma once

#include <CLI/CLI.hpp>
#include <limits>
#include <utility>

#include "session.h"

namespace korvane::program {

// Each gives a command its options and its work. They are called when the command line names the command.
void declare_init(CLI::App& command, Session& session);
void declare_state(CLI::App& command, Session& session);
void declare_measure(CLI::App& command, Session& session);
void declare_peak(CLI::App& command, Session& session);
void declare_peaks(CLI::App& command, Session& session);
void declare_verify(CLI::App& command, Session& session);
void declare_adjust(CLI::App& command, Session& session);
void declare_calibration(CLI::App& group, Session& session);
void declare_tune(CLI::App& command, Session& session);
void declare_report(CLI::App& command, Session& session);
void declare_plot(CLI::App& command, Session& session);
void declare_record(CLI::App& command, Session& session);
void declare_history(CLI::App& group, Session& session);
void declare_trend(CLI::App& command, Session& session);
void declare_setpoint(CLI::App& group, Session& session);
void declare_params(CLI::App& group, Session& session);
void declare_prefs(CLI::App& group, Session& session);
void declare_masslist(CLI::App& group, Session& session);
void declare_logs(CLI::App& group, Session& session);
void declare_abort(CLI::App& group, Session& session);
void declare_call(CLI::App& command, Session& session);
void declare_automation(CLI::App& group, Session& session);
void declare_conform(CLI::App& command, Session& session);

/// Hands the work to the session once the whole command line has been read.
void runs(CLI::App& command, Session& session, Session::Work work);

/// --json for every command, --csv for those that print a table, and the example below the help.
enum class Prints { object, table };
void add_output(CLI::App& command, Session& session, const char* example, Prints prints);

/// The same for work with options, which live as long as the command.
template <class Options>
Options& runs(CLI::App& command, Session& session, const char* example, ExitCode (*work)(Session&, const Options&),
              Prints prints = Prints::object) {
    add_output(command, session, example, prints);
    auto options = std::make_shared<Options>();
    runs(command, session, [options, work](Session& running) { return work(running, *options); });
    return *options;
}

struct NoOptions {};

/// A command of a group.
template <class Options>
std::pair<CLI::App&, Options&> add_command(CLI::App& group, Session& session, const char* name, const char* help,
                                           const char* example, ExitCode (*work)(Session&, const Options&),
                                           Prints prints = Prints::object) {
    CLI::App& command = *group.require_subcommand(1)->add_subcommand(name, help)->group("Commands");
    return {command, runs(command, session, example, work, prints)};
}

// Numbers of the command line are read strictly: the whole text, finite, independent of the locale.
std::optional<double> parse_number(std::string_view text);
std::optional<std::int64_t> parse_integer(std::string_view text);

/// What a number must be besides finite.
struct NumberRule {
    double above = -std::numeric_limits<double>::infinity();
    double below = std::numeric_limits<double>::infinity();
};
inline constexpr NumberRule positive{.above = 0};

/// A usage error naming the option where the text is no number or not by the rule.
double checked_number(const std::string& name, const std::string& text, NumberRule rule);

// Each adds an option (or a positional, for a name without dashes). A text that does not fit is a usage error naming
// it.
template <class Number>  // double, or one that may be missing
CLI::Option* add_number(CLI::App& command, const std::string& name, Number& target, const std::string& help,
                        NumberRule rule = {}) {
    const auto read = [&target, name, rule](const std::string& text) { target = checked_number(name, text, rule); };
    return command.add_option_function<std::string>(name, read, help)->type_name("NUMBER");
}
CLI::Option* add_numbers(CLI::App& command, const std::string& name, std::vector<double>& target,
                         const std::string& help, NumberRule rule = {});
/// An integer from `least` to `most`; of 64 bits, with a sign or without.
template <class Number>
CLI::Option* add_count(CLI::App& command, const std::string& name, Number& target, const std::string& help,
                       std::type_identity_t<Number> least, std::type_identity_t<Number> most);
/// The name of a file, a folder or a layer; not empty.
CLI::Option* add_name(CLI::App& command, const std::string& option, std::optional<std::string>& target,
                      const std::string& help, const std::string& kind);
/// One of the words, or several.
template <class Target, class Words>
CLI::Option* add_choice(CLI::App& command, const std::string& name, Target& target, const std::string& help,
                        const char* kind, const Words& words) {
    return command.add_option(name, target, help)
        ->type_name(kind)
        ->check(CLI::IsMember(std::vector<std::string>(std::begin(words), std::end(words))));
}

}  // namespace korvane::program
