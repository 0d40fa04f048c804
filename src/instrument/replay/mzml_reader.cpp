#include "instrument/replay/mzml_reader.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <iterator>
#include <optional>
#include <pugixml.hpp>
#include <sstream>
#include <string_view>

#include "instrument/replay/binary_array.h"
#include "instrument/replay/mzml_terms.h"
#include "platform/automation_arithmetic.h"

namespace korvane::replay {

namespace {

/// A whole number made of digits alone; fails naming `what`.
std::size_t parse_count(const pugi::xml_attribute& attribute, const std::string& what, const RecordingPlace& place) {
    const std::string text = attribute.value();
    const bool digits = !text.empty() && text.size() <= 18 && text.find_first_not_of("0123456789") == std::string::npos;
    if (!digits) place.fail(what + " [" + text + "] is not a count");
    return static_cast<std::size_t>(std::stoull(text));
}

/// A finite number that makes up the whole of `text`; fails naming `what`.
double parse_number(std::string_view text, const std::string& what, const RecordingPlace& place) {
    double number = 0;
    const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (fault != std::errc() || end != text.data() + text.size() || !std::isfinite(number))
        place.fail(what + " [" + std::string(text) + "] is not a number");
    return number;
}

/// The parameters of an element: its own cvParam and userParam children and those of the groups that it refers to.
class Parameters {
public:
    /// `groups` is the document's referenceableParamGroupList, which may be missing.
    Parameters(const pugi::xml_node& element, const pugi::xml_node& groups, const RecordingPlace& place)
        : place_(place) {
        for (const auto& reference : element.children("referenceableParamGroupRef")) {
            const char* id = reference.attribute("ref").value();
            const auto group = groups.find_child_by_attribute("referenceableParamGroup", "id", id);
            if (!group) place_.fail("there is no referenceableParamGroup [" + std::string(id) + "]");
            collect(group);
        }
        collect(element);
    }

    const std::vector<pugi::xml_node>& controlled() const { return controlled_; }
    const std::vector<pugi::xml_node>& user() const { return user_; }

    /// The cvParam of a term; an empty node where there is none.
    pugi::xml_node find(const Term& sought) const {
        for (const auto& parameter : controlled_)
            if (sought.is(parameter.attribute("accession").value())) return parameter;
        return {};
    }
    bool has(const Term& sought) const { return !find(sought).empty(); }
    std::optional<double> number(const Term& sought) const {
        const auto parameter = find(sought);
        if (!parameter) return std::nullopt;
        return parse_number(parameter.attribute("value").value(), sought.name, place_);
    }
    std::string unit(const Term& sought) const { return find(sought).attribute("unitAccession").value(); }

    std::optional<std::string> user_text(std::string_view name) const {
        for (const auto& parameter : user_)
            if (name == parameter.attribute("name").value()) return parameter.attribute("value").value();
        return std::nullopt;
    }
    std::optional<double> user_number(const char* name) const {
        const auto text = user_text(name);
        if (!text) return std::nullopt;
        return parse_number(*text, name, place_);
    }

private:
    void collect(const pugi::xml_node& element) {
        for (const auto& parameter : element.children("cvParam")) controlled_.push_back(parameter);
        for (const auto& parameter : element.children("userParam")) user_.push_back(parameter);
    }

    const RecordingPlace& place_;
    std::vector<pugi::xml_node> controlled_, user_;
};

/// Reads one spectrum element.
class SpectrumReader {
public:
    SpectrumReader(const pugi::xml_node& element, const pugi::xml_node& groups, const std::string& file)
        : element_(element),
          groups_(groups),
          place_{file, element.attribute("id").value()},
          parameters_(element, groups, place_) {}

    bool is_level_1() const {
        const auto level = parameters_.number(term::ms_level);
        if (!level && !parameters_.has(term::ms1_spectrum)) place_.fail("the ms level (MS:1000511) is missing");
        return !level || *level == 1;
    }

    RecordedSpectrum read() const {
        require_profile();
        RecordedSpectrum spectrum;
        spectrum.id = place_.spectrum_id;
        spectrum.polarity = polarity();
        // Where several scans were added up, the first one speaks for the spectrum.
        read_scan(Parameters(element_.child("scanList").child("scan"), groups_, place_), spectrum);
        const std::size_t count = parse_count(element_.attribute("defaultArrayLength"), "defaultArrayLength", place_);
        if (count == 0) place_.fail("there are no samples");
        if (count > static_cast<std::size_t>(largest_spectrum_samples))
            place_.fail("defaultArrayLength " + std::to_string(count) + " is more than " +
                        std::to_string(largest_spectrum_samples));
        spectrum.mz = numbers(term::mz_array, count);
        spectrum.intensity = numbers(term::intensity_array, count);
        check_numbers(spectrum);
        return spectrum;
    }

private:
    void require_profile() const {
        if (parameters_.has(term::centroid_spectrum))
            place_.fail("a centroid spectrum (MS:1000127) cannot be replayed, only a profile");
        if (!parameters_.has(term::profile_spectrum)) place_.fail("the term profile spectrum (MS:1000128) is missing");
    }

