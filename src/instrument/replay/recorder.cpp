#include "korvane/recording.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>
#include <numeric>
#include <sstream>
#include <vector>

#include "instrument/embedded/setpoints.h"
#include "instrument/peakfinder/embedded_peak_finder.h"
#include "instrument/replay/binary_array.h"
#include "instrument/replay/mzml_terms.h"
#include "instrument/replay/playback.h"
#include "platform/automation_arithmetic.h"
#include "platform/files.h"
#include "platform/text.h"

namespace korvane {

namespace replay {

namespace {

/// What stands before the spectra.
constexpr const char* head_text = R"(<?xml version="1.0" encoding="utf-8"?>
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
  {model}<componentList count="4">
   <source order="1">{source}</source>
   <analyzer order="2"><cvParam cvRef="MS" accession="MS:1000081" name="quadrupole" value=""/></analyzer>
   <analyzer order="3"><cvParam cvRef="MS" accession="MS:1000084" name="time-of-flight" value=""/></analyzer>
   <detector order="4">
    <cvParam cvRef="MS" accession="MS:1000026" name="detector type" value=""/>
    <cvParam cvRef="MS" accession="MS:1000117" name="analog-digital converter" value=""/>
    {frequency}</detector>
  </componentList>
 </instrumentConfiguration></instrumentConfigurationList>
 <dataProcessingList count="1"><dataProcessing id="recording"><processingMethod order="0" softwareRef="korvane">
  <cvParam cvRef="MS" accession="MS:1000544" name="Conversion to mzML" value=""/>
 </processingMethod></dataProcessing></dataProcessingList>
 <run id="run" defaultInstrumentConfigurationRef="instrument" startTimeStamp="{time}">
{setpoints} <spectrumList count="{count}" defaultDataProcessingRef="recording">
)";

constexpr const char* spectrum_form = R"(<spectrum index="{index}" id="scan={number}" defaultArrayLength="{length}">
{summary}<scanList count="1">
{combination}<scan>
{scan}</scan></scanList>
<binaryDataArrayList count="2">
{arrays}</binaryDataArrayList></spectrum>
)";

/// A line: the parameter as an element.
std::string parameter(const char* kind, std::initializer_list<std::pair<const char*, std::string>> attributes,
                      const Term* unit) {
    pugi::xml_document document;
    pugi::xml_node element = document.append_child(kind);
    for (const auto& [name, value] : attributes) element.append_attribute(name) = value.c_str();
    if (unit) {
        element.append_attribute("unitCvRef") = unit->ontology();
        element.append_attribute("unitAccession") = unit->accession;
        element.append_attribute("unitName") = unit->name;
    }
    std::ostringstream out;
    element.print(out, "", pugi::format_raw, pugi::encoding_utf8);
    return std::move(out).str() + "\n";
}

std::string term_text(const Term& term, const std::string& value = {}, const Term* unit = nullptr) {
    return parameter("cvParam",
                     {{"cvRef", term.ontology()}, {"accession", term.accession}, {"name", term.name}, {"value", value}},
                     unit);
}

std::string user_text(const std::string& name, const std::string& value) {
    return parameter("userParam", {{"name", name}, {"value", value}, {"type", "xsd:string"}}, nullptr);
}

std::string user_number(const std::string& name, const std::optional<double>& value, const Term* unit = nullptr) {
    if (!value) return {};
    return parameter("userParam", {{"name", name}, {"value", number_text(*value)}, {"type", "xsd:double"}}, unit);
}

const Term& source_term(const std::string& source_type) {
    const auto known = std::ranges::find_if(source_terms, [&](const SourceTerm& source) {
        return source_type.find(source.source_type) != std::string::npos;
    });
    return known == std::end(source_terms) ? term::ionization_type : known->term;
}

std::string summary_text(const RecordedSpectrum& spectrum) {
    const auto& counts = spectrum.intensity;
    const auto base = std::ranges::max_element(counts);
    const bool positive = spectrum.polarity == PolaritySetpoint::Positive;
    return term_text(term::ms_level, "1") + term_text(term::ms1_spectrum) + term_text(term::profile_spectrum) +
           term_text(positive ? term::positive_scan : term::negative_scan) +
           term_text(term::lowest_observed_mz, number_text(spectrum.mz.front()), &unit::mz) +
           term_text(term::highest_observed_mz, number_text(spectrum.mz.back()), &unit::mz) +
           term_text(term::base_peak_mz, number_text(spectrum.mz[static_cast<std::size_t>(base - counts.begin())]),
                     &unit::mz) +
           term_text(term::base_peak_intensity, number_text(*base), &unit::detector_counts) +
           term_text(term::total_ion_current, number_text(std::accumulate(counts.begin(), counts.end(), 0.0)));
}

std::string scan_text(const RecordedSpectrum& spectrum) {
    std::string text = term_text(term::scan_start_time, number_text(spectrum.scan_start_minutes), &unit::minute);
    text += user_number(user_parameter::first_flight_time, spectrum.first_flight_time_ns, &unit::nanosecond);
    text += user_number(user_parameter::sampling_interval, spectrum.sampling_interval_ns, &unit::nanosecond);
    std::vector<std::string> coefficients;
    for (const auto& [name, member] : calibration_coefficients)
        coefficients.push_back(number_text(spectrum.calibration->coefficients.*member));
    text += user_text(user_parameter::coefficients, fmt::format("{}", fmt::join(coefficients, " ")));
    text += user_text(user_parameter::use_flags, fmt::format("{}", fmt::join(spectrum.calibration->use_flags, " ")));
    if (const auto& width = spectrum.peak_finder.width) {
        text += user_number(user_parameter::resolution_limit, width->resolution_limit);
        text += user_number(user_parameter::detector_width, width->detector_fwhm_ns);
    }
    for (const auto& [name, most, value] : peak_finder_parameters)
        text += user_number(name, spectrum.peak_finder.*value);
    return text;
}

std::string array_text(std::span<const double> numbers, bool is_64_bit, const Term& kind, const Term& unit) {
    const std::string text = encode_numbers(numbers, {.is_64_bit = is_64_bit, .is_zlib = true});
    return fmt::format("<binaryDataArray encodedLength=\"{}\">\n{}{}{}<binary>{}</binary></binaryDataArray>\n",
                       text.size(), term_text(is_64_bit ? term::float_64 : term::float_32),
                       term_text(term::zlib_compression), term_text(kind, {}, &unit), text);
}

/// The text of one spectrum: m/z as 64-bit floats, intensities as 32-bit floats where these hold all of them exactly,
/// else as 64-bit; both with zlib. The times, the calibration and the peak finder's options become user parameters of
/// the scan. The spectrum must have samples and a calibration. Its id is not used: spectra are counted from "scan=1".
std::string spectrum_text(const RecordedSpectrum& spectrum, int index) {
    using namespace fmt::literals;
    return fmt::format(spectrum_form, "index"_a = index, "number"_a = index + 1, "length"_a = spectrum.mz.size(),
                       "summary"_a = summary_text(spectrum), "combination"_a = term_text(term::no_combination),
                       "scan"_a = scan_text(spectrum),
                       "arrays"_a = array_text(spectrum.mz, true, term::mz_array, unit::mz) +
                                    array_text(spectrum.intensity, !fits_32_bit(spectrum.intensity),
                                               term::intensity_array, unit::detector_counts));
}

class Recorder {
public:
    Recorder(const Platform& platform, std::string path)
        : layer_(*platform.instrument),
          clock_(*platform.clock),
          globals_(open_globals(layer_)),
          place_{std::move(path), {}, "RecordingWriter"} {
        if (globals_->control() == nullptr) raise_runtime_fault(error_number::object_not_set, "instrument control");
    }

