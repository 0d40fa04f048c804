// Writes recordings as mzML 1.1 with the standard terms.
#pragma once

#include <cstdint>
#include <map>
#include <pugixml.hpp>
#include <string>

#include "instrument/replay/recording.h"

namespace korvane::replay {

/// What a recording says of the instrument.
struct RecordedInstrument {
    std::string model;
    std::string source_type;  ///< as the instrument names it, e.g. "ESI"
    double sampling_interval_ns = 0;
    std::map<std::string, double> setpoints;  ///< by internal name
};

class MzmlWriter {
public:
    explicit MzmlWriter(const RecordedInstrument& instrument);

    /// Adds a spectrum: m/z as 64-bit floats, intensities as 32-bit floats where these hold all of them exactly, else
    /// as 64-bit; both with zlib. The times, the calibration and the peak finder's options become user parameters of
    /// the scan. The spectrum must have samples. Its id is not used: spectra are counted from "scan=1".
    void add(const RecordedSpectrum& spectrum);

    /// The document so far, UTF-8.
    std::string text();

private:
    pugi::xml_document document_;
    pugi::xml_node spectra_;
    std::int32_t count_ = 0;
};

}  // namespace korvane::replay
