#include "korvane/recording.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>
#include <numeric>
#include <pugixml.hpp>
#include <span>
#include <sstream>
#include <string_view>
#include <vector>

#include "instrument/embedded/setpoints.h"
#include "instrument/peakfinder/embedded_peak_finder.h"
#include "instrument/replay/binary_array.h"
#include "instrument/replay/mzml_terms.h"
#include "instrument/replay/playback.h"
#include "platform/automation_arithmetic.h"
#include "platform/safe_save.h"
#include "platform/text.h"

namespace korvane {

namespace replay {

namespace {

constexpr const char* empty_recording = R"(<?xml version="1.0" encoding="utf-8"?>
<mzML xmlns="http://psi.hupo.org/ms/mzml" xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance"
      xsi:schemaLocation="http://psi.hupo.org/ms/mzml http://psidev.info/files/ms/mzML/xsd/mzML1.1.0.xsd" version="1.1.0">
 <cvList count="2">
  <cv id="MS" fullName="Proteomics Standards Initiative Mass Spectrometry Ontology"
      URI="http://purl.obolibrary.org/obo/ms/psi-ms.obo"/>
  <cv id="UO" fullName="Unit Ontology" URI="http://purl.obolibrary.org/obo/uo.obo"/>
 </cvList>
 <fileDescription><fileContent>
  <cvParam cvRef="MS" accession="MS:1000579" name="MS1 spectrum" value=""/>
  <cvParam cvRef="MS" accession="MS:1000128" name="profile spectrum" value=""/>
 </fileContent></fileDescription>
 <softwareList count="1"><software id="korvane" version=")" KORVANE_VERSION R"(">
  <cvParam cvRef="MS" accession="MS:1000799" name="custom unreleased software tool" value="korvane"/>
 </software></softwareList>
 <instrumentConfigurationList count="1"><instrumentConfiguration id="instrument">
  <cvParam cvRef="MS" accession="MS:1000031" name="instrument model"/>
  <componentList count="4">
   <source order="1"/>
   <analyzer order="2"><cvParam cvRef="MS" accession="MS:1000081" name="quadrupole" value=""/></analyzer>
   <analyzer order="3"><cvParam cvRef="MS" accession="MS:1000084" name="time-of-flight" value=""/></analyzer>
   <detector order="4">
    <cvParam cvRef="MS" accession="MS:1000026" name="detector type" value=""/>
    <cvParam cvRef="MS" accession="MS:1000117" name="analog-digital converter" value=""/>
   </detector>
  </componentList>
 </instrumentConfiguration></instrumentConfigurationList>
 <dataProcessingList count="1"><dataProcessing id="recording"><processingMethod order="0" softwareRef="korvane">
  <cvParam cvRef="MS" accession="MS:1000544" name="Conversion to mzML" value=""/>
 </processingMethod></dataProcessing></dataProcessingList>
 <run id="run" defaultInstrumentConfigurationRef="instrument"/>
</mzML>)";

using Attributes = std::initializer_list<std::pair<const char*, std::string>>;

void set(pugi::xml_node element, const Attributes& attributes) {
    for (const auto& [name, value] : attributes) element.append_attribute(name) = value.c_str();
}

pugi::xml_node add(pugi::xml_node parent, const char* name, const Attributes& attributes = {}) {
    pugi::xml_node element = parent.append_child(name);
    set(element, attributes);
    return element;
}

const char* ontology_of(const Term& term) {
    return std::string_view(term.accession).starts_with("UO:") ? "UO" : "MS";
}

void set_unit(pugi::xml_node parameter, const Term* unit) {
    if (unit)
        set(parameter,
            {{"unitCvRef", ontology_of(*unit)}, {"unitAccession", unit->accession}, {"unitName", unit->name}});
}

void add_term(pugi::xml_node element, const Term& term, const std::string& value = {}, const Term* unit = nullptr) {
    set_unit(add(element, "cvParam",
                 {{"cvRef", ontology_of(term)}, {"accession", term.accession}, {"name", term.name}, {"value", value}}),
             unit);
}

void add_user_parameter(pugi::xml_node element, const std::string& name, const char* type, const std::string& value,
                        const Term* unit = nullptr) {
    set_unit(add(element, "userParam", {{"name", name}, {"value", value}, {"type", type}}), unit);
}

void add_user_number(pugi::xml_node element, const std::string& name, const std::optional<double>& value,
                     const Term* unit = nullptr) {
    if (value) add_user_parameter(element, name, "xsd:double", number_text(*value), unit);
}

const Term& source_term(const std::string& source_type) {
    const auto known = std::ranges::find_if(source_terms, [&](const SourceTerm& source) {
        return source_type.find(source.source_type) != std::string::npos;
    });
    return known == source_terms.end() ? term::ionization_type : known->term;
}

void add_summary(pugi::xml_node element, const RecordedSpectrum& spectrum) {
    const auto& counts = spectrum.intensity;
    const auto base = std::ranges::max_element(counts);
    add_term(element, term::lowest_observed_mz, number_text(spectrum.mz.front()), &unit::mz);
    add_term(element, term::highest_observed_mz, number_text(spectrum.mz.back()), &unit::mz);
    add_term(element, term::base_peak_mz, number_text(spectrum.mz[static_cast<std::size_t>(base - counts.begin())]),
             &unit::mz);
    add_term(element, term::base_peak_intensity, number_text(*base), &unit::detector_counts);
    add_term(element, term::total_ion_current, number_text(std::accumulate(counts.begin(), counts.end(), 0.0)));
}

void add_calibration(pugi::xml_node scan, const StatedCalibration& calibration) {
    const auto& c = calibration.coefficients;
    std::vector<std::string> coefficients;
    for (const auto& [name, member] : calibration_coefficients) coefficients.push_back(number_text(c.*member));
    add_user_parameter(scan, user_parameter::coefficients, "xsd:string",
                       fmt::format("{}", fmt::join(coefficients, " ")));
    add_user_parameter(scan, user_parameter::use_flags, "xsd:string",
                       fmt::format("{}", fmt::join(calibration.use_flags, " ")));
}

void add_scan(pugi::xml_node element, const RecordedSpectrum& spectrum) {
    pugi::xml_node list = add(element, "scanList", {{"count", "1"}});
    add_term(list, term::no_combination);
    pugi::xml_node scan = add(list, "scan");
    add_term(scan, term::scan_start_time, number_text(spectrum.scan_start_minutes), &unit::minute);
    add_user_number(scan, user_parameter::first_flight_time, spectrum.first_flight_time_ns, &unit::nanosecond);
    add_user_number(scan, user_parameter::sampling_interval, spectrum.sampling_interval_ns, &unit::nanosecond);
    if (spectrum.calibration) add_calibration(scan, *spectrum.calibration);
    if (const auto& width = spectrum.peak_finder.width) {
        add_user_number(scan, user_parameter::resolution_limit, width->resolution_limit);
        add_user_number(scan, user_parameter::detector_width, width->detector_fwhm_ns);
    }
    for (const auto& [name, value] : peak_finder_parameters) add_user_number(scan, name, spectrum.peak_finder.*value);
}

void add_array(pugi::xml_node list, std::span<const double> numbers, bool is_64_bit, const Term& kind,
               const Term& unit) {
    const std::string text = encode_numbers(numbers, {.is_64_bit = is_64_bit, .is_zlib = true});
    pugi::xml_node array = add(list, "binaryDataArray", {{"encodedLength", std::to_string(text.size())}});
    add_term(array, is_64_bit ? term::float_64 : term::float_32);
    add_term(array, term::zlib_compression);
    add_term(array, kind, {}, &unit);
    add(array, "binary").text().set(text.c_str());
}

/// What stands in a document before and after `<spectra/>`.
std::pair<std::string, std::string> around_spectra(const pugi::xml_document& document) {
    constexpr std::string_view place = "<spectra/>";
    std::ostringstream out;
    document.save(out, "", pugi::format_raw);
    const std::string text = std::move(out).str();
    const std::size_t at = text.find(place);
    return {text.substr(0, at) + "\n", text.substr(at + place.size()) + "\n"};
}

/// The text of one spectrum: m/z as 64-bit floats, intensities as 32-bit floats where these hold all of them exactly,
/// else as 64-bit; both with zlib. The times, the calibration and the peak finder's options become user parameters of
/// the scan. The spectrum must have samples. Its id is not used: spectra are counted from "scan=1".
std::string spectrum_text(const RecordedSpectrum& spectrum, int index) {
    pugi::xml_document document;
    pugi::xml_node element = add(document, "spectrum",
                                 {{"index", std::to_string(index)},
                                  {"id", "scan=" + std::to_string(index + 1)},
                                  {"defaultArrayLength", std::to_string(spectrum.mz.size())}});
    add_term(element, term::ms_level, "1");
    add_term(element, term::ms1_spectrum);
    add_term(element, term::profile_spectrum);
    const bool positive = spectrum.polarity == PolaritySetpoint::Positive;
    add_term(element, positive ? term::positive_scan : term::negative_scan);
    add_summary(element, spectrum);
    add_scan(element, spectrum);
    pugi::xml_node arrays = add(element, "binaryDataArrayList", {{"count", "2"}});
    add_array(arrays, spectrum.mz, true, term::mz_array, unit::mz);
    add_array(arrays, spectrum.intensity, !fits_32_bit(spectrum.intensity), term::intensity_array,
              unit::detector_counts);
    std::ostringstream out;
    element.print(out, " ", pugi::format_indent, pugi::encoding_utf8);
    return std::move(out).str();
}

class Recorder {
public:
    Recorder(const Platform& platform, std::string path)
        : layer_(*platform.instrument),
          clock_(*platform.clock),
          globals_(layer_.create_globals()),
          path_(std::move(path)) {
        globals_->initialise();
        if (globals_->control() == nullptr) raise_runtime_fault(error_number::object_not_set, "instrument control");
    }

