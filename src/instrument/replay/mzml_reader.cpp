#include "instrument/replay/recording.h"

#include <cstring>
#include <sstream>

#include "instrument/replay/binary_array.h"
#include "instrument/replay/mzml_terms.h"
#include "platform/automation_arithmetic.h"

namespace korvane::replay {

namespace {

/// What the spectra of one file share.
struct Source {
    RecordingPlace place;  // the file as a whole
    const RecordingOptions& options;
    pugi::xml_node groups = {};  // the list of them
    Recording recording = {};
    std::int64_t samples = 0;  // of the spectra read so far
};

/// Reads one spectrum element.
class SpectrumReader {
public:
    SpectrumReader(const pugi::xml_node& element, Source& source)
        : element_(element),
          source_(source),
          place_{source.place.file, element.attribute("id").value()},
          parameters_(element, source.groups, place_) {}

    std::int32_t ms_level() const {
        constexpr double most = 100;
        const auto level = parameters_.number(term::ms_level);
        if (level && !(*level >= 1 && *level <= most && *level == std::floor(*level)))
            place_.fail("ms level [", *level, "] is none");
        if (!level && !parameters_.has(term::ms1_spectrum)) note("MS level not stated: taken as 1");
        return static_cast<std::int32_t>(level.value_or(1));
    }

    /// Adds the spectrum to the recording, unless it is empty or no profile.
    void read(std::int32_t level) {
        const bool is_profile = parameters_.has(term::profile_spectrum);
        if (!is_profile && parameters_.has(term::centroid_spectrum)) return note("centroid spectra are passed over");
        const std::size_t count = length_of(element_, "defaultArrayLength");
        if (count == 0) return note("empty spectra are passed over");
        count_samples(count);
        RecordedSpectrum spectrum;
        spectrum.id = place_.spectrum_id;
        spectrum.ms_level = level;
        spectrum.polarity = polarity();
        // Where several scans were added up, the first one speaks for the spectrum.
        const Parameters scan(element_.child("scanList").child("scan"), source_.groups, place_);
        read_scan(scan, spectrum);
        spectrum.mz = numbers(term::mz_array, count);
        if (!is_profile && !is_spaced_as_profile(spectrum.mz))
            return note("centroid spectra, by their spacing, are passed over");
        if (!is_profile) note("profile or centroid not stated: profiles by their spacing");
        spectrum.intensity = numbers(term::intensity_array, count);
        check_samples(spectrum, place_);
        if (!spectrum.sampling_interval_ns) spectrum.sampling_interval_ns = source_.recording.sampling_interval_ns;
        source_.recording.spectra.push_back(std::move(spectrum));
    }

private:
    void note(const std::string& what) const { source_.recording.notes.add(what); }

    std::size_t length_of(const pugi::xml_node& element, const char* attribute) const {
        return parse_number<std::size_t>(element.attribute(attribute).value(), attribute, place_);
    }

    void count_samples(std::size_t count) const {
        if (count > static_cast<std::size_t>(largest_spectrum_samples))
            place_.fail("defaultArrayLength ", count, " is more than ", largest_spectrum_samples);
        source_.samples += static_cast<std::int64_t>(count);
        if (source_.samples > largest_recording_samples)
            place_.fail("the spectra have more than ", largest_recording_samples, " samples");
    }

    PolaritySetpoint polarity() const {
        const bool positive = parameters_.has(term::positive_scan), negative = parameters_.has(term::negative_scan);
        if (positive && negative) place_.fail("both polarities (MS:1000130, MS:1000129) are stated");
        if (positive || negative) return positive ? PolaritySetpoint::Positive : PolaritySetpoint::Negative;
        const PolaritySetpoint taken = source_.options.polarity;
        note(std::string("polarity not stated: taken as ") +
             (taken == PolaritySetpoint::Positive ? "positive" : "negative"));
        return taken;
    }

    void read_scan(const Parameters& scan, RecordedSpectrum& spectrum) const {
        constexpr double above_0 = 1e-12, huge = 1e12;
        const auto number = [&](const char* name, double least, double most) {
            const auto stated = scan.user_number(name);
            if (stated && !(*stated >= least && *stated <= most))
                place_.fail(name, " [", *stated, "] is not between ", least, " and ", most);
            return stated;
        };
        spectrum.scan_start_minutes = scan_start_minutes(scan);
        spectrum.first_flight_time_ns = number(user_parameter::first_flight_time, -huge, huge);
        spectrum.sampling_interval_ns = number(user_parameter::sampling_interval, above_0, huge);
        if (spectrum.first_flight_time_ns && !spectrum.sampling_interval_ns)
            place_.fail(user_parameter::sampling_interval, ": missing beside the flight time");
        spectrum.calibration = stated_calibration(scan);
        const auto limit = number(user_parameter::resolution_limit, above_0, huge);
        const auto width = number(user_parameter::detector_width, 0, huge);
        if (limit.has_value() != width.has_value())
            place_.fail("of the peak finder's resolution limit and detector width only one is stated");
        if (limit) spectrum.peak_finder.width = WidthModel{*limit, *width};
        for (const auto& [name, most, value] : peak_finder_parameters)
            spectrum.peak_finder.*value = number(name, 0, most);
    }

