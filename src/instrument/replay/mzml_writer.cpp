#include "instrument/replay/mzml_writer.h"

#include <algorithm>
#include <iterator>
#include <numeric>
#include <span>
#include <sstream>
#include <string_view>
#include <utility>
#include <vector>

#include "instrument/replay/binary_array.h"
#include "instrument/replay/mzml_terms.h"
#include "instrument/replay/named_peak_options.h"
#include "platform/automation_arithmetic.h"

namespace korvane::replay {

namespace {

constexpr const char* software_version = KORVANE_VERSION;
constexpr const char* software_id = "korvane";
constexpr const char* configuration_id = "instrument";
constexpr const char* processing_id = "recording";

pugi::xml_node add_element(pugi::xml_node parent, const char* name) {
    return parent.append_child(name);
}

/// A list with its count; the elements are added by the caller.
pugi::xml_node add_list(pugi::xml_node parent, const char* name, int count) {
    pugi::xml_node list = add_element(parent, name);
    list.append_attribute("count") = count;
    return list;
}

void set_attribute(pugi::xml_node element, const char* name, const std::string& value) {
    element.append_attribute(name) = value.c_str();
}

const char* ontology_of(const Term& term) {
    return std::string_view(term.accession).starts_with("UO:") ? "UO" : "MS";
}

void set_unit(pugi::xml_node parameter, const Term* unit) {
    if (unit == nullptr) return;
    set_attribute(parameter, "unitCvRef", ontology_of(*unit));
    set_attribute(parameter, "unitAccession", unit->accession);
    set_attribute(parameter, "unitName", unit->name);
}

void add_term(pugi::xml_node element, const Term& term, const std::string& value = {}, const Term* unit = nullptr) {
    pugi::xml_node parameter = add_element(element, "cvParam");
    set_attribute(parameter, "cvRef", ontology_of(term));
    set_attribute(parameter, "accession", term.accession);
    set_attribute(parameter, "name", term.name);
    set_attribute(parameter, "value", value);
    set_unit(parameter, unit);
}

void add_user_parameter(pugi::xml_node element, const char* name, const char* type, const std::string& value,
                        const Term* unit = nullptr) {
    pugi::xml_node parameter = add_element(element, "userParam");
    set_attribute(parameter, "name", name);
    set_attribute(parameter, "value", value);
    set_attribute(parameter, "type", type);
    set_unit(parameter, unit);
}

void add_ontology(pugi::xml_node list, const char* id, const char* name, const char* uri) {
    pugi::xml_node ontology = add_element(list, "cv");
    set_attribute(ontology, "id", id);
    set_attribute(ontology, "fullName", name);
    set_attribute(ontology, "URI", uri);
}

void add_head(pugi::xml_node mzml) {
    pugi::xml_node ontologies = add_list(mzml, "cvList", 2);
    add_ontology(ontologies, "MS", "Proteomics Standards Initiative Mass Spectrometry Ontology",
                 "http://purl.obolibrary.org/obo/ms/psi-ms.obo");
    add_ontology(ontologies, "UO", "Unit Ontology", "http://purl.obolibrary.org/obo/uo.obo");
    pugi::xml_node content = add_element(add_element(mzml, "fileDescription"), "fileContent");
    add_term(content, term::ms1_spectrum);
    add_term(content, term::profile_spectrum);
    pugi::xml_node software = add_element(add_list(mzml, "softwareList", 1), "software");
    set_attribute(software, "id", software_id);
    set_attribute(software, "version", software_version);
    add_term(software, term::custom_software, software_id);
}

void add_processing(pugi::xml_node mzml) {
    pugi::xml_node processing = add_element(add_list(mzml, "dataProcessingList", 1), "dataProcessing");
    set_attribute(processing, "id", processing_id);
    pugi::xml_node method = add_element(processing, "processingMethod");
    set_attribute(method, "order", "0");
    set_attribute(method, "softwareRef", software_id);
    add_term(method, term::conversion_to_mzml);
}

pugi::xml_node add_component(pugi::xml_node list, const char* kind, const Term& term) {
    pugi::xml_node component = add_element(list, kind);
    component.append_attribute("order") = static_cast<int>(std::distance(list.begin(), list.end()));
    add_term(component, term);
    return component;
}

const Term& source_term(const std::string& source_type) {
    const auto known = std::find_if(source_terms.begin(), source_terms.end(), [&](const SourceTerm& source) {
        return source_type.find(source.source_type) != std::string::npos;
    });
    return known == source_terms.end() ? term::ionization_type : known->term;
}

void add_summary(pugi::xml_node element, const RecordedSpectrum& spectrum) {
    const auto& counts = spectrum.intensity;
    const auto base = std::max_element(counts.begin(), counts.end());
    add_term(element, term::lowest_observed_mz, number_text(spectrum.mz.front()), &unit::mz);
    add_term(element, term::highest_observed_mz, number_text(spectrum.mz.back()), &unit::mz);
    add_term(element, term::base_peak_mz, number_text(spectrum.mz[static_cast<std::size_t>(base - counts.begin())]),
             &unit::mz);
    add_term(element, term::base_peak_intensity, number_text(*base), &unit::detector_counts);
    add_term(element, term::total_ion_current, number_text(std::accumulate(counts.begin(), counts.end(), 0.0)));
}

std::string spaced(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) {
        if (!text.empty()) text += ' ';
        text += word;
    }
    return text;
}

void add_calibration(pugi::xml_node scan, const StatedCalibration& calibration) {
    const auto& c = calibration.coefficients;
    std::vector<std::string> coefficients, flags;
    for (const double value : {c.A, c.B, c.C, c.D, c.E, c.F, c.G, c.H}) coefficients.push_back(number_text(value));
    for (const std::int32_t flag : calibration.use_flags) flags.push_back(std::to_string(flag));
    add_user_parameter(scan, user_parameter::coefficients, "xsd:string", spaced(coefficients));
    add_user_parameter(scan, user_parameter::use_flags, "xsd:string", spaced(flags));
}

void add_scan(pugi::xml_node element, const RecordedSpectrum& spectrum) {
    pugi::xml_node list = add_list(element, "scanList", 1);
    add_term(list, term::no_combination);
    pugi::xml_node scan = add_element(list, "scan");
    add_term(scan, term::scan_start_time, number_text(spectrum.scan_start_minutes), &unit::minute);
    if (spectrum.first_flight_time_ns)
        add_user_parameter(scan, user_parameter::first_flight_time, "xsd:double",
                           number_text(*spectrum.first_flight_time_ns), &unit::nanosecond);
    if (spectrum.sampling_interval_ns)
        add_user_parameter(scan, user_parameter::sampling_interval, "xsd:double",
                           number_text(*spectrum.sampling_interval_ns), &unit::nanosecond);
    if (spectrum.calibration) add_calibration(scan, *spectrum.calibration);
    for (const auto& [option, value] : named_peak_options(spectrum.peak_finder))
        add_user_parameter(scan, peak_finder_parameter(option).c_str(), "xsd:double", number_text(value));
}

void add_array(pugi::xml_node list, std::span<const double> numbers, const BinaryEncoding& encoding, const Term& kind,
               const Term& unit) {
    const std::string text = encode_numbers(numbers, encoding);
    pugi::xml_node array = add_element(list, "binaryDataArray");
    set_attribute(array, "encodedLength", std::to_string(text.size()));
    add_term(array, encoding.is_64_bit ? term::float_64 : term::float_32);
    add_term(array, encoding.is_zlib ? term::zlib_compression : term::no_compression);
    add_term(array, kind, {}, &unit);
    add_element(array, "binary").text().set(text.c_str());
}

}  // namespace