    /// Part by part, UTF-8: what stands before the spectra at once, then each spectrum, then the end.
    void record(int count, const RecordingProgress& progress, const AcquiredSpectrum* taken, OutputFile& file) {
        const auto [head, end] = around_spectra(document(count));
        file.write(head);
        // What a replay would refuse is refused here.
        Notes ignored;
        AxisKeeper axis(path_, ignored);
        for (int i = 0; i < count; ++i) {
            if (progress) progress(i);
            const RecordedSpectrum spectrum = recorded(taken ? *taken : next_spectrum());
            axis.play(spectrum);
            file.write(spectrum_text(spectrum, i));
        }
        file.write(end);
    }

private:
    /// All but the spectra, in whose place `<spectra/>` stands.
    pugi::xml_document document(int count) {
        pugi::xml_document document;
        document.load_string(empty_recording, pugi::parse_default | pugi::parse_declaration);
        pugi::xml_node mzml = document.document_element();
        pugi::xml_node configuration = mzml.child("instrumentConfigurationList").first_child();
        set(configuration.child("cvParam"), {{"value", globals_->hardware().model()}});
        pugi::xml_node components = configuration.child("componentList");
        add_term(components.child("source"), source_term(globals_->source_type()));
        add_term(components.child("detector"), term::sampling_frequency, number_text(1e9 / interval_ns()),
                 &unit::hertz);
        pugi::xml_node run = mzml.child("run");
        for (const auto& [name, value] : setpoints())
            add_user_number(run, user_parameter::setpoint_prefix + name, value);
        const LocalTime now = clock_.now();
        set(run, {{"startTimeStamp", fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}", now.year, now.month, now.day,
                                                 now.hour, now.minute, now.second)}});
        add(add(run, "spectrumList", {{"count", std::to_string(count)}, {"defaultDataProcessingRef", "recording"}}),
            "spectra");
        return document;
    }

