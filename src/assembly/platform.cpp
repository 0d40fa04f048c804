// The default platforms, and the base folders of the embedded one.
#include <algorithm>
#include <functional>
#include <mutex>
#include <random>
#include <string_view>
#include <utility>

#include "assembly/base_data.h"
#include "instrument/library/instrument_library.h"
#include "instrument/replay/replay_layer.h"
#include "instrument/simulator/simulator.h"
#include "korvane/embedded.h"
#include "korvane/error.h"
#include "korvane/listing.h"
#include "korvane/platform.h"
#include "platform/files.h"
#include "platform/text.h"

namespace korvane {

namespace fs = std::filesystem;

namespace {

constexpr const char* logs_folder = "Logfiles";

[[noreturn]] void fail(const char* routine, const fs::path& folder, const std::string& fault) {
    throw Error(error_number::file_or_element, routine, "base folder " + utf8_from_path(folder) + ": " + fault);
}

// Empty where the variable is not set.
fs::path path_from_environment(const char* name) {
    return path_from_utf8(environment_text(name));
}

fs::path per_user_folder() {
#ifdef _WIN32
    const fs::path data = path_from_environment("LOCALAPPDATA");
    const fs::path folder = data / "Korvane";
#else
    fs::path data = path_from_environment("XDG_DATA_HOME");
    if (!data.is_absolute()) {
        const fs::path home = path_from_environment("HOME");
        data = home.is_absolute() ? home / ".local" / "share" : fs::path();
    }
    const fs::path folder = data / "korvane";
#endif
    if (data.empty())
        throw Error(error_number::file_or_element, "default_base_folder",
                    "the user has no folder for data; name a base folder in KORVANE_BASE");
    return folder;
}

/// The file with the numbers among its texts as the stores read them here.
std::string with_local_numbers(std::string_view bytes) {
    std::string text;
    while (!bytes.empty()) {
        const std::size_t end = std::min(bytes.find('<'), bytes.size());
        const std::string_view piece = bytes.substr(0, end);
        const bool is_number = piece.find_first_not_of("0123456789.+-eE") == std::string_view::npos;
        text += is_number ? stored_number(std::string(piece)) : piece;
        const std::size_t next = std::min(bytes.find('>', end), bytes.size() - 1) + 1;
        text += bytes.substr(end, next - end);
        bytes.remove_prefix(next);
    }
    return text;
}

void write_base_data(const fs::path& folder) {
    const auto files = make_system_files();
    fs::create_directory(folder / logs_folder);
    for (const BaseDataFile& file : base_data_files()) {
        const fs::path path = folder / fs::path(file.name);
        fs::create_directories(path.parent_path());
        safe_save(*files, utf8_from_path(path), with_local_numbers(file.bytes));
    }
}

/// Everything is written in a folder beside or inside it first. A folder that is there is empty and stays the same
/// folder, since somebody may work in it.
void fill(const fs::path& folder, bool is_there) {
    const fs::path place = is_there ? folder : folder.parent_path();
    fs::create_directories(place);
    const fs::path staging = place / (".korvane-new-" + std::to_string(std::random_device()()));
    fs::create_directory(staging);
    std::vector<fs::path> ours{staging};
    try {
        write_base_data(staging);
        if (!is_there) return fs::rename(staging, folder);
        for (const auto& entry : fs::directory_iterator(staging)) {
            ours.push_back(folder / entry.path().filename());
            fs::rename(entry, ours.back());
        }
        fs::remove(staging);
    } catch (...) {
        std::error_code ignored;
        for (const fs::path& path : ours) fs::remove_all(path, ignored);
        throw;
    }
}

void make_per_user_folder(const fs::path& folder) {
    try {
        create_base_folder(folder);
    } catch (const Error&) {
        // Another program may have made it in the meantime.
        if (!fs::exists(folder / logs_folder)) throw;
    }
}

void require_folder(const fs::path& folder) {
    const char* const routine = "make_embedded_platform";
    std::error_code fault;
    const fs::file_status status = fs::status(folder, fault);
    if (status.type() == fs::file_type::not_found) fail(routine, folder, "it does not exist");
    if (fault) fail(routine, folder, fault.message());
    if (!fs::is_directory(status)) fail(routine, folder, "it is not a folder");
}

constexpr std::int32_t cannot_create = 429;

/// A layer that is made at its first use, and asked for again as long as it cannot be had.
class LazyLayer final : public InstrumentLayer {
public:
    explicit LazyLayer(std::function<std::shared_ptr<InstrumentLayer>()> make) : make_(std::move(make)) {}

