// The files of the embedded instrument: scenes and states, and recordings.
#include "fuzz/targets.h"
#include "instrument/replay/playback.h"
#include "instrument/simulator/scene.h"
#include "support/memory_disk.h"

namespace korvane::fuzz {

void state(std::string_view input) {
    passes([&] { simulation::parse_state(input, "state"); });
    passes([&] { simulation::parse_scene(input, "scene"); });
}

void recording(std::string_view input) {
    MemoryDisk disk;
    disk.put("recording.mzML", std::string(input));
    for (const std::optional<std::int32_t> level : {std::optional<std::int32_t>(), std::optional(every_ms_level)})
        passes([&] { replay::prepare_playback(replay::read_recording(disk, "recording.mzML", {level, {}, {}})); });
    // Which takes texts, too.
    passes([&] {
        search_profiles(disk, "recording.mzML", {every_ms_level, {}, {}}, [](const SearchedSpectrum&, auto, auto) {});
    });
}

}  // namespace korvane::fuzz
