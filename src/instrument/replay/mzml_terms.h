// The terms of the PSI-MS and unit ontologies that the reader and the writer share.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace korvane::replay {

struct Term {
    const char* accession;
    const char* name;
    /// Compares with an accession.
    bool operator==(std::string_view other) const { return other == accession; }
};

namespace term {
inline constexpr Term ms_level{"MS:1000511", "ms level"};
inline constexpr Term ms1_spectrum{"MS:1000579", "MS1 spectrum"};
inline constexpr Term profile_spectrum{"MS:1000128", "profile spectrum"};
inline constexpr Term centroid_spectrum{"MS:1000127", "centroid spectrum"};
inline constexpr Term positive_scan{"MS:1000130", "positive scan"};
inline constexpr Term negative_scan{"MS:1000129", "negative scan"};
inline constexpr Term scan_start_time{"MS:1000016", "scan start time"};
inline constexpr Term no_combination{"MS:1000795", "no combination"};
inline constexpr Term lowest_observed_mz{"MS:1000528", "lowest observed m/z"};
inline constexpr Term highest_observed_mz{"MS:1000527", "highest observed m/z"};
inline constexpr Term base_peak_mz{"MS:1000504", "base peak m/z"};
inline constexpr Term base_peak_intensity{"MS:1000505", "base peak intensity"};
inline constexpr Term total_ion_current{"MS:1000285", "total ion current"};
inline constexpr Term mz_array{"MS:1000514", "m/z array"};
inline constexpr Term intensity_array{"MS:1000515", "intensity array"};
inline constexpr Term float_32{"MS:1000521", "32-bit float"};
inline constexpr Term float_64{"MS:1000523", "64-bit float"};
inline constexpr Term zlib_compression{"MS:1000574", "zlib compression"};
inline constexpr Term no_compression{"MS:1000576", "no compression"};
inline constexpr Term custom_software{"MS:1000799", "custom unreleased software tool"};
inline constexpr Term conversion_to_mzml{"MS:1000544", "Conversion to mzML"};
inline constexpr Term instrument_model{"MS:1000031", "instrument model"};
inline constexpr Term quadrupole{"MS:1000081", "quadrupole"};
inline constexpr Term time_of_flight{"MS:1000084", "time-of-flight"};
inline constexpr Term detector_type{"MS:1000026", "detector type"};
inline constexpr Term analog_digital_converter{"MS:1000117", "analog-digital converter"};
inline constexpr Term sampling_frequency{"MS:1000029", "sampling frequency"};
inline constexpr Term ionization_type{"MS:1000008", "ionization type"};
}  // namespace term

namespace unit {
inline constexpr Term second{"UO:0000010", "second"};
inline constexpr Term minute{"UO:0000031", "minute"};
inline constexpr Term nanosecond{"UO:0000150", "nanosecond"};
inline constexpr Term hertz{"UO:0000106", "hertz"};
inline constexpr Term mz{"MS:1000040", "m/z"};
inline constexpr Term detector_counts{"MS:1000131", "number of detector counts"};
}  // namespace unit

/// What the instrument knows beyond the standard terms, as named user parameters: setpoints in the run, the rest in a
/// scan.
namespace user_parameter {
inline constexpr const char* first_flight_time = "flight time of the first sample";
inline constexpr const char* sampling_interval = "sampling interval";
inline constexpr const char* coefficients = "calibration coefficients A to H";
inline constexpr const char* use_flags = "calibration term use flags";
inline constexpr const char* setpoint_prefix = "setpoint ";
}  // namespace user_parameter

/// An ionisation by its term, by the source type code (setpoint 117) and by the word that the names of such sources
/// contain; "nanoESI" comes before "ESI".
struct SourceTerm {
    std::int32_t source_code;
    const char* source_type;
    Term term;
};
inline constexpr std::array<SourceTerm, 5> source_terms{{
    {2, "nanoESI", {"MS:1000398", "nanoelectrospray"}},
    {0, "ESI", {"MS:1000073", "electrospray ionization"}},
    {3, "MALDI", {"MS:1000075", "matrix-assisted laser desorption ionization"}},
    {7, "APCI", {"MS:1000070", "atmospheric pressure chemical ionization"}},
    {8, "APPI", {"MS:1000382", "atmospheric pressure photoionization"}},
}};

}  // namespace korvane::replay