    double scan_start_minutes(const Parameters& scan) const {
        const auto value = scan.number(term::scan_start_time);
        if (!value) return note("start time not stated: taken as 0"), 0;
        const std::string stated = scan.unit(term::scan_start_time);
        if (unit::millisecond.is(stated)) return *value / 60000;
        if (unit::second.is(stated)) return *value / 60;
        if (!unit::minute.is(stated)) note("unit [" + stated + "] of the start time: taken as minutes");
        return *value;
    }

    std::optional<StatedCalibration> stated_calibration(const Parameters& scan) const {
        const auto coefficients = scan.user_text(user_parameter::coefficients);
        const auto flags = scan.user_text(user_parameter::use_flags);
        if (!coefficients) return std::nullopt;
        if (!flags) place_.fail(user_parameter::use_flags, ": missing beside the coefficients");
        const auto words_of = [](const std::string& text) {
            std::istringstream words(text);
            return std::vector<std::string>(std::istream_iterator<std::string>(words), {});
        };
        StatedCalibration stated;
        const auto numbers = words_of(*coefficients);
        if (numbers.size() != std::size(calibration_coefficients))
            place_.fail("[", *coefficients, "] are not eight calibration coefficients");
        for (std::size_t i = 0; i < numbers.size(); ++i)
            stated.coefficients.*calibration_coefficients[i].second =
                parse_number(numbers[i], user_parameter::coefficients, place_);
        if (const double a = stated.coefficients.A; !(a > 0))
            place_.fail("calibration coefficient A [", a, "] is not above 0");
        for (const std::string& flag : words_of(*flags)) {
            if (flag != "0" && flag != "1") place_.fail("calibration term use flag [", flag, "] is neither 0 nor 1");
            stated.use_flags.push_back(flag == "1");
        }
        if (stated.use_flags.size() > 32) place_.fail("more than 32 calibration term use flags");
        return stated;
    }

    BinaryEncoding encoding(const Parameters& array, const Term& kind) const {
        using enum Numpress;
        static constexpr std::tuple<Term, bool, Numpress> packings[] = {
            {term::no_compression, false, none},
            {term::zlib_compression, true, none},
            {term::truncation_zlib, true, none},
            {term::numpress_linear, false, linear},
            {term::numpress_integer, false, positive_integer},
            {term::numpress_logarithm, false, short_logarithm},
            {term::numpress_linear_zlib, true, linear},
            {term::numpress_integer_zlib, true, positive_integer},
            {term::numpress_logarithm_zlib, true, short_logarithm}};
        static constexpr std::tuple<Term, bool, bool> number_types[] = {{term::float_32, false, false},
                                                                        {term::float_64, true, false},
                                                                        {term::int_32, false, true},
                                                                        {term::int_64, true, true}};
        BinaryEncoding found{.is_64_bit = true, .is_zlib = false};
        int compressions = 0, types = 0;
        for (const auto& [term, is_zlib, numpress] : packings) {
            if (!array.has(term)) continue;
            // Numeric compression and zlib may also stand as two terms.
            found.is_zlib |= is_zlib;
            if (numpress != none) found.numpress = numpress;
            compressions += !is_zlib || numpress != none || compressions == 0;
        }
        for (const auto& [term, is_64_bit, is_integer] : number_types) {
            if (!array.has(term)) continue;
            found.is_64_bit = is_64_bit;
            found.is_integer = is_integer;
            ++types;
        }
        if (compressions > 1) place_.fail(kind.name, ": several compressions are stated");
        if (types > 1 || (types == 0 && found.numpress == none))
            place_.fail(kind.name, ": none or several of 32- and 64-bit float and integer are stated");
        if (compressions == 0) require_known_terms(array, kind);
        return found;
    }

    /// Where no compression is stated that is known, another one may be.
    void require_known_terms(const Parameters& array, const Term& kind) const {
        for (const auto& parameter : array.element().children("cvParam")) {
            const std::string accession = parameter.attribute("accession").value();
            const auto known = {kind, term::float_32, term::float_64, term::int_32, term::int_64};
            if (std::ranges::none_of(known, [&](const Term& each) { return each.is(accession); }))
                place_.fail(kind.name, ": term ", accession, " (", parameter.attribute("name").value(),
                            ") is not supported");
        }
        note("compression of an array not stated: taken as none");
    }

    std::vector<double> numbers(const Term& array, std::size_t default_length) const {
        for (const auto& element : element_.child("binaryDataArrayList").children("binaryDataArray")) {
            const Parameters parameters(element, source_.groups, place_);
            if (!parameters.has(array)) continue;
            const BinaryEncoding how = encoding(parameters, array);
            const std::size_t length =
                element.attribute("arrayLength") ? length_of(element, "arrayLength") : default_length;
            if (length != default_length)
                place_.fail(array.name, ": arrayLength ", length, " is not the spectrum's defaultArrayLength ",
                            default_length);
            const std::string_view text = element.child("binary").text().get();
            const auto characters = std::ranges::count_if(text, [](unsigned char c) { return c > ' '; });
            const auto encoded = element.attribute("encodedLength");
            if (encoded && std::to_string(characters) != encoded.value())
                note("encodedLength of an array is not the length of its text");
            return decode_numbers(text, how, length, place_, array.name);
        }
        place_.fail("there is no ", array.name, " (", array.accession, ")");
    }

