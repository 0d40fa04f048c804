#include <fmt/format.h>

#include "commands.h"

namespace korvane::program {

void add_init(CLI::App& program, Session& session) {
    auto folder = std::make_shared<std::string>();
    CLI::App* command = add_command(program, session, "init", "make a base folder with the standard configuration",
                                    "korvane init ~/tune/instrument-1");
    command->add_option("DIR", *folder, "folder to make; must not exist yet, or be empty")
        ->required()
        ->check(not_empty);
    on_run(command, session, folder, [](Session& running, const std::string& wanted) {
        const auto path = std::filesystem::absolute(path_from_utf8(wanted));
        create_base_folder(path);
        if (running.json)
            running.print_json(Json{{"base_folder", utf8_from_path(path)}});
        else
            running.print(fmt::format("{}\n", utf8_from_path(path)));
        return ExitCode::done;
    });
}

}  // namespace korvane::program
