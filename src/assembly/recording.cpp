#include "korvane/recording.h"

#include "assembly/base_folder.h"
#include "instrument/replay/recorder.h"

namespace korvane {

void record_spectra(const Platform& platform, const std::filesystem::path& file, std::int32_t count) {
    record_spectra(*platform.instrument, path_text(file), count, *platform.files);
}

}  // namespace korvane
