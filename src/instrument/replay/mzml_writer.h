// Writes recordings as mzML 1.1 with the standard terms.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "instrument/replay/recording.h"

namespace korvane::replay {

/// What a recording says of the instrument.
struct RecordedInstrument {
    std::string model;
    std::string source_type;  ///< as the instrument names it, e.g. "ESI"
    double sampling_interval_ns = 0;
    std::map<std::string, double> setpoints;  ///< by internal name
    std::string start_time;                   ///< of the run, "2026-11-21T10:00:00", local
};

/// Hands the document on part by part, UTF-8: what stands before the spectra at once, then each spectrum, then the end.
class MzmlWriter {
public:
    using Write = std::function<void(std::string_view)>;

    MzmlWriter(const RecordedInstrument& instrument, std::int32_t spectra, Write write);

    /// Adds a spectrum: m/z as 64-bit floats, intensities as 32-bit floats where these hold all of them exactly, else
    /// as 64-bit; both with zlib. The times, the calibration and the peak finder's options become user parameters of
    /// the scan. The spectrum must have samples. Its id is not used: spectra are counted from "scan=1".
    void add(const RecordedSpectrum& spectrum);

    /// After as many spectra as were announced.
    void finish() { write_(end_); }

private:
    Write write_;
    std::string end_;
    std::int32_t count_ = 0;
};

}  // namespace korvane::replay
