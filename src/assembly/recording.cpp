#include "korvane/recording.h"

#include "instrument/replay/recorder.h"
#include "platform/paths.h"

namespace korvane {

void record_spectra(const Platform& platform, const std::filesystem::path& file, std::int32_t count) {
    record_spectra(*platform.instrument, utf8_from_path(file), count, *platform.files);
}

}  // namespace korvane