    template <class... Pieces>
    [[noreturn]] void fail(const Pieces&... what) const {
        throw Error(error_number::file_or_element, "RecordingWriter", text_of("recording [", path_, "]: ", what...));
    }

    double interval_ns() { return globals_->sampling_interval_seconds() * 1e9; }

    AcquiredSpectrum next_spectrum() {
        constexpr int most_tries = 10;
        for (int i = 0; i < most_tries; ++i) {
            AcquiredSpectrum spectrum;
            globals_->refresh();
            globals_->control()->GetNextSpectrum(spectrum);
            if (!spectrum.mass_data.is_empty() && !spectrum.y_data.is_empty() && !spectrum.meta_data.is_empty())
                return spectrum;
        }
        fail("the instrument shows no spectrum: ", most_tries, " came empty");
    }

    RecordedSpectrum recorded(const AcquiredSpectrum& spectrum) {
        RecordedSpectrum record;
        record.polarity = polarity(spectrum);
        record.scan_start_minutes = std::isfinite(spectrum.retention_time) ? spectrum.retention_time : 0;
        record.mz.assign(spectrum.mass_data.elements().begin(), spectrum.mass_data.elements().end());
        record.intensity.assign(spectrum.y_data.elements().begin(), spectrum.y_data.elements().end());
        check(record);
        record.first_flight_time_ns = spectrum.start_time_ns;
        record.sampling_interval_ns = interval_ns();
        const auto calibration = globals_->calibrations().calibration(static_cast<std::int32_t>(record.polarity));
        const auto flags = calibration->use_flags();
        record.calibration = {calibration->coefficients(), {flags.elements().begin(), flags.elements().end()}};
        // Flags are written from power 0 on.
        if (!flags.is_empty() && flags.lower_bound() > 0)
            record.calibration->use_flags.insert(record.calibration->use_flags.begin(),
                                                 static_cast<std::size_t>(flags.lower_bound()), 0);
        const auto finder = layer_.create_peak_finder();
        if (const auto* embedded = dynamic_cast<const EmbeddedPeakFinder*>(finder.get()))
            record.peak_finder = embedded->options();
        return record;
    }

