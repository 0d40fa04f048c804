#include "korvane/automation.h"

#include <fmt/format.h>

#include "commands.h"

namespace korvane::program {

namespace {

ExitCode list_members(Session& session) {
    const auto members = automation::member_summaries();
    if (session.json) {
        Json rows = Json::array();
        for (const auto& member : members)
            rows.push_back({{"class", member.class_name},
                            {"member", member.name},
                            {"dispid", member.dispid},
                            {"signature", member.signature},
                            {"help", member.help}});
        session.print_json(Json{{"members", std::move(rows)}});
        return ExitCode::done;
    }
    std::string text, class_name;
    for (const auto& member : members) {
        if (member.class_name != class_name) {
            class_name = member.class_name;
            text += fmt::format("{}{}\n", text.empty() ? "" : "\n", class_name);
        }
        text += fmt::format("  {:>3}  {}\n", member.dispid, member.signature);
    }
    session.print(text);
    return ExitCode::done;
}

void add_text_command(CLI::App& group, Session& session, const std::string& name, const std::string& help,
                      std::string (*text)()) {
    CLI::App* command = group.add_subcommand(name, help);
    on_run(command, session, [text](Session& running) {
        running.print(text());
        return ExitCode::done;
    });
}

}  // namespace

void add_automation(CLI::App& program, Session& session) {
    CLI::App* group = add_group(program, "automation", "describe the automation interface");
    CLI::App* list = add_command(*group, session, "list", "print classes and members with their signatures",
                                 "korvane automation list --json");
    on_run(list, session, list_members);
    add_text_command(*group, session, "idl", "print the interface definition", &automation::idl_text);
    add_text_command(*group, session, "reference", "print the reference page", &automation::reference_text);
}

}  // namespace korvane::program