    pugi::xml_node element_;
    Source& source_;
    RecordingPlace place_;
    Parameters parameters_;
};

/// The first configuration speaks for the recording.
void read_instrument(const pugi::xml_node& mzml, Source& source) {
    const auto configuration = mzml.child("instrumentConfigurationList").child("instrumentConfiguration");
    const auto components = configuration.child("componentList");
    for (const auto& component : components.children()) {
        const Parameters parameters(component, source.groups, source.place);
        const auto frequency = parameters.number(term::sampling_frequency);
        if (!frequency) continue;
        constexpr double lowest_hertz = 1e6, highest_hertz = 1e12;
        if (unit::hertz.is(parameters.unit(term::sampling_frequency)) && *frequency >= lowest_hertz &&
            *frequency <= highest_hertz)
            source.recording.sampling_interval_ns = 1e9 / *frequency;
        else
            source.recording.notes.add("sampling frequency [", *frequency,
                                       "] is none of a digitiser: taken from the axis");
    }
    const Parameters ionisation(components.child("source"), source.groups, source.place);
    const auto known = std::ranges::find_if(source_terms, [&](const auto& each) { return ionisation.has(each.term); });
    if (known != std::end(source_terms)) source.recording.source_code = known->source_code;
}

void read_setpoints(const pugi::xml_node& run, Source& source) {
    constexpr std::string_view prefix = user_parameter::setpoint_prefix;
    for (const auto& parameter : run.children("userParam")) {
        const std::string name = parameter.attribute("name").value();
        if (name.starts_with(prefix))
            source.recording.setpoints.emplace(name.substr(prefix.size()),
                                               parse_number(parameter.attribute("value").value(), name, source.place));
    }
}

void read_spectra(const pugi::xml_node& list, Source& source) {
    std::vector<std::pair<std::int32_t, pugi::xml_node>> elements;
    for (const auto& element : list.children("spectrum"))
        elements.emplace_back(SpectrumReader(element, source).ms_level(), element);
    if (elements.empty()) source.place.fail("there is no spectrum");
    const auto stated = list.attribute("count");
    if (stated && std::to_string(elements.size()) != stated.value())
        source.recording.notes.add("spectrumList count [", stated.value(), "] is not the number of its spectra, ",
                                   elements.size());
    const std::int32_t lowest =
        std::ranges::min_element(elements, {}, [](const auto& each) { return each.first; })->first;
    const std::int32_t wanted = source.options.ms_level.value_or(lowest);
    for (const auto& [level, element] : elements)
        if (wanted == every_ms_level || level == wanted)
            SpectrumReader(element, source).read(level);
        else
            source.recording.notes.add("MS level ", wanted, " is taken, others are passed over");
    if (!source.recording.spectra.empty()) return;
    std::string reasons;
    for (const std::string& line : source.recording.notes.lines()) reasons += "; " + line;
    source.place.fail("there is no profile spectrum",
                      (wanted == every_ms_level ? "" : " of MS level " + std::to_string(wanted)), reasons);
}

}  // namespace

std::string recording_bytes(Files& files, const std::string& file) {
    const RecordingPlace place{file, {}};
    std::string bytes;
    try {
        if (files.status(file).is_folder) place.fail("this is a folder, not a file");
        files.read(file, bytes);
    } catch (const FileError& fault) {
        place.fail("cannot be read: ", fault.what());
    }
    if (bytes.empty()) place.fail("the file is empty");
    return bytes.starts_with("\x1f\x8b") ? gunzipped(bytes, place) : bytes;
}

Recording read_recording(Files& files, const std::string& file, const RecordingOptions& options) {
    return parse_recording(recording_bytes(files, file), file, options);
}

Recording parse_recording(std::string bytes, const std::string& file, const RecordingOptions& options) {
    Source source{{file, {}}, options};
    pugi::xml_document document;
    const auto parsed = document.load_buffer_inplace(bytes.data(), bytes.size());
    if (!parsed) source.place.fail("this is not XML: ", parsed.description(), " at byte ", parsed.offset);
    const auto root = document.document_element();
    const auto mzml = std::strcmp(root.name(), "indexedmzML") == 0 ? root.child("mzML") : root;
    if (std::strcmp(mzml.name(), "mzML") != 0)
        source.place.fail("this is not mzML: its root element is [", root.name(), "]");
    if (const auto second = root.next_sibling(); second.type() == pugi::node_element)
        source.place.fail("a second root element [", second.name(), "] follows");
    source.recording.file = file;
    source.groups = mzml.child("referenceableParamGroupList");
    check_groups(source.groups, source.place);
    read_instrument(mzml, source);
    read_setpoints(mzml.child("run"), source);
    read_spectra(mzml.child("run").child("spectrumList"), source);
    return std::move(source.recording);
}

}  // namespace korvane::replay
