// The terms of the PSI-MS and unit ontologies that the reader and the writer share, and the parameters of an mzML
// element: its own, and those of the groups that it refers to.
#pragma once

#include <array>
#include <charconv>
#include <cstddef>
#include <iterator>
#include <pugixml.hpp>
#include <string_view>

#include "instrument/replay/recording.h"
#include "korvane/embedded_parts.h"

namespace korvane::replay {

struct Term {
    const char* accession;
    const char* name;
    bool is(std::string_view other) const { return other == accession; }
    const char* ontology() const { return std::string_view(accession).starts_with("UO:") ? "UO" : "MS"; }
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
inline constexpr Term int_32{"MS:1000519", "32-bit integer"};
inline constexpr Term int_64{"MS:1000522", "64-bit integer"};
inline constexpr Term float_32{"MS:1000521", "32-bit float"};
inline constexpr Term float_64{"MS:1000523", "64-bit float"};
inline constexpr Term zlib_compression{"MS:1000574", "zlib compression"};
inline constexpr Term no_compression{"MS:1000576", "no compression"};
inline constexpr Term truncation_zlib{"MS:1003088", "truncation and zlib compression"};
inline constexpr Term numpress_linear{"MS:1002312", "MS-Numpress linear prediction compression"};
inline constexpr Term numpress_integer{"MS:1002313", "MS-Numpress positive integer compression"};
inline constexpr Term numpress_logarithm{"MS:1002314", "MS-Numpress short logged float compression"};
inline constexpr Term numpress_linear_zlib{"MS:1002746", "MS-Numpress linear prediction compression and zlib"};
inline constexpr Term numpress_integer_zlib{"MS:1002747", "MS-Numpress positive integer compression and zlib"};
inline constexpr Term numpress_logarithm_zlib{"MS:1002748", "MS-Numpress short logged float compression and zlib"};
inline constexpr Term sampling_frequency{"MS:1000029", "sampling frequency"};
inline constexpr Term ionization_type{"MS:1000008", "ionization type"};
}  // namespace term

namespace unit {
inline constexpr Term millisecond{"UO:0000028", "millisecond"};
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
inline constexpr const char* resolution_limit = "peak finder: resolution limit";
inline constexpr const char* detector_width = "peak finder: detector width (ns)";
inline constexpr const char* setpoint_prefix = "setpoint ";
}  // namespace user_parameter

/// The peak finder's options beside the width: name, the most (the least is 0) and where the value is.
inline constexpr std::tuple<const char*, double, std::optional<double> PeakFinderOptions::*> peak_finder_parameters[] =
    {{"peak finder: counts per ion", 1e12, &PeakFinderOptions::counts_per_ion},
     {"peak finder: ion height spread", 1e12, &PeakFinderOptions::ion_height_spread},
     {"peak finder: ion pulse width (ns)", 1e12, &PeakFinderOptions::ion_pulse_fwhm_ns},
     {"peak finder: tail fraction", 1, &PeakFinderOptions::tail_fraction},
     {"peak finder: tail pulse part", 1, &PeakFinderOptions::tail_pulse_part},
     {"peak finder: saturation (counts)", 1e12, &PeakFinderOptions::saturation_counts}};

/// An ionisation by its term, by the source type code (setpoint 117) and by the word that the names of such sources
/// contain; "nanoESI" comes before "ESI".
struct SourceTerm {
    std::int32_t source_code;
    const char* source_type;
    Term term;
};
inline constexpr SourceTerm source_terms[] = {
    {2, "nanoESI", {"MS:1000398", "nanoelectrospray"}},
    {0, "ESI", {"MS:1000073", "electrospray ionization"}},
    {3, "MALDI", {"MS:1000075", "matrix-assisted laser desorption ionization"}},
    {7, "APCI", {"MS:1000070", "atmospheric pressure chemical ionization"}},
    {8, "APPI", {"MS:1000382", "atmospheric pressure photoionization"}}};

/// A finite number that makes up the whole of `text`; fails naming `what`.
template <class Number = double>
Number parse_number(std::string_view text, const std::string& what, const RecordingPlace& place) {
    Number number = 0;
    const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (fault != std::errc() || end != text.data() + text.size() || !std::isfinite(static_cast<double>(number)))
        place.fail(what, " [", text, "] is not a number");
    return number;
}

/// Fails where the groups of parameters are so many or so long that a file could be made to take for ever.
inline void check_groups(const pugi::xml_node& groups, const RecordingPlace& place) {
    constexpr int most_groups = 1000, most_parameters = 100;
    if (std::distance(groups.begin(), groups.end()) > most_groups) place.fail("more than 1000 groups of parameters");
    for (const auto& group : groups)
        if (std::distance(group.begin(), group.end()) > most_parameters)
            place.fail("more than 100 parameters in group [", group.attribute("id").value(), "]");
}

/// The parameters of an element; its own come before those of groups.
class Parameters {
public:
    Parameters(const pugi::xml_node& element, const pugi::xml_node& groups, const RecordingPlace& place)
        : holders_{element}, place_(place) {
        for (const auto& reference : element.children("referenceableParamGroupRef")) {
            const char* const id = reference.attribute("ref").value();
            holders_.push_back(groups.find_child_by_attribute("referenceableParamGroup", "id", id));
            if (!holders_.back()) place_.fail("there is no referenceableParamGroup [", id, "]");
            if (holders_.size() > 20) place_.fail("more than 20 groups of parameters in one element");
        }
    }

    const pugi::xml_node& element() const { return holders_.front(); }
    /// The cvParam of a term; an empty node where there is none.
    pugi::xml_node find(const Term& sought) const { return parameter("cvParam", "accession", sought.accession); }
    bool has(const Term& sought) const { return !find(sought).empty(); }
    /// Fails where the value is no number.
    std::optional<double> number(const Term& sought) const { return number(find(sought), sought.name); }
    std::string unit(const Term& sought) const { return find(sought).attribute("unitAccession").value(); }
    std::optional<std::string> user_text(const char* name) const {
        const auto found = parameter("userParam", "name", name);
        return found ? std::optional<std::string>(found.attribute("value").value()) : std::nullopt;
    }
    std::optional<double> user_number(const char* name) const {
        return number(parameter("userParam", "name", name), name);
    }

private:
    pugi::xml_node parameter(const char* element, const char* key, std::string_view value) const {
        for (const auto& holder : holders_)
            for (const auto& parameter : holder.children(element))
                if (value == parameter.attribute(key).value()) return parameter;
        return {};
    }
    std::optional<double> number(const pugi::xml_node& parameter, const char* name) const {
        if (!parameter) return std::nullopt;
        return parse_number(parameter.attribute("value").value(), name, place_);
    }

    std::vector<pugi::xml_node> holders_;
    const RecordingPlace& place_;
};

}  // namespace korvane::replay
