#include "korvane/platform.h"

#include <functional>
#include <mutex>
#include <utility>

#include "assembly/base_folder.h"
#include "instrument/library/instrument_library.h"
#include "instrument/replay/recorder.h"
#include "instrument/replay/replay_layer.h"
#include "instrument/simulator/simulator.h"
#include "korvane/embedded.h"
#include "korvane/recording.h"
#include "platform/files.h"

namespace korvane {

namespace fs = std::filesystem;

namespace {

constexpr const char* state_file_name = "instrument.json";
constexpr const char* scene_file_name = "scene.json";
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
    const fs::path own = folder / scene_file_name;
    std::error_code ignored;
    if (fs::exists(own, ignored)) return utf8_from_path(own);
    return std::nullopt;
}

}  // namespace

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
            return make_replay({.recording = *options.replay, .base_folder = folder, .options = options.recording},
                               files, clock);
        return make_simulator({.base_folder = utf8_from_path(folder),
                               .seed = options.seed,
                               .scene_path = scene_file(options, folder),
                               .state_path = utf8_from_path(folder / state_file_name)},
                              files, clock);
    });
    return system;
}

Platform make_outside_platform(const std::string& instrument) {
    return make_platform(std::make_shared<LazyLayer>([instrument] {
        if (!names_library(instrument))
            raise_runtime_fault(cannot_create,
                                instrument + " (neither a library file nor, on this system, an automation object)");
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

void record_spectra(const Platform& platform, const fs::path& file, std::int32_t count,
                    const RecordingProgress& progress) {
    record_spectra(*platform.instrument, utf8_from_path(file), count, *platform.files, *platform.clock, progress);
}

void record_spectrum(const Platform& platform, const fs::path& file, const AcquiredSpectrum& spectrum) {
    record_spectra(*platform.instrument, utf8_from_path(file), 1, *platform.files, *platform.clock, {}, &spectrum);
}

}  // namespace korvane
