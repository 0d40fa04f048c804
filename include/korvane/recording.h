// Recording what an instrument shows.
#pragma once

#include <cstdint>
#include <filesystem>

#include "korvane/platform.h"

namespace korvane {

/// Writes the next `count` spectra of the instrument as mzML, for `EmbeddedOptions::replay`. Spectra that come empty
/// are asked for again. An existing file is replaced when all spectra have been taken. Errors: 5 for a count below 1;
/// -904 naming the file when ten spectra in a row are empty or the file cannot be written; the instrument's own.
KORVANE_API void record_spectra(const Platform& platform, const std::filesystem::path& file, std::int32_t count);

}  // namespace korvane
