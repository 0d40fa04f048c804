#include "commands.h"

#include <charconv>
#include <cmath>

namespace korvane::program {

namespace {

template <class Number>
std::optional<Number> parse(std::string_view text) {
    if (text.starts_with('+') && !text.starts_with("+-")) text.remove_prefix(1);
    Number number{};
    const char* const end = text.data() + text.size();
    const auto [stopped, fault] = std::from_chars(text.data(), end, number);
    if (fault != std::errc() || stopped != end) return std::nullopt;
    return number;
}

}  // namespace

void runs(CLI::App& command, Session& session, Session::Work work) {
    command.final_callback([&session, work = std::move(work)] { session.work = work; });
}

void add_output(CLI::App& command, Session& session, const char* example, Prints prints) {
    CLI::Option* json = command.add_flag("--json", session.json, "print one JSON object instead of text");
    command.footer(std::string("Example:\n  ") + example + "\n");
    if (prints == Prints::table)
        command.add_flag("--csv", session.csv, "print the table with commas, for a spreadsheet")->excludes(json);
}

std::optional<double> parse_number(std::string_view text) {
    const auto number = parse<double>(text);
    return number && std::isfinite(*number) ? number : std::nullopt;
}

std::optional<std::int64_t> parse_integer(std::string_view text) {
    return parse<std::int64_t>(text);
}

double checked_number(const std::string& name, const std::string& text, NumberRule rule) {
    const auto number = parse_number(text);
    if (!number) throw CLI::ValidationError(name, fmt::format("\"{}\" is not a number", text));
    if (*number <= rule.above) throw CLI::ValidationError(name, fmt::format("{} is not above {}", text, rule.above));
    if (*number >= rule.below) throw CLI::ValidationError(name, fmt::format("{} is not below {}", text, rule.below));
    return *number;
}

CLI::Option* add_numbers(CLI::App& command, const std::string& name, std::vector<double>& target,
                         const std::string& help, NumberRule rule) {
    const auto read = [&target, name, rule](const std::vector<std::string>& texts) {
        target.clear();
        for (const std::string& text : texts) target.push_back(checked_number(name, text, rule));
    };
    return command.add_option_function<std::vector<std::string>>(name, read, help)->type_name("NUMBER");
}

template <class Number>
CLI::Option* add_count(CLI::App& command, const std::string& name, Number& target, const std::string& help,
                       std::type_identity_t<Number> least, std::type_identity_t<Number> most) {
    const auto read = [=, &target](const std::string& text) {
        const auto number = parse<Number>(text);
        if (!number || *number < least || *number > most)
            throw CLI::ValidationError(name,
                                       fmt::format("\"{}\" is not a whole number from {} to {}", text, least, most));
        target = *number;
    };
    return command.add_option_function<std::string>(name, read, help)->type_name("COUNT");
}
template CLI::Option* add_count(CLI::App&, const std::string&, std::int64_t&, const std::string&, std::int64_t,
                                std::int64_t);
template CLI::Option* add_count(CLI::App&, const std::string&, std::uint64_t&, const std::string&, std::uint64_t,
                                std::uint64_t);

CLI::Option* add_name(CLI::App& command, const std::string& option, std::optional<std::string>& target,
                      const std::string& help, const std::string& kind) {
    return command.add_option(option, target, help)->type_name(kind)->check([](const std::string& text) {
        return text.empty() ? "the name is empty" : std::string();
    });
}

}  // namespace korvane::program
