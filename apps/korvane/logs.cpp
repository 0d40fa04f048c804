// Logs of the base folder: removing old ones.
#include <algorithm>
#include <chrono>
#include <regex>

#include "commands.h"
#include "korvane/system.h"

namespace korvane::program {

namespace {

struct PruneOptions {
    std::string age;
    bool dry_run = false;
};

std::chrono::sys_days day_of(int year, int month, int day) {
    return std::chrono::year_month_day(std::chrono::year(year), std::chrono::month(static_cast<unsigned>(month)),
                                       std::chrono::day(static_cast<unsigned>(day)));
}

/// The day in "NAME_YYYYMMDD_HHMMSS.txt" or ".html"; nothing in another name, which is no dated log or report.
std::optional<std::chrono::sys_days> dated_day(const std::string& name) {
    static const std::regex dated(".+_([0-9]{4})([0-9]{2})([0-9]{2})_[0-9]{6}\\.(txt|html)");
    std::smatch parts;
    if (!std::regex_match(name, parts, dated)) return std::nullopt;
    return day_of(std::stoi(parts[1]), std::stoi(parts[2]), std::stoi(parts[3]));
}

std::int64_t days_of(const std::string& text) {
    const std::int64_t unit = text.ends_with('w') ? 7 : 1;
    const auto count = parse_integer(std::string_view(text).substr(0, text.size() - (text.empty() ? 0 : 1)));
    if (!count || *count < 0 || *count > 36500 || (!text.ends_with('d') && !text.ends_with('w')))
        throw UsageError(fmt::format("--older-than: \"{}\" is no number of days or weeks, such as 90d or 12w", text));
    return *count * unit;
}

ExitCode prune(Session& session, const PruneOptions& options) {
    const std::int64_t most_days = days_of(options.age);
    const std::string folder = utf8_of(path_of(session.base_folder()) / "Logfiles");
    const LocalTime now = session.platform().clock->now();
    Files& files = *session.platform().files;
    Json rows = Json::array();
    TextTable table({"<log", "age days"});
    try {
        std::vector<std::string> names = files.list(folder);
        std::ranges::sort(names);
        for (const std::string& name : names) {
            const auto day = dated_day(name);
            if (!day) continue;
            const auto age = (day_of(now.year, now.month, now.day) - *day).count();
            if (age <= most_days) continue;
            if (!options.dry_run) files.remove(utf8_of(path_of(folder) / name));
            rows.push_back(Json{{"file", name}, {"age_days", age}});
            table.add_row(name, age);
        }
    } catch (const FileError& error) {
        throw Error(error.runtime_error_number(), "", folder + ": " + error.what());
    }
    return session.show(Json{{"folder", folder}, {"removed", !options.dry_run}, {"logs", std::move(rows)}}, table);
}

}  // namespace

void declare_logs(CLI::App& group, Session& session) {
    const auto [command, options] =
        add_command(group, session, "prune",
                    "remove dated logs and reports (NAME_YYYYMMDD_HHMMSS.txt, .html) of the folder Logfiles",
                    "korvane logs prune --older-than 90d", prune);
    add_csv(command, session);
    command.add_option("--older-than", options.age, "days or weeks, such as 90d or 12w")->type_name("AGE")->required();
    command.add_flag("--dry-run", options.dry_run, "tell which, and remove nothing");
}

}  // namespace korvane::program
