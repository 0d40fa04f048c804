#include "automation/instrument_members.h"

#include <array>

#include "platform/automation_arithmetic.h"

namespace korvane::automation {

namespace {

Value value_of_item(const InstrumentValue& item) {
    return value_of(VariantArray<InstrumentValue>({item})).as_array().element(0);
}

// The layer.
std::shared_ptr<GlobalsHandle> create_globals(LayerHandle& handle) {
    return std::make_shared<GlobalsHandle>(GlobalsHandle{handle.layer->create_globals()});
}
std::shared_ptr<PathInformation> create_path_information(LayerHandle& handle) {
    return handle.layer->create_path_information();
}
std::shared_ptr<LogbookEntry> create_logbook_entry(LayerHandle& handle) {
    return handle.layer->create_logbook_entry();
}
std::shared_ptr<PeakFinderHandle> create_peak_finder(LayerHandle& handle) {
    return std::make_shared<PeakFinderHandle>(PeakFinderHandle{handle.layer->create_peak_finder(), {}});
}

// One client's view. A part lives as long as its view.
template <class Part>
std::shared_ptr<Part> part_of(GlobalsHandle& handle, Part& part) {
    return {handle.globals, &part};
}
void initialise(GlobalsHandle& handle) {
    handle.globals->initialise();
}
void refresh(GlobalsHandle& handle) {
    handle.globals->refresh();
}
std::shared_ptr<SetpointTable> setpoints(GlobalsHandle& handle) {
    return part_of(handle, handle.globals->setpoints());
}
std::shared_ptr<CalibrationStore> calibrations(GlobalsHandle& handle) {
    return part_of(handle, handle.globals->calibrations());
}
std::shared_ptr<HardwareQueries> hardware(GlobalsHandle& handle) {
    return part_of(handle, handle.globals->hardware());
}
std::shared_ptr<FirmwareChannels> firmware(GlobalsHandle& handle) {
    return part_of(handle, handle.globals->firmware());
}
std::shared_ptr<InstrumentControl> control(GlobalsHandle& handle) {
    InstrumentControl* const control = handle.globals->control();
    return control ? part_of(handle, *control) : nullptr;
}
Value dictionary_item(GlobalsHandle& handle, const std::string& name) {
    return value_of_item(handle.globals->dictionary_item(name));
}
std::string parameter_name(GlobalsHandle& handle, std::int32_t index) {
    return handle.globals->parameter_name(index);
}
Value actual_value(GlobalsHandle& handle, const std::string& path, const std::string& type) {
    return value_of_item(handle.globals->actual_value(path, type));
}
double sampling_interval(GlobalsHandle& handle) {
    return handle.globals->sampling_interval_seconds();
}
std::string source_type(GlobalsHandle& handle) {
    return handle.globals->source_type();
}
std::string source_word(GlobalsHandle& handle) {
    return handle.globals->source_word();
}
std::string time_stamp(GlobalsHandle& handle) {
    return handle.globals->time_stamp();
}
std::string title(GlobalsHandle& handle) {
    return handle.globals->title();
}

// Setpoints.
Value setpoint_value(SetpointTable& table, std::int32_t index, std::int32_t time_segment, std::int32_t scan_segment) {
    return value_of_item(table.value(index, time_segment, scan_segment));
}
/// The kind of the value is the type in which it is written.
void write_setpoint(SetpointTable& table, std::int32_t index, std::int32_t time_segment, std::int32_t scan_segment,
                    const Value& value) {
    SetpointValue typed = 0.0;
    if (const auto* whole = value.get_if<std::int32_t>())
        typed = *whole;
    else if (const auto* small = value.get_if<std::int16_t>())
        typed = *small;
    else
        typed = value.as_double();
    table.write(index, time_segment, scan_segment, typed);
}
Value setpoint_indexes(SetpointTable& table) {
    return Array(table.indexes());
}

// Instrument control.
void get_next_spectrum(InstrumentControl& control, double& first_unused, double& retention_time,
                       std::int32_t& experiment, VariantArray<double>& mass_data, VariantArray<double>& y_data,
                       VariantArray<InstrumentValue>& meta_data, double& start_time_ns, double& last_unused) {
    AcquiredSpectrum spectrum;
    control.GetNextSpectrum(spectrum);
    first_unused = spectrum.first_unused;
    retention_time = spectrum.retention_time;
    experiment = spectrum.experiment;
    mass_data = std::move(spectrum.mass_data);
    y_data = std::move(spectrum.y_data);
    meta_data = std::move(spectrum.meta_data);
    start_time_ns = spectrum.start_time_ns;
    last_unused = spectrum.last_unused;
}
/// Two columns: names and values.
Value next_spectrum_metadata(InstrumentControl& control) {
    auto cells = std::make_shared<std::vector<Value>>();
    const std::vector<MetaItem> items = control.next_spectrum_metadata();
    for (const MetaItem& item : items) {
        cells->emplace_back(item.name);
        cells->push_back(value_of_item(item.value));
    }
    return Array({{0, items.size()}, {0, 2}}, Array::Elements<Value>(std::move(cells)));
}

void store_calibration(CalibrationStore& store, std::int32_t polarity, const CalibrationObject& calibration) {
    store.store(polarity, *calibration);
}

std::int32_t abundance_reduction_setting(HardwareQueries& hardware) {
    return hardware.abundance_reduction_setting();
}

// Peak finder.
void set_sampling_interval(PeakFinderHandle& handle, double interval_ns) {
    handle.finder->set_sampling_interval_ns(interval_ns);
}
void set_minimum_samples(PeakFinderHandle& handle, std::int32_t samples) {
    handle.finder->set_minimum_samples(samples);
}
void set_baseline_removal(PeakFinderHandle& handle, std::int32_t on) {
    handle.finder->set_baseline_removal(on);
}
void set_search_start(PeakFinderHandle& handle, double time_ns) {
    handle.finder->set_search_start_ns(time_ns);
}
void set_search_end(PeakFinderHandle& handle, double time_ns) {
    handle.finder->set_search_end_ns(time_ns);
}
void set_samples(PeakFinderHandle& handle, const VariantArray<std::int32_t>& counts) {
    handle.samples = counts;
    handle.finder->set_samples(handle.samples.elements());
}
PeakListObject run_finder(PeakFinderHandle& handle, double start_time_ns) {
    return handle.finder->run(start_time_ns);
}
double finder_baseline(PeakFinderHandle& handle) {
    return handle.finder->baseline();
}

// clang-format off
constexpr std::array layer_members{
    method<&create_globals>(1, "CreateGlobals", "A client's view of the instrument, an InstrumentGlobals."),
    method<&create_path_information>(2, "CreatePathInformation", "The paths of the instrument software."),
    method<&create_logbook_entry>(3, "CreateLogbookEntry", "A new entry for the instrument's logbook."),
    method<&create_peak_finder>(4, "CreatePeakFinder", "A new peak finder, a PeakFinder."),
};
constexpr std::array globals_members{
    method<&initialise>(1, "Initialise", "Called once, before anything else."),
    method<&refresh>(2, "Refresh", "Called before every spectrum request."),
    property_get<&setpoints>(3, "Setpoints", "The setpoint table."),
    property_get<&calibrations>(4, "Calibrations", "The calibrations by polarity."),
    property_get<&hardware>(5, "Hardware", "What the instrument is made of."),
    property_get<&firmware>(6, "Firmware", "Direct access to firmware channels."),
    property_get<&control>(7, "Control", "Instrument control; Nothing where none is connected."),
    method<&dictionary_item>(8, "DictionaryItem", "Data dictionary item; error 5 naming an unknown one.", value("Name")),
    method<&parameter_name>(9, "ParameterName", "Name of a parameter of the catalogue; 23 is the experiment.", value("Index")),
    method<&actual_value>(10, "ActualValue", "Current value of an instrument register.", value("Path"), value("Type")),
    property_get<&sampling_interval>(11, "SamplingInterval", "Seconds between samples."),
    property_get<&source_type>(12, "SourceType", "The ion source."),
    property_get<&source_word>(13, "SourceWord", "The ion source as the tune parameter file writes it."),
    property_get<&time_stamp>(14, "TimeStamp", "Time stamp for setpoint log lines."),
    property_get<&title>(15, "Title", "Title of the instrument."),
};
constexpr std::array setpoint_members{
    method<&setpoint_value>(1, "Value", "Value of a setpoint. Error 9 naming an index that the instrument does not have, here and below.", value("Index"), value("TimeSegment"), value("ScanSegment")),
    method<&write_setpoint>(2, "Write", "Writes a Double, a Long or an Integer, as the setpoint's type wants it.", value("Index"), value("TimeSegment"), value("ScanSegment"), value("NewValue")),
    method<&SetpointTable::lower_limit>(3, "LowerLimit", "Lower limit.", value("Index")),
    method<&SetpointTable::upper_limit>(4, "UpperLimit", "Upper limit.", value("Index")),
    method<&SetpointTable::resolution>(5, "Resolution", "Smallest step.", value("Index")),
    method<&SetpointTable::tolerance>(6, "Tolerance", "How close a read-back must come to count as reached.", value("Index")),
    method<&SetpointTable::variable_type>(7, "VariableType", "4 Double, 3 Long, 6 Integer.", value("Index")),
    method<&SetpointTable::external_name>(8, "ExternalName", "Name in the metadata of spectra.", value("Index")),
    method<&SetpointTable::internal_name>(9, "InternalName", "Internal name.", value("Index")),
    method<&SetpointTable::index_of>(10, "IndexOf", "Index of an internal name; error 5 naming an unknown one.", value("InternalName")),
    method<&setpoint_indexes>(11, "Indexes", "All indexes, ascending."),
};
constexpr std::array control_members{
    method<&get_next_spectrum>(1, "GetNextSpectrum", "Waits for the next spectrum. The first and the last argument are not used. Times in ns.",
        result("FirstUnused"), result("RetentionTime"), result("Experiment"), result("MassData"), result("YData"), result("MetaData"), result("StartTime"), result("LastUnused")),
    method<&InstrumentControl::GetMetaDescription>(2, "GetMetaDescription", "Texts, one for each entry of a spectrum's metadata."),
    method<&next_spectrum_metadata>(3, "NextSpectrumMetadata", "Waits for the next spectrum; its metadata in two columns, names and values."),
    method<&InstrumentControl::read_register>(4, "ReadRegister", "Value of an instrument register.", value("Path")),
};
constexpr std::array calibration_store_members{
    method<&CalibrationStore::calibration>(1, "Calibration", "The calibration that the instrument lends for a polarity: 0 positive, 1 negative.", value("Polarity")),
    method<&store_calibration>(2, "Store", "Stores a calibration for a polarity.", value("Polarity"), reference("Calibration")),
};
constexpr std::array hardware_members{
    property_get<&HardwareQueries::has_160cm_flight_tube>(1, "Has160cmFlightTube", "160 cm flight tube, which is the extended mass range."),
    method<&HardwareQueries::option_name>(2, "OptionName", "Name of an option code.", value("OptionCode")),
    method<&HardwareQueries::option_present>(3, "OptionPresent", "Whether an option is installed.", value("OptionName")),
    property_get<&HardwareQueries::has_positive_post_acceleration>(4, "HasPositivePostAcceleration", "Whether positive ions are post-accelerated."),
    property_get<&abundance_reduction_setting>(5, "AbundanceReductionSetting", "0 is off."),
    property_get<&HardwareQueries::model>(6, "Model", "Model of the instrument."),
};
constexpr std::array firmware_members{
    method<&FirmwareChannels::write>(1, "Write", "Writes a channel; returns the firmware's status.", value("Channel"), value("NewValue")),
    method<&FirmwareChannels::read>(2, "Read", "Current value of a channel.", value("Channel")),
};
constexpr std::array path_members{
    property_get<&PathInformation::base_folder>(1, "BaseFolder", "The base folder, with or without a trailing separator."),
};
constexpr std::array logbook_members{
    method<&LogbookEntry::write>(1, "Write", "Writes the entry.", value("Kind"), value("Message"), value("Code"), value("First"), value("Second"), value("Text")),
};
constexpr std::array peak_finder_members{
    method<&set_sampling_interval>(1, "SetSamplingInterval", "Nanoseconds between samples.", value("Interval")),
    method<&set_minimum_samples>(2, "SetMinimumSamples", "Least number of samples of a peak.", value("Samples")),
    method<&set_baseline_removal>(3, "SetBaselineRemoval", "1 on, 0 off.", value("SwitchedOn")),
    method<&set_search_start>(4, "SetSearchStart", "Flight time in ns.", value("Time")),
    method<&set_search_end>(5, "SetSearchEnd", "Flight time in ns.", value("Time")),
    method<&set_samples>(6, "SetSamples", "The whole spectrum, counts as an array of Long.", value("Counts")),
    method<&run_finder>(7, "Run", "Searches; StartTime is the flight time of sample 0 in ns. A peak list, or Nothing.", value("StartTime")),
    property_get<&finder_baseline>(8, "Baseline", "Baseline of the last run, counts."),
};
// clang-format on

}  // namespace

std::span<const ClassDescription> instrument_class_descriptions() {
    static const std::array<ClassDescription, 10> classes{{
        {"InstrumentLayer", {}, {}, "Makes the other objects. Its ProgID names the layer.", layer_members},
        {"InstrumentGlobals", {}, {}, "One client's view of the instrument.", globals_members},
        {"SetpointTable", {}, {}, "The setpoints.", setpoint_members},
        {"InstrumentControl", {}, {}, "Spectra and registers.", control_members},
        {"CalibrationStore", {}, {}, "Mass-time calibrations by polarity.", calibration_store_members},
        {"HardwareQueries", {}, {}, "What the instrument is made of.", hardware_members},
        {"FirmwareChannels", {}, {}, "Direct access to firmware channels.", firmware_members},
        {"PathInformation", {}, {}, "Where the instrument software lies.", path_members},
        {"LogbookEntry", {}, {}, "An entry of the instrument's logbook.", logbook_members},
        {"PeakFinder", {}, {}, "Searches an intensity array between two flight times.", peak_finder_members},
    }};
    return classes;
}

Object object_of_layer(std::shared_ptr<InstrumentLayer> layer) {
    return make_object(std::make_shared<LayerHandle>(LayerHandle{std::move(layer)}));
}

}  // namespace korvane::automation