MzmlWriter::MzmlWriter(const RecordedInstrument& instrument) {
    pugi::xml_node declaration = document_.append_child(pugi::node_declaration);
    set_attribute(declaration, "version", "1.0");
    set_attribute(declaration, "encoding", "utf-8");
    pugi::xml_node mzml = document_.append_child("mzML");
    set_attribute(mzml, "xmlns", "http://psi.hupo.org/ms/mzml");
    set_attribute(mzml, "xmlns:xsi", "http://www.w3.org/2001/XMLSchema-instance");
    set_attribute(mzml, "xsi:schemaLocation",
                  "http://psi.hupo.org/ms/mzml http://psidev.info/files/ms/mzML/xsd/mzML1.1.0.xsd");
    set_attribute(mzml, "version", "1.1.0");
    add_head(mzml);
    pugi::xml_node configuration =
        add_element(add_list(mzml, "instrumentConfigurationList", 1), "instrumentConfiguration");
    set_attribute(configuration, "id", configuration_id);
    add_term(configuration, term::instrument_model, instrument.model);
    add_components(configuration, instrument);
    add_processing(mzml);
    pugi::xml_node run = add_element(mzml, "run");
    set_attribute(run, "id", "run");
    set_attribute(run, "defaultInstrumentConfigurationRef", configuration_id);
    for (const auto& [name, value] : instrument.setpoints)
        add_user_parameter(run, (user_parameter::setpoint_prefix + name).c_str(), "xsd:double", number_text(value));
    spectra_ = add_list(run, "spectrumList", 0);
    set_attribute(spectra_, "defaultDataProcessingRef", processing_id);
}

void MzmlWriter::add_components(pugi::xml_node configuration, const RecordedInstrument& instrument) {
    pugi::xml_node components = add_list(configuration, "componentList", 4);
    add_component(components, "source", source_term(instrument.source_type));
    add_component(components, "analyzer", term::quadrupole);
    add_component(components, "analyzer", term::time_of_flight);
    pugi::xml_node detector = add_component(components, "detector", term::detector_type);
    add_term(detector, term::analog_digital_converter);
    add_term(detector, term::sampling_frequency, number_text(1e9 / instrument.sampling_interval_ns), &unit::hertz);
}

void MzmlWriter::add(const RecordedSpectrum& spectrum) {
    pugi::xml_node element = add_element(spectra_, "spectrum");
    element.append_attribute("index") = count_;
    set_attribute(element, "id", "scan=" + std::to_string(++count_));
    set_attribute(element, "defaultArrayLength", std::to_string(spectrum.mz.size()));
    add_term(element, term::ms_level, "1");
    add_term(element, term::ms1_spectrum);
    add_term(element, term::profile_spectrum);
    const bool positive = spectrum.polarity == PolaritySetpoint::Positive;
    add_term(element, positive ? term::positive_scan : term::negative_scan);
    add_summary(element, spectrum);
    add_scan(element, spectrum);
    pugi::xml_node arrays = add_list(element, "binaryDataArrayList", 2);
    add_array(arrays, spectrum.mz, {true, true}, term::mz_array, unit::mz);
    add_array(arrays, spectrum.intensity, {!fits_32_bit(spectrum.intensity), true}, term::intensity_array,
              unit::detector_counts);
}

std::string MzmlWriter::text() {
    spectra_.attribute("count") = count_;
    std::ostringstream out;
    document_.save(out, " ");
    return std::move(out).str();
}

}  // namespace korvane::replay