    PolaritySetpoint polarity() const {
        const bool positive = parameters_.has(term::positive_scan);
        if (positive == parameters_.has(term::negative_scan))
            place_.fail(positive ? "both polarities (MS:1000130, MS:1000129) are stated"
                                 : "the polarity (MS:1000130 or MS:1000129) is missing");
        return positive ? PolaritySetpoint::Positive : PolaritySetpoint::Negative;
    }

    void read_scan(const Parameters& scan, RecordedSpectrum& spectrum) const {
        spectrum.scan_start_minutes = scan_start_minutes(scan);
        spectrum.first_flight_time_ns = scan.user_number(user_parameter::first_flight_time);
        spectrum.sampling_interval_ns = scan.user_number(user_parameter::sampling_interval);
        if (spectrum.first_flight_time_ns && !spectrum.sampling_interval_ns)
            place_.fail(std::string(user_parameter::sampling_interval) + ": missing beside the flight time");
        if (spectrum.sampling_interval_ns && !(*spectrum.sampling_interval_ns > 0))
            place_.fail(std::string(user_parameter::sampling_interval) + ": is not above 0");
        spectrum.calibration = stated_calibration(scan);
        const auto limit = scan.user_number(user_parameter::resolution_limit);
        const auto width = scan.user_number(user_parameter::detector_width);
        if (limit.has_value() != width.has_value())
            place_.fail("of the peak finder's resolution limit and detector width only one is stated");
        if (limit) spectrum.peak_finder.width = WidthModel{*limit, *width};
        for (const auto& [name, value] : peak_finder_parameters) spectrum.peak_finder.*value = scan.user_number(name);
    }

    double scan_start_minutes(const Parameters& scan) const {
        const auto value = scan.number(term::scan_start_time);
        if (!value) return 0;
        const std::string stated = scan.unit(term::scan_start_time);
        if (unit::second.is(stated)) return *value / 60;
        if (unit::minute.is(stated)) return *value;
        place_.fail("unit [" + stated + "] of the scan start time is neither second nor minute");
    }

    std::optional<StatedCalibration> stated_calibration(const Parameters& scan) const {
        const auto coefficients = scan.user_text(user_parameter::coefficients);
        const auto flags = scan.user_text(user_parameter::use_flags);
        if (!coefficients) return std::nullopt;
        if (!flags) place_.fail(std::string(user_parameter::use_flags) + ": missing beside the coefficients");
        StatedCalibration stated;
        auto& c = stated.coefficients;
        std::istringstream words(*coefficients);
        std::string word;
        for (double* slot : {&c.A, &c.B, &c.C, &c.D, &c.E, &c.F, &c.G, &c.H}) {
            if (!(words >> word)) place_.fail("[" + *coefficients + "] are not eight calibration coefficients");
            *slot = parse_number(word, user_parameter::coefficients, place_);
        }
        if (words >> word) place_.fail("[" + *coefficients + "] are more than eight calibration coefficients");
        for (std::istringstream flag_words(*flags); flag_words >> word;) {
            if (word != "0" && word != "1") place_.fail("calibration term use flag [" + word + "] is neither 0 nor 1");
            stated.use_flags.push_back(word == "1" ? 1 : 0);
        }
        return stated;
    }

    BinaryEncoding encoding(const Parameters& array, const Term& kind) const {
        for (const auto& parameter : array.controlled()) {
            const std::string accession = parameter.attribute("accession").value();
            const auto known = {kind, term::float_32, term::float_64, term::zlib_compression, term::no_compression};
            if (std::ranges::none_of(known, [&](const Term& each) { return each.is(accession); }))
                place_.fail(std::string(kind.name) + ": term " + accession + " (" +
                            parameter.attribute("name").value() + ") is not supported");
        }
        if (array.has(term::float_32) == array.has(term::float_64))
            place_.fail(std::string(kind.name) + ": neither or both of 32-bit float and 64-bit float are stated");
        if (array.has(term::zlib_compression) == array.has(term::no_compression))
            place_.fail(std::string(kind.name) + ": neither or both of zlib compression and no compression are stated");
        return {array.has(term::float_64), array.has(term::zlib_compression)};
    }

    std::vector<double> numbers(const Term& array, std::size_t default_length) const {
        for (const auto& element : element_.child("binaryDataArrayList").children("binaryDataArray")) {
            const Parameters parameters(element, groups_, place_);
            if (!parameters.has(array)) continue;
            const BinaryEncoding how = encoding(parameters, array);
            const auto own_length = element.attribute("arrayLength");
            const std::size_t length = own_length ? parse_count(own_length, "arrayLength", place_) : default_length;
            if (length != default_length)
                place_.fail(std::string(array.name) + ": arrayLength " + std::to_string(length) +
                            " is not the spectrum's defaultArrayLength " + std::to_string(default_length));
            const std::string_view text = element.child("binary").text().get();
            const auto encoded = element.attribute("encodedLength");
            const auto characters =
                static_cast<std::size_t>(std::ranges::count_if(text, [](unsigned char c) { return c > ' '; }));
            if (encoded && parse_count(encoded, "encodedLength", place_) != characters)
                place_.fail(std::string(array.name) + ": encodedLength " + encoded.value() +
                            " is not the length of the text, " + std::to_string(characters));
            return decode_numbers(text, how, length, place_, array.name);
        }
        place_.fail("there is no " + std::string(array.name) + " (" + array.accession + ")");
    }

