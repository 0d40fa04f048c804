// Reads one spectrum element of an mzML document.
#pragma once

#include <cstddef>
#include <optional>
#include <pugixml.hpp>
#include <string>
#include <vector>

#include "instrument/replay/binary_array.h"
#include "instrument/replay/mzml_parameters.h"
#include "instrument/replay/recording.h"

namespace korvane::replay {

/// One spectrum element on its way to a `RecordedSpectrum`. The errors are those of `read_recording`.
class SpectrumReader {
public:
    SpectrumReader(const pugi::xml_node& element, const pugi::xml_node& groups, const std::string& file)
        : element_(element),
          groups_(groups),
          place_{file, element.attribute("id").value()},
          parameters_(element, groups, place_) {}

    bool is_level_1() const;
    RecordedSpectrum read() const;

private:
    void require_profile() const;
    PolaritySetpoint polarity() const;
    std::size_t sample_count() const;
    void read_scan(RecordedSpectrum& spectrum) const;
    double scan_start_minutes(const MzmlParameters& scan) const;
    std::optional<StatedCalibration> stated_calibration(const MzmlParameters& scan) const;
    std::vector<double> numbers(const Term& array, std::size_t default_length) const;
    BinaryEncoding encoding(const MzmlParameters& array, const Term& kind) const;
    void check_numbers(const RecordedSpectrum& spectrum) const;

    pugi::xml_node element_;
    pugi::xml_node groups_;
    RecordingPlace place_;
    MzmlParameters parameters_;
};

/// A whole number made of digits alone; fails naming `what`.
std::size_t parse_count(const pugi::xml_attribute& attribute, const std::string& what, const RecordingPlace& place);

}  // namespace korvane::replay
