// Recording what an instrument shows.
#pragma once

#include <cstdint>
#include <filesystem>

#include "korvane/embedded_parts.h"
#include "korvane/platform.h"

namespace korvane {

/// Writes the next `count` spectra of the instrument as mzML, for `EmbeddedOptions::replay`, one after the other: the
/// memory does not grow with their number. Spectra that come empty are asked for again. An existing file is replaced
/// when all spectra have been taken, and stays as it was otherwise. Errors: 5 for a count below 1; -904 naming the file
/// when it cannot be written, when ten spectra in a row are empty and for spectra that could not be replayed; the
/// instrument's own.
KORVANE_API void record_spectra(const Platform& platform, const std::filesystem::path& file, std::int32_t count,
                                const RecordingProgress& progress = {});

/// Writes one spectrum that the instrument has shown, e.g. to `watched`, under the settings that it has now. Errors as
/// above.
KORVANE_API void record_spectrum(const Platform& platform, const std::filesystem::path& file,
                                 const AcquiredSpectrum& spectrum);

}  // namespace korvane
