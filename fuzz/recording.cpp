#include "instrument/replay/recording.h"
#include "fuzz/targets.h"
#include "instrument/replay/playback.h"
#include "support/memory_disk.h"

namespace korvane::fuzz {

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