    std::unique_ptr<InstrumentGlobals> create_globals() override { return target().create_globals(); }
    std::unique_ptr<PathInformation> create_path_information() override { return target().create_path_information(); }
    std::unique_ptr<LogbookEntry> create_logbook_entry() override { return target().create_logbook_entry(); }
    std::unique_ptr<PeakFinder> create_peak_finder() override { return target().create_peak_finder(); }

private:
    InstrumentLayer& target() {
        const std::lock_guard lock(mutex_);
        if (!target_) target_ = make_();
        return *target_;
    }

    const std::function<std::shared_ptr<InstrumentLayer>()> make_;
    std::mutex mutex_;
    std::shared_ptr<InstrumentLayer> target_;
};

std::optional<std::string> scene_file(const EmbeddedOptions& options, const fs::path& folder) {
    if (options.scene) return utf8_from_path(*options.scene);
    const fs::path own = folder / "scene.json";
    std::error_code ignored;
    return fs::exists(own, ignored) ? std::optional(utf8_from_path(own)) : std::nullopt;
}

/// The chosen folder, or for an empty path the default one; the per-user folder is made when it does not exist yet.
/// Error -904 naming the result when it does not exist or is no folder; what it holds is told by who needs it.
fs::path usable_base_folder(const fs::path& chosen) {
    fs::path folder = chosen.empty() ? default_base_folder() : chosen;
    std::error_code fault;
    folder = fs::absolute(folder, fault).lexically_normal();
    if (chosen.empty() && path_from_environment("KORVANE_BASE").empty() && !fs::exists(folder, fault))
        make_per_user_folder(folder);
    require_folder(folder);
    return folder;
}

}  // namespace

fs::path default_base_folder() {
    const fs::path named = path_from_environment("KORVANE_BASE");
    return named.empty() ? per_user_folder() : named;
}

void create_base_folder(const fs::path& folder) {
    const char* const routine = "create_base_folder";
    try {
        fs::path wanted = fs::absolute(folder).lexically_normal();
        if (!wanted.has_filename()) wanted = wanted.parent_path();
        const bool is_there = fs::exists(wanted);
        if (is_there && !fs::is_directory(wanted)) fail(routine, wanted, "it exists and is not a folder");
        if (is_there && !fs::is_empty(wanted)) fail(routine, wanted, "it exists and is not empty");
        fill(wanted, is_there);
    } catch (const fs::filesystem_error& fault) {
        fail(routine, folder, fault.code().message());
    } catch (const FileError& fault) {
        fail(routine, folder, fault.what());
    }
}

Platform make_platform(std::shared_ptr<InstrumentLayer> instrument) {
    return {.instrument = std::move(instrument),
            .files = make_system_files(),
            .clock = make_system_clock(),
            .message_box = make_system_message_box(),
            .tracers = make_file_tracer_factory()};
}

Platform make_embedded_platform(const EmbeddedOptions& options, Platform system) {
    system.instrument = std::make_shared<LazyLayer>([options, files = system.files, clock = system.clock] {
        const fs::path folder = usable_base_folder(options.base_folder);
        if (options.replay)
            return make_replay(utf8_from_path(*options.replay), utf8_from_path(folder), options.recording, files,
                               clock);
        return make_simulator({.base_folder = utf8_from_path(folder),
                               .seed = options.seed,
                               .scene_path = scene_file(options, folder),
                               .state_path = utf8_from_path(folder / "instrument.json")},
                              files, clock);
    });
    return system;
}

Platform make_outside_platform(const std::string& instrument) {
    return make_platform(std::make_shared<LazyLayer>([instrument] {
        if (!names_library(instrument))
            raise_runtime_fault(cannot_create, instrument,
                                " (neither a library file nor, on this system, an automation object)");
        return load_instrument_library(instrument);
    }));
}

std::optional<std::string> default_instrument() {
    const std::string name = environment_text("KORVANE_INSTRUMENT");
    return name.empty() ? std::nullopt : std::optional(name);
}

const Platform& Platform::process_default() {
    static const Platform platform = [] {
        const auto instrument = default_instrument();
        return instrument ? make_outside_platform(*instrument) : make_embedded_platform({});
    }();
    return platform;
}

}  // namespace korvane