    /// Part by part, UTF-8: what stands before the spectra at once, then each spectrum, then the end.
    void record(int count, const RecordingProgress& progress, const AcquiredSpectrum* taken, OutputFile& file) {
        file.write(head(count));
        // What a replay would refuse is refused here.
        Notes ignored;
        AxisKeeper axis(place_, ignored);
        for (int i = 0; i < count; ++i) {
            if (progress) progress(i);
            const RecordedSpectrum spectrum = recorded(taken ? *taken : next_spectrum());
            axis.play(spectrum);
            file.write(spectrum_text(spectrum, i));
        }
        file.write(" </spectrumList></run></mzML>\n");
    }

private:
    std::string head(int count) {
        using namespace fmt::literals;
        const LocalTime now = clock_.now();
        std::string setpoint_lines;
        for (const auto& [name, value] : setpoints())
            setpoint_lines += user_number(user_parameter::setpoint_prefix + name, value);
        return fmt::format(
            head_text, "model"_a = term_text({"MS:1000031", "instrument model"}, globals_->hardware().model()),
            "source"_a = term_text(source_term(globals_->source_type())),
            "frequency"_a = term_text(term::sampling_frequency, number_text(1e9 / interval_ns()), &unit::hertz),
            "time"_a = fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}", now.year, now.month, now.day, now.hour,
                                   now.minute, now.second),
            "setpoints"_a = setpoint_lines, "count"_a = count);
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
        place_.fail("the instrument shows no spectrum: ", most_tries, " came empty");
    }

    RecordedSpectrum recorded(const AcquiredSpectrum& spectrum) {
        RecordedSpectrum record;
        record.polarity = polarity(spectrum);
        record.scan_start_minutes = std::isfinite(spectrum.retention_time) ? spectrum.retention_time : 0;
        record.mz.assign(spectrum.mass_data.elements().begin(), spectrum.mass_data.elements().end());
        record.intensity.assign(spectrum.y_data.elements().begin(), spectrum.y_data.elements().end());
        if (record.mz.empty() || record.mz.size() != record.intensity.size())
            place_.fail("a spectrum has ", record.mz.size(), " masses and ", record.intensity.size(), " abundances");
        check_samples(record, place_);
        record.first_flight_time_ns = spectrum.start_time_ns;
        record.sampling_interval_ns = interval_ns();
        const auto calibration = globals_->calibrations().calibration(static_cast<std::int32_t>(record.polarity));
        if (!calibration) place_.fail("the instrument lends no calibration");
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
            if (value != 0 && value != 1) place_.fail("the metadata give the polarity ", value);
            return static_cast<PolaritySetpoint>(value);
        }
        place_.fail("the metadata do not tell the polarity");
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
    RecordingPlace place_;
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