    /// By the rule by which the library itself finds the polarity.
    PolaritySetpoint polarity(const AcquiredSpectrum& spectrum) {
        const std::string name = globals_->setpoints().external_name(contract::setpoint.polarity);
        const auto description = globals_->control()->GetMetaDescription();
        for (std::size_t i = 0; i < std::min(description.size(), spectrum.meta_data.size()); ++i) {
            const std::string& entry = description.elements()[i];
            if (entry.find(name) == std::string::npos ||
                entry.find(contract::metadata_name.setpoint_mark) == std::string::npos)
                continue;
            const std::int16_t value = to_int16(spectrum.meta_data.elements()[i]);
            if (value != 0 && value != 1) fail("the metadata give the polarity ", value);
            return static_cast<PolaritySetpoint>(value);
        }
        fail("the metadata do not tell the polarity");
    }

    void check(const RecordedSpectrum& record) const {
        if (record.mz.empty() || record.mz.size() != record.intensity.size())
            fail("a spectrum has ", record.mz.size(), " masses and ", record.intensity.size(), " abundances");
        if (!std::ranges::all_of(record.intensity, [](double counts) { return std::isfinite(counts); }))
            fail("a spectrum has abundances that are not finite numbers");
        double below = 0;
        for (const double mass : record.mz) {
            if (!(mass > below) || !std::isfinite(mass))
                fail("the mass axis does not ascend: [", mass, "] after [", below, "]");
            below = mass;
        }
    }

    /// All of them, those of the contract and the embedded instrument by the names that it has for them; values beyond
    /// the limits that a replay has are left out.
    std::map<std::string, double> setpoints() {
        SetpointTable& table = globals_->setpoints();
        std::map<std::string, double> values;
        for (const std::int32_t index : table.indexes()) {
            const double value = to_double(table.value(index, 0, 0));
            const auto known =
                std::ranges::find(embedded::setpoint_definitions(), index, &embedded::SetpointDefinition::index);
            if (known == embedded::setpoint_definitions().end()) {
                const std::string name = table.internal_name(index);
                if (!embedded::find_setpoint(name) && std::isfinite(value)) values.emplace(name, value);
            } else if (value >= known->lower_limit && value <= known->upper_limit) {
                values.emplace(known->internal_name, value);
            }
        }
        return values;
    }

    InstrumentLayer& layer_;
    Clock& clock_;
    std::unique_ptr<InstrumentGlobals> globals_;
    std::string path_;
};

/// The next spectra of the instrument, or the one that has been taken.
void record(const Platform& platform, const std::filesystem::path& file, std::int32_t count,
            const RecordingProgress& progress, const AcquiredSpectrum* taken) {
    if (count < 1) raise_runtime_fault(error_number::invalid_call, "count ", count);
    const std::string path = utf8_from_path(file);
    Recorder recorder(platform, path);
    try {
        safe_save(*platform.files, path, [&](OutputFile& output) { recorder.record(count, progress, taken, output); });
    } catch (const FileError& fault) {
        throw Error(error_number::file_or_element, "RecordingWriter",
                    "recording [" + path + "]: cannot be written: " + fault.what());
    }
}

}  // namespace

}  // namespace replay

void record_spectra(const Platform& platform, const std::filesystem::path& file, std::int32_t count,
                    const RecordingProgress& progress) {
    replay::record(platform, file, count, progress, nullptr);
}

void record_spectrum(const Platform& platform, const std::filesystem::path& file, const AcquiredSpectrum& spectrum) {
    replay::record(platform, file, 1, {}, &spectrum);
}

}  // namespace korvane
