#include <filesystem>

#include "assembly/base_folder.h"
#include "assembly/outside_instrument.h"
#include "instrument/replay/replay_layer.h"
#include "instrument/simulator/simulator.h"
#include "korvane/platform.h"
#include "korvane/system.h"
#include "platform/files.h"
#include "platform/paths.h"

namespace korvane {

namespace fs = std::filesystem;

namespace {

constexpr const char* state_file_name = "instrument.json";
constexpr const char* scene_file_name = "scene.json";

std::optional<std::string> scene_file(const EmbeddedOptions& options, const fs::path& folder) {
    if (options.scene) return utf8_from_path(*options.scene);
    const fs::path own = folder / scene_file_name;
    std::error_code ignored;
    if (fs::exists(own, ignored)) return utf8_from_path(own);
    return std::nullopt;
}

Platform make_default_platform() {
    const auto instrument = default_instrument();
    return instrument ? make_outside_platform(*instrument) : make_embedded_platform({});
}

}  // namespace

Platform make_platform(std::shared_ptr<InstrumentLayer> instrument) {
    return {.instrument = std::move(instrument),
            .files = make_system_files(),
            .clock = make_system_clock(),
            .message_box = make_system_message_box(),
            .tracers = make_file_tracer_factory()};
}

Platform make_outside_platform(const std::string& instrument) {
    return make_platform(make_outside_instrument(instrument));
}

Platform make_embedded_platform(const EmbeddedOptions& options) {
    const fs::path folder = usable_base_folder(options.base_folder);
    Platform platform = make_platform(nullptr);
    if (options.replay)
        platform.instrument =
            make_replay({.recording = *options.replay, .base_folder = folder}, platform.files, platform.clock);
    else
        platform.instrument = make_simulator({.base_folder = utf8_from_path(folder),
                                              .seed = options.seed,
                                              .scene_path = scene_file(options, folder),
                                              .state_path = utf8_from_path(folder / state_file_name)},
                                             platform.files, platform.clock);
    return platform;
}

const Platform& Platform::process_default() {
    static const Platform platform = make_default_platform();
    return platform;
}

}  // namespace korvane