    void check_numbers(const RecordedSpectrum& spectrum) const {
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

    pugi::xml_node element_, groups_;
    RecordingPlace place_;
    Parameters parameters_;
};

std::string read_bytes(Files& files, const RecordingPlace& place) {
    std::string bytes;
    try {
        if (files.status(place.file).is_folder) place.fail("this is a folder, not a file");
        files.read(place.file, bytes);
    } catch (const FileError& fault) {
        place.fail(std::string("cannot be read: ") + fault.what());
    }
    if (bytes.empty()) place.fail("the file is empty");
    return bytes;
}

/// The first configuration speaks for the recording.
void read_instrument(const pugi::xml_node& mzml, const RecordingPlace& place, Recording& recording) {
    const auto groups = mzml.child("referenceableParamGroupList");
    const auto configuration = mzml.child("instrumentConfigurationList").child("instrumentConfiguration");
    const Parameters instrument(configuration, groups, place);
    const auto components = configuration.child("componentList");
    for (const auto& component : components.children()) {
        const Parameters parameters(component, groups, place);
        const auto frequency = parameters.number(term::sampling_frequency);
        if (!frequency) continue;
        const std::string stated = parameters.unit(term::sampling_frequency);
        if (!unit::hertz.is(stated) || !(*frequency > 0))
            place.fail("sampling frequency " + std::to_string(*frequency) + " [" + stated + "] is not one in hertz");
        recording.sampling_interval_ns = 1e9 / *frequency;
    }
    const Parameters source(components.child("source"), groups, place);
    const auto known = std::ranges::find_if(source_terms, [&](const auto& each) { return source.has(each.term); });
    if (known != source_terms.end()) recording.source_code = known->source_code;
}

void read_setpoints(const Parameters& run, const RecordingPlace& place, Recording& recording) {
    constexpr std::string_view prefix = user_parameter::setpoint_prefix;
    for (const auto& parameter : run.user()) {
        const std::string name = parameter.attribute("name").value();
        if (name.starts_with(prefix))
            recording.setpoints.emplace(name.substr(prefix.size()),
                                        parse_number(parameter.attribute("value").value(), name, place));
    }
}

void read_spectra(const pugi::xml_node& mzml, const RecordingPlace& place, Recording& recording) {
    const auto groups = mzml.child("referenceableParamGroupList");
    read_setpoints(Parameters(mzml.child("run"), groups, place), place, recording);
    const auto list = mzml.child("run").child("spectrumList");
    const auto spectra = list.children("spectrum");
    const auto present = static_cast<std::size_t>(std::distance(spectra.begin(), spectra.end()));
    if (const auto stated = list.attribute("count");
        stated && parse_count(stated, "spectrumList count", place) != present)
        place.fail("spectrumList count " + std::string(stated.value()) + " is not the number of its spectra, " +
                   std::to_string(present));
    std::int64_t samples = 0;
    for (const auto& element : spectra) {
        const SpectrumReader reader(element, groups, place.file);
        if (!reader.is_level_1()) continue;
        RecordedSpectrum& spectrum = recording.spectra.emplace_back(reader.read());
        if (!spectrum.sampling_interval_ns) spectrum.sampling_interval_ns = recording.sampling_interval_ns;
        samples += static_cast<std::int64_t>(spectrum.mz.size());
        if (samples > largest_recording_samples)
            place.fail("the spectra have more than " + std::to_string(largest_recording_samples) + " samples");
    }
    if (recording.spectra.empty()) place.fail("there is no spectrum of ms level 1");
}

}  // namespace

Recording read_recording(Files& files, const std::string& file) {
    const RecordingPlace place{file, {}};
    std::string bytes = read_bytes(files, place);
    pugi::xml_document document;
    const auto parsed = document.load_buffer_inplace(bytes.data(), bytes.size());
    if (!parsed)
        place.fail("this is not XML: " + std::string(parsed.description()) + " at byte " +
                   std::to_string(parsed.offset));
    const auto root = document.document_element();
    const auto mzml = std::strcmp(root.name(), "indexedmzML") == 0 ? root.child("mzML") : root;
    if (std::strcmp(mzml.name(), "mzML") != 0)
        place.fail("this is not mzML: its root element is [" + std::string(root.name()) + "]");
    Recording recording;
    recording.file = file;
    read_instrument(mzml, place, recording);
    read_spectra(mzml, place, recording);
    return recording;
}

}  // namespace korvane::replay
