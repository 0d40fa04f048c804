#include "instrument/replay/mzml_writer.h"

#include <algorithm>
#include <numeric>
#include <pugixml.hpp>
#include <span>
#include <sstream>
#include <string_view>
#include <utility>
#include <vector>

#include "instrument/replay/binary_array.h"
#include "instrument/replay/mzml_terms.h"
#include "platform/automation_arithmetic.h"

namespace korvane::replay {

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

void set_attribute(pugi::xml_node element, const char* name, const std::string& value) {
    element.append_attribute(name) = value.c_str();
}

/// A list with its count; the elements are added by the caller.
pugi::xml_node add_list(pugi::xml_node parent, const char* name, int count) {
    pugi::xml_node list = parent.append_child(name);
    list.append_attribute("count") = count;
    return list;
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
    pugi::xml_node parameter = element.append_child("cvParam");
    set_attribute(parameter, "cvRef", ontology_of(term));
    set_attribute(parameter, "accession", term.accession);
    set_attribute(parameter, "name", term.name);
    set_attribute(parameter, "value", value);
    set_unit(parameter, unit);
}

void add_user_parameter(pugi::xml_node element, const std::string& name, const char* type, const std::string& value,
                        const Term* unit = nullptr) {
    pugi::xml_node parameter = element.append_child("userParam");
    set_attribute(parameter, "name", name);
    set_attribute(parameter, "value", value);
    set_attribute(parameter, "type", type);
    set_unit(parameter, unit);
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
    std::string coefficients, flags;
    for (const double value : {c.A, c.B, c.C, c.D, c.E, c.F, c.G, c.H})
        coefficients += (coefficients.empty() ? "" : " ") + number_text(value);
    for (const std::int32_t flag : calibration.use_flags) flags += (flags.empty() ? "" : " ") + std::to_string(flag);
    add_user_parameter(scan, user_parameter::coefficients, "xsd:string", coefficients);
    add_user_parameter(scan, user_parameter::use_flags, "xsd:string", flags);
}

void add_scan(pugi::xml_node element, const RecordedSpectrum& spectrum) {
    pugi::xml_node list = add_list(element, "scanList", 1);
    add_term(list, term::no_combination);
    pugi::xml_node scan = list.append_child("scan");
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
    pugi::xml_node array = list.append_child("binaryDataArray");
    set_attribute(array, "encodedLength", std::to_string(text.size()));
    add_term(array, is_64_bit ? term::float_64 : term::float_32);
    add_term(array, term::zlib_compression);
    add_term(array, kind, {}, &unit);
    array.append_child("binary").text().set(text.c_str());
}

}  // namespace

MzmlWriter::MzmlWriter(const RecordedInstrument& instrument, std::int32_t spectra, Write write)
    : write_(std::move(write)) {
    pugi::xml_document document;
    document.load_string(empty_recording, pugi::parse_default | pugi::parse_declaration);
    pugi::xml_node mzml = document.document_element();
    pugi::xml_node configuration = mzml.child("instrumentConfigurationList").first_child();
    set_attribute(configuration.child("cvParam"), "value", instrument.model);
    pugi::xml_node components = configuration.child("componentList");
    add_term(components.child("source"), source_term(instrument.source_type));
    add_term(components.child("detector"), term::sampling_frequency, number_text(1e9 / instrument.sampling_interval_ns),
             &unit::hertz);
    pugi::xml_node run = mzml.child("run");
    set_attribute(run, "startTimeStamp", instrument.start_time);
    for (const auto& [name, value] : instrument.setpoints)
        add_user_number(run, user_parameter::setpoint_prefix + name, value);
    pugi::xml_node list = add_list(run, "spectrumList", spectra);
    set_attribute(list, "defaultDataProcessingRef", "recording");
    constexpr std::string_view place = "<spectra/>";
    list.append_child("spectra");
    std::ostringstream out;
    document.save(out, "", pugi::format_raw);
    const std::string text = std::move(out).str();
    const std::size_t at = text.find(place);
    end_ = text.substr(at + place.size()) + "\n";
    write_(text.substr(0, at) + "\n");
}

void MzmlWriter::add(const RecordedSpectrum& spectrum) {
    pugi::xml_document document;
    pugi::xml_node element = document.append_child("spectrum");
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
    add_array(arrays, spectrum.mz, true, term::mz_array, unit::mz);
    add_array(arrays, spectrum.intensity, !fits_32_bit(spectrum.intensity), term::intensity_array,
              unit::detector_counts);
    std::ostringstream out;
    element.print(out, " ", pugi::format_indent, pugi::encoding_utf8);
    write_(out.str());
}

}  // namespace korvane::replay
