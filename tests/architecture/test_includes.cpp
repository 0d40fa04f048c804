// The plan of the rooms, held against every #include of src/, apps/ and include/.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Names = std::set<std::string>;

const fs::path root = KORVANE_SOURCE_DIR;

// Which rooms a room may include, besides itself.
const std::map<std::string, Names> allowed_rooms{
    {"platform", {}},
    {"frame", {"platform"}},
    {"config", {"frame", "platform"}},
    {"masslist", {"frame", "platform"}},
    {"globals", {"config", "masslist", "frame", "platform"}},
    {"spectrum", {"globals", "frame", "platform"}},
    {"abundance", {"spectrum", "globals", "frame", "platform"}},
    {"tune", {"tune/database", "platform"}},
    {"tune/database", {}},
    {"instrument/masstime", {"platform"}},
    {"instrument/peakfinder", {"platform"}},
    {"instrument/embedded", {"platform"}},
    {"instrument/simulator", {"instrument/embedded", "platform", "instrument/peakfinder"}},
    {"instrument/replay", {"instrument/embedded", "platform", "instrument/peakfinder"}},
    {"instrument/library", {"platform"}},
    {"instrument/conformance", {"platform"}},
    {"assembly", {"globals", "frame", "platform", "instrument/simulator", "instrument/replay", "instrument/library"}},
    {"automation", {"frame", "platform"}},
    {"automation/c", {"automation", "frame", "platform"}},
    {"automation/com", {"automation", "instrument/library", "frame", "platform"}},
};

// The top floor: knows the classes, and no room below knows it.
const Names automation_rooms{"automation", "automation/c", "automation/com"};

// Public headers of classes behind the rooms that know them; every other public header is vocabulary.
const std::vector<std::pair<Names, Names>> class_headers{
    {{"config", "globals", "spectrum", "abundance", "tune"}, {"tune_params_xml"}},
    {{"config", "globals", "spectrum", "abundance"}, {"tune_prefs_xml", "abort_helper"}},
    {{"masslist", "globals"}, {"cal_mass_list"}},
    {{"globals", "spectrum", "abundance", "tune"}, {"tune_globals"}},
    {{"spectrum", "abundance", "tune"}, {"spectrum_parser"}},
    {{"tune"},
     {"calibrants", "calibration_fit", "secant_search", "verdict", "tune_record", "report", "tune_run", "tune_history",
      "control_chart"}},
    {{"instrument/replay"}, {"recording"}},
    {{}, {"korvane", "automation", "automation_value", "korvane_c", "korvane_c_layer"}}};

std::vector<std::string> includes_of(const fs::path& file) {
    static const std::regex include("^\\s*#\\s*include\\s*\"([^\"]+)\"");
    std::vector<std::string> found;
    std::ifstream in(file);
    for (std::string line; std::getline(in, line);)
        if (std::smatch match; std::regex_search(line, match, include)) found.push_back(match[1]);
    return found;
}

std::vector<fs::path> sources_below(const fs::path& folder) {
    std::vector<fs::path> found;
    for (const auto& entry : fs::recursive_directory_iterator(root / folder))
        if (entry.path().extension() == ".h" || entry.path().extension() == ".cpp") found.push_back(entry.path());
    return found;
}

TEST(Rooms, IncludesRunInOneDirection) {
    int checked = 0;
    for (const fs::path& file : sources_below("src")) {
        const std::string room = fs::relative(file.parent_path(), root / "src").generic_string();
        ASSERT_TRUE(allowed_rooms.count(room)) << file << " lies in no known room";
        for (const std::string& include : includes_of(file)) {
            ++checked;
            if (include.starts_with("korvane/")) {
                for (const auto& [rooms, headers] : class_headers)
                    EXPECT_TRUE(!headers.count(fs::path(include).stem().string()) || rooms.count(room) ||
                                automation_rooms.count(room))
                        << file << " must not know " << include;
                continue;
            }
            const std::string other = fs::path(include).parent_path().generic_string();
            EXPECT_TRUE(other == room || allowed_rooms.at(room).count(other))
                << file << " must not include " << include;
        }
    }
    EXPECT_GT(checked, 100) << "the test no longer finds the sources";
}

TEST(Rooms, PublicFaceNeedsNothingButItselfAndOneHeaderHasItAll) {
    std::vector<std::string> all = includes_of(root / "include/korvane/korvane.h");
    all.insert(all.end(),
               {"korvane/korvane.h", "korvane/export.h", "korvane/korvane_c.h", "korvane/korvane_c_layer.h"});
    for (const fs::path& file : sources_below("include")) {
        EXPECT_TRUE(std::count(all.begin(), all.end(), "korvane/" + file.filename().string())) << file;
        for (const std::string& include : includes_of(file))
            EXPECT_TRUE(include.starts_with("korvane/")) << file << " includes " << include;
    }
}

TEST(Rooms, ProgramUsesThePublicFaceOnlyAndFilesStayReadable) {
    for (const char* folder : {"apps", "include", "src"})
        for (const fs::path& file : sources_below(folder)) {
            for (const std::string& include : includes_of(file))
                EXPECT_TRUE(*folder != 'a' || include.starts_with("korvane/") ||
                            fs::exists(file.parent_path() / include))
                    << file << " includes " << include;
            std::ifstream in(file);
            const auto lines = std::count(std::istreambuf_iterator<char>(in), {}, '\n');
            EXPECT_LE(lines, file.extension() == ".h" ? 260 : 420) << file;
        }
}

}  // namespace
