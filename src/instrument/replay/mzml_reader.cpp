#include "instrument/replay/mzml_reader.h"

#include <cstring>
#include <iterator>
#include <pugixml.hpp>

#include "instrument/replay/mzml_parameters.h"
#include "instrument/replay/mzml_spectrum_reader.h"
#include "instrument/replay/mzml_terms.h"
#include "instrument/replay/recording_fault.h"

namespace korvane::replay {

namespace {

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

pugi::xml_node mzml_root(const pugi::xml_document& document, const RecordingPlace& place) {
    const auto root = document.document_element();
    const bool indexed = std::strcmp(root.name(), "indexedmzML") == 0;
    const auto mzml = indexed ? root.child("mzML") : root;
    if (std::strcmp(mzml.name(), "mzML") != 0)
        place.fail("this is not mzML: its root element is [" + std::string(root.name()) + "]");
    return mzml;
}

std::optional<double> sampling_interval_ns(const pugi::xml_node& component, const pugi::xml_node& groups,
                                           const RecordingPlace& place) {
    const MzmlParameters parameters(component, groups, place);
    const auto frequency = parameters.number(term::sampling_frequency);
    if (!frequency) return std::nullopt;
    const std::string unit = parameters.find(term::sampling_frequency).attribute("unitAccession").value();
    if (unit::hertz != unit || !(*frequency > 0))
        place.fail("sampling frequency " + std::to_string(*frequency) + " [" + unit + "] is not one in hertz");
    return 1e9 / *frequency;
}

/// The first configuration speaks for the recording.
void read_instrument(const pugi::xml_node& mzml, const RecordingPlace& place, Recording& recording) {
    const auto groups = mzml.child("referenceableParamGroupList");
    const auto configuration = mzml.child("instrumentConfigurationList").child("instrumentConfiguration");
    const MzmlParameters instrument(configuration, groups, place);
    recording.instrument_model = instrument.find(term::instrument_model).attribute("value").value();
    const auto components = configuration.child("componentList");
    for (const auto& component : components.children())
        if (const auto interval = sampling_interval_ns(component, groups, place))
            recording.sampling_interval_ns = interval;
    const MzmlParameters source(components.child("source"), groups, place);
    for (const SourceTerm& known : source_terms) {
        if (!source.has(known.term)) continue;
        recording.source_code = known.source_code;
        return;
    }
}

void read_spectra(const pugi::xml_node& mzml, const RecordingPlace& place, Recording& recording) {
    const auto groups = mzml.child("referenceableParamGroupList");
    recording.setpoints =
        MzmlParameters(mzml.child("run"), groups, place).user_numbers(user_parameter::setpoint_prefix);
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
        recording.spectra.push_back(reader.read());
        if (!recording.spectra.back().sampling_interval_ns)
            recording.spectra.back().sampling_interval_ns = recording.sampling_interval_ns;
        samples += static_cast<std::int64_t>(recording.spectra.back().mz.size());
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
    const auto mzml = mzml_root(document, place);
    Recording recording;
    recording.file = file;
    read_instrument(mzml, place, recording);
    read_spectra(mzml, place, recording);
    return recording;
}

}  // namespace korvane::replay
