#include "support/test_platform.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <iterator>
#include <sstream>

#include "korvane/listing.h"
#include "platform/files.h"

namespace korvane {

namespace {

std::string elements(const std::map<std::string, std::string>& contents) {
    std::string text;
    for (const auto& [name, content] : contents) text += "<" + name + ">" + content + "</" + name + ">\n";
    return text;
}

}  // namespace

TemporaryFolder::TemporaryFolder() {
    static std::atomic<int> counter{0};
    // A process that was killed may have left a folder, and its number comes again.
    do
        path_ = std::filesystem::temp_directory_path() /
                ("korvane-test-" + std::to_string(getpid()) + "-" + std::to_string(++counter));
    while (!std::filesystem::create_directory(path_));
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string TemporaryFolder::file(const std::string& name) const {
    return utf8_from_path(path_ / path_from_utf8(name));
}

std::string read_text(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void write_text(const std::filesystem::path& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

std::vector<std::string> read_lines(const std::filesystem::path& path) {
    std::vector<std::string> lines;
    std::istringstream in(read_text(path));
    for (std::string line; std::getline(in, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        lines.push_back(line);
    }
    return lines;
}

Lines names_in(const std::filesystem::path& folder) {
    Lines names;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    std::ranges::sort(names);
    return names;
}

TestPlatform::TestPlatform() : files(make_system_files()) {
    std::filesystem::create_directories(base() / "Logfiles");
    std::filesystem::create_directories(base() / "MassLists");
    instrument().base_folder = base().string();
    for (const char* name : {"LogSetpointTraffic", "AbortFlag"}) preference(name, "0");
    limit("RampParams", "MinimumAcceptableAbundance", "1000");
    limit("PeakHandling", "PeakFindWindowInPercentT", stored_number("0.5"));
}

void TestPlatform::preference(const std::string& name, const std::string& value) {
    preferences_[name] = value;
    write_text(base() / "TunePreferences.xml",
               "<?xml version=\"1.0\"?>\n" + elements({{"TunePreferences", elements(preferences_)}}));
}

void TestPlatform::limit(const std::string& group, const std::string& key, const std::string& value) {
    limits_[group][key] = value;
    raw_parameters("");
}

void TestPlatform::raw_parameters(const std::string& xml) {
    raw_parameters_ += xml;
    std::string groups;
    for (const auto& [name, limits] : limits_) groups += elements({{name, elements(limits)}});
    groups = elements({{"TOF", elements({{"AutotuneParameters", groups}})}});
    write_text(base() / "TuneParams.xml",
               "<?xml version=\"1.0\"?>\n" + elements({{"QTOFTuneParams", groups + raw_parameters_}}));
}

Platform TestPlatform::platform() const {
    return {layer, files, clock, message_box, tracers};
}

std::vector<std::string> TestPlatform::log_lines(const std::string& name_start) const {
    std::filesystem::path newest;
    for (const auto& entry : std::filesystem::directory_iterator(base() / "Logfiles"))
        if (entry.path().filename().string().starts_with(name_start)) newest = std::max(newest, entry.path());
    return newest.empty() ? std::vector<std::string>{} : read_lines(newest);
}

}  // namespace korvane
