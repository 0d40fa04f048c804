#include "instrument/replay/mzml_spectrum_reader.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <sstream>

#include "instrument/replay/mzml_terms.h"
#include "instrument/replay/named_peak_options.h"
#include "platform/automation_arithmetic.h"

namespace korvane::replay {

std::size_t parse_count(const pugi::xml_attribute& attribute, const std::string& what, const RecordingPlace& place) {
    const std::string text = attribute.value();
    const bool digits = !text.empty() && text.size() <= 18 && text.find_first_not_of("0123456789") == std::string::npos;
    if (!digits) place.fail(what + " [" + text + "] is not a count");
    return static_cast<std::size_t>(std::stoull(text));
}

bool SpectrumReader::is_level_1() const {
    const auto level = parameters_.number(term::ms_level);
    if (!level && !parameters_.has(term::ms1_spectrum)) place_.fail("the ms level (MS:1000511) is missing");
    return !level || *level == 1;
}

void SpectrumReader::require_profile() const {
    if (parameters_.has(term::centroid_spectrum))
        place_.fail("a centroid spectrum (MS:1000127) cannot be replayed, only a profile");
    if (!parameters_.has(term::profile_spectrum)) place_.fail("the term profile spectrum (MS:1000128) is missing");
}

PolaritySetpoint SpectrumReader::polarity() const {
    const bool positive = parameters_.has(term::positive_scan);
    if (positive == parameters_.has(term::negative_scan))
        place_.fail(positive ? "both polarities (MS:1000130, MS:1000129) are stated"
                             : "the polarity (MS:1000130 or MS:1000129) is missing");
    return positive ? PolaritySetpoint::Positive : PolaritySetpoint::Negative;
}

std::size_t SpectrumReader::sample_count() const {
    const auto count = parse_count(element_.attribute("defaultArrayLength"), "defaultArrayLength", place_);
    if (count == 0) place_.fail("there are no samples");
    return count;
}

double SpectrumReader::scan_start_minutes(const MzmlParameters& scan) const {
    const auto value = scan.number(term::scan_start_time);
    if (!value) return 0;
    const std::string unit = scan.find(term::scan_start_time).attribute("unitAccession").value();
    if (unit::second == unit) return *value / 60;
    if (unit::minute == unit) return *value;
    place_.fail("unit [" + unit + "] of the scan start time is neither second nor minute");
}

std::optional<StatedCalibration> SpectrumReader::stated_calibration(const MzmlParameters& scan) const {
    const auto coefficients = scan.user_text(user_parameter::coefficients);
    const auto flags = scan.user_text(user_parameter::use_flags);
    if (!coefficients) return std::nullopt;
    if (!flags) place_.fail(std::string(user_parameter::use_flags) + ": missing beside the coefficients");
    StatedCalibration stated;
    auto& c = stated.coefficients;
    std::istringstream words(*coefficients);
    std::string word;
    for (double* slot : {&c.A, &c.B, &c.C, &c.D, &c.E, &c.F, &c.G, &c.H}) {
        words >> word;
        if (!words) place_.fail("[" + *coefficients + "] are not eight calibration coefficients");
        *slot = scan.parse_number(word, user_parameter::coefficients);
    }
    if (words >> word) place_.fail("[" + *coefficients + "] are more than eight calibration coefficients");
    for (std::istringstream flag_words(*flags); flag_words >> word;) {
        if (word != "0" && word != "1") place_.fail("calibration term use flag [" + word + "] is neither 0 nor 1");
        stated.use_flags.push_back(word == "1" ? 1 : 0);
    }
    return stated;
}

void SpectrumReader::read_scan(RecordedSpectrum& spectrum) const {
    // Where several scans were added up, the first one speaks for the spectrum.
    const MzmlParameters scan(element_.child("scanList").child("scan"), groups_, place_);
    spectrum.scan_start_minutes = scan_start_minutes(scan);
    spectrum.first_flight_time_ns = scan.user_number(user_parameter::first_flight_time);
    spectrum.sampling_interval_ns = scan.user_number(user_parameter::sampling_interval);
    if (spectrum.first_flight_time_ns && !spectrum.sampling_interval_ns)
        place_.fail(std::string(user_parameter::sampling_interval) + ": missing beside the flight time");
    if (spectrum.sampling_interval_ns && !(*spectrum.sampling_interval_ns > 0))
        place_.fail(std::string(user_parameter::sampling_interval) + ": is not above 0");
    spectrum.calibration = stated_calibration(scan);
    const auto options =
        peak_finder_options([&](const char* option) { return scan.user_number(peak_finder_parameter(option)); });
    if (!options) place_.fail("of the peak finder's resolution limit and detector width only one is stated");
    spectrum.peak_finder = *options;
}

BinaryEncoding SpectrumReader::encoding(const MzmlParameters& array, const Term& kind) const {
    for (const auto& parameter : array.controlled()) {
        const std::string accession = parameter.attribute("accession").value();
        const auto known = {kind, term::float_32, term::float_64, term::zlib_compression, term::no_compression};
        if (std::none_of(known.begin(), known.end(), [&](const Term& t) { return t == accession; }))
            place_.fail(std::string(kind.name) + ": term " + accession + " (" + parameter.attribute("name").value() +
                        ") is not supported");
    }
    if (array.has(term::float_32) == array.has(term::float_64))
        place_.fail(std::string(kind.name) + ": neither or both of 32-bit float and 64-bit float are stated");
    if (array.has(term::zlib_compression) == array.has(term::no_compression))
        place_.fail(std::string(kind.name) + ": neither or both of zlib compression and no compression are stated");
    return {array.has(term::float_64), array.has(term::zlib_compression)};
}

std::vector<double> SpectrumReader::numbers(const Term& array, std::size_t default_length) const {
    for (const auto& element : element_.child("binaryDataArrayList").children("binaryDataArray")) {
        const MzmlParameters parameters(element, groups_, place_);
        if (!parameters.has(array)) continue;
        const BinaryEncoding how = encoding(parameters, array);
        const auto own_length = element.attribute("arrayLength");
        const std::size_t length = own_length ? parse_count(own_length, "arrayLength", place_) : default_length;
        if (length != default_length)
            place_.fail(std::string(array.name) + ": arrayLength " + std::to_string(length) +
                        " is not the spectrum's defaultArrayLength " + std::to_string(default_length));
        const char* text = element.child("binary").text().get();
        const auto encoded = element.attribute("encodedLength");
        const auto characters = static_cast<std::size_t>(
            std::count_if(text, text + std::strlen(text), [](unsigned char c) { return c > ' '; }));
        if (encoded && parse_count(encoded, "encodedLength", place_) != characters)
            place_.fail(std::string(array.name) + ": encodedLength " + encoded.value() +
                        " is not the length of the text, " + std::to_string(characters));
        return decode_numbers(text, how, length, place_, array.name);
    }
    place_.fail("there is no " + std::string(array.name) + " (" + array.accession + ")");
}

void SpectrumReader::check_numbers(const RecordedSpectrum& spectrum) const {
    double below = 0;
    for (std::size_t i = 0; i < spectrum.mz.size(); ++i) {
        if (!std::isfinite(spectrum.mz[i]) || !(spectrum.mz[i] > below))
            place_.fail("m/z [" + number_text(spectrum.mz[i]) + "] of sample " + std::to_string(i) +
                        " does not lie above [" + number_text(below) + "]");
        below = spectrum.mz[i];
        if (!std::isfinite(spectrum.intensity[i]))
            place_.fail("intensity of sample " + std::to_string(i) + " is not a finite number");
    }
}

RecordedSpectrum SpectrumReader::read() const {
    require_profile();
    RecordedSpectrum spectrum;
    spectrum.id = place_.spectrum_id;
    spectrum.polarity = polarity();
    read_scan(spectrum);
    const std::size_t count = sample_count();
    if (count > static_cast<std::size_t>(largest_spectrum_samples))
        place_.fail("defaultArrayLength " + std::to_string(count) + " is more than " +
                    std::to_string(largest_spectrum_samples));
    spectrum.mz = numbers(term::mz_array, count);
    spectrum.intensity = numbers(term::intensity_array, count);
    check_numbers(spectrum);
    return spectrum;
}

}  // namespace korvane::replay
