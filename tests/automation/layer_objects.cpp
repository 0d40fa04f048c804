#include "layer_objects.h"

namespace korvane::automation {

// What stands behind the objects, under their names. References that the seam hands out live as long as their owner.
namespace offered {

struct InstrumentLayer {
    std::shared_ptr<korvane::InstrumentLayer> layer;
};
struct InstrumentGlobals {
    std::shared_ptr<korvane::InstrumentGlobals> globals;
    korvane::InstrumentGlobals* operator->() const { return globals.get(); }
    template <class Part>
    std::shared_ptr<Part> part(Part* part) const {
        return part ? std::shared_ptr<Part>(globals, part) : nullptr;
    }
};
struct PeakFinder {
    std::shared_ptr<korvane::PeakFinder> finder;
    VariantArray<std::int32_t> samples = {};  ///< the finder reads them in `run`
    korvane::PeakFinder* operator->() const { return finder.get(); }
};

}  // namespace offered

using Layer = offered::InstrumentLayer;
using Globals = offered::InstrumentGlobals;
using Finder = offered::PeakFinder;
using Text = const std::string&;
using Index = std::int32_t;

namespace {
template <class... Classes>
struct List {
    static constexpr std::size_t size = sizeof...(Classes);
    template <class C>
    static constexpr std::size_t place_of() {
        std::size_t place = 0;
        (void)((std::is_same_v<C, Classes> || (++place, false)) || ...);
        return place;
    }
};
// In the order of the descriptions.
using Offered = List<Layer, Globals, SetpointTable, InstrumentControl, CalibrationStore, HardwareQueries,
                     FirmwareChannels, PathInformation, LogbookEntry, Finder>;
}  // namespace

template <class C>
requires(Offered::place_of<C>() < Offered::size) inline constexpr bool is_object_class<C> = true;

template <class C>
const ClassDescription& class_of() {
    return layer_class_descriptions()[Offered::place_of<C>()];
}

namespace {

/// Two columns: names and values.
Value next_spectrum_metadata(InstrumentControl& control) {
    std::vector<Value> cells;
    for (const MetaItem& item : control.next_spectrum_metadata()) {
        cells.emplace_back(item.name);
        cells.push_back(value_of(item.value));
    }
    return Array({{0, cells.size() / 2}, {0, 2}}, std::make_shared<const std::vector<Value>>(cells));
}

void next_spectrum(InstrumentControl& control, double& first_unused, double& retention_time, Index& experiment,
                   VariantArray<double>& mass_data, VariantArray<double>& y_data,
                   VariantArray<InstrumentValue>& meta_data, double& start_time_ns, double& last_unused) {
    AcquiredSpectrum spectrum;
    control.GetNextSpectrum(spectrum);
    std::tie(first_unused, retention_time, experiment) =
        std::tie(spectrum.first_unused, spectrum.retention_time, spectrum.experiment);
    std::tie(mass_data, y_data, meta_data) = std::tie(spectrum.mass_data, spectrum.y_data, spectrum.meta_data);
    std::tie(start_time_ns, last_unused) = std::tie(spectrum.start_time_ns, spectrum.last_unused);
}

/// The kind of the value is the type in which it is written.
void write_setpoint(SetpointTable& table, Index index, Index time_segment, Index scan_segment, const Value& value) {
    SetpointValue typed = 0.0;
    if (const auto* whole = value.get_if<std::int32_t>())
        typed = *whole;
    else if (const auto* small = value.get_if<std::int16_t>())
        typed = *small;
    else
        typed = value.as_double();
    table.write(index, time_segment, scan_segment, typed);
}

void set_samples(Finder& finder, const VariantArray<std::int32_t>& counts) {
    finder.samples = counts;
    finder->set_samples(finder.samples.elements());
}

/// What docs/instrument-objects.md says of the members is not said again here.
constexpr std::string_view told = {};

constexpr auto layer_members = member_table(
    method<+[](Layer& on) { return std::make_shared<Globals>(Globals{on.layer->create_globals()}); }>(
        1, "CreateGlobals", told),
    method<+[](Layer& on) -> std::shared_ptr<PathInformation> { return on.layer->create_path_information(); }>(
        2, "CreatePathInformation", told),
    method<+[](Layer& on) -> std::shared_ptr<LogbookEntry> { return on.layer->create_logbook_entry(); }>(
        3, "CreateLogbookEntry", told),
    method<+[](Layer& on) { return std::make_shared<Finder>(Finder{on.layer->create_peak_finder()}); }>(
        4, "CreatePeakFinder", told));

constexpr auto globals_members = member_table(
    method<+[](Globals& on) { on->initialise(); }>(1, "Initialise", told),
    method<+[](Globals& on) { on->refresh(); }>(2, "Refresh", told),
    property<+[](Globals& on) { return on.part(&on->setpoints()); }>(3, "Setpoints", told),
    property<+[](Globals& on) { return on.part(&on->calibrations()); }>(4, "Calibrations", told),
    property<+[](Globals& on) { return on.part(&on->hardware()); }>(5, "Hardware", told),
    property<+[](Globals& on) { return on.part(&on->firmware()); }>(6, "Firmware", told),
    property<+[](Globals& on) { return on.part(on->control()); }>(7, "Control", told),
    method<+[](Globals& on, Text name) { return on->dictionary_item(name); }>(8, "DictionaryItem", told, value("Name")),
    method<+[](Globals& on, Index index) { return on->parameter_name(index); }>(9, "ParameterName", told,
                                                                                value("Index")),
    method<+[](Globals& on, Text path, Text type) { return on->actual_value(path, type); }>(
        10, "ActualValue", told, value("Path"), value("Type")),
    property<+[](Globals& on) { return on->sampling_interval_seconds(); }>(11, "SamplingInterval", told),
    property<+[](Globals& on) { return on->source_type(); }>(12, "SourceType", told),
    property<+[](Globals& on) { return on->source_word(); }>(13, "SourceWord", told),
    property<+[](Globals& on) { return on->time_stamp(); }>(14, "TimeStamp", told),
    property<+[](Globals& on) { return on->title(); }>(15, "Title", told));

constexpr auto setpoint_members = member_table(
    method<&SetpointTable::value>(1, "Value", told, value("Index"), value("TimeSegment"), value("ScanSegment")),
    method<&write_setpoint>(2, "Write", told, value("Index"), value("TimeSegment"), value("ScanSegment"),
                            value("NewValue")),
    method<&SetpointTable::lower_limit>(3, "LowerLimit", told, value("Index")),
    method<&SetpointTable::upper_limit>(4, "UpperLimit", told, value("Index")),
    method<&SetpointTable::resolution>(5, "Resolution", told, value("Index")),
    method<&SetpointTable::tolerance>(6, "Tolerance", told, value("Index")),
    method<&SetpointTable::variable_type>(7, "VariableType", told, value("Index")),
    method<&SetpointTable::external_name>(8, "ExternalName", told, value("Index")),
    method<&SetpointTable::internal_name>(9, "InternalName", told, value("Index")),
    method<&SetpointTable::index_of>(10, "IndexOf", told, value("InternalName")),
    method<+[](SetpointTable& on) -> Value { return Array(on.indexes()); }>(11, "Indexes", told));

constexpr auto control_members =
    member_table(method<&next_spectrum>(1, "GetNextSpectrum", told, result("FirstUnused"), result("RetentionTime"),
                                        result("Experiment"), result("MassData"), result("YData"), result("MetaData"),
                                        result("StartTime"), result("LastUnused")),
                 method<&InstrumentControl::GetMetaDescription>(2, told),
                 method<&next_spectrum_metadata>(3, "NextSpectrumMetadata", told),
                 method<&InstrumentControl::read_register>(4, "ReadRegister", told, value("Path")));

constexpr auto calibration_members =
    member_table(method<&CalibrationStore::calibration>(1, "Calibration", told, value("Polarity")),
                 method<+[](CalibrationStore& on, Index polarity, const CalibrationObject& calibration) {
                     on.store(polarity, *calibration);
                 }>(2, "Store", told, value("Polarity"), reference("Calibration")));

constexpr auto hardware_members =
    member_table(property<&HardwareQueries::has_160cm_flight_tube>(1, "Has160cmFlightTube", told),
                 method<&HardwareQueries::option_name>(2, "OptionName", told, value("OptionCode")),
                 method<&HardwareQueries::option_present>(3, "OptionPresent", told, value("OptionName")),
                 property<&HardwareQueries::has_positive_post_acceleration>(4, "HasPositivePostAcceleration", told),
                 property<+[](HardwareQueries& on) -> Index { return on.abundance_reduction_setting(); }>(
                     5, "AbundanceReductionSetting", told),
                 property<&HardwareQueries::model>(6, "Model", told));

constexpr auto firmware_members =
    member_table(method<&FirmwareChannels::write>(1, "Write", told, value("Channel"), value("NewValue")),
                 method<&FirmwareChannels::read>(2, "Read", told, value("Channel")));

constexpr auto path_members = member_table(property<&PathInformation::base_folder>(1, "BaseFolder", told));

constexpr auto logbook_members = member_table(method<&LogbookEntry::write>(
    1, "Write", told, value("Kind"), value("Message"), value("Code"), value("First"), value("Second"), value("Text")));

constexpr auto finder_members = member_table(
    method<+[](Finder& on, double ns) { on->set_sampling_interval_ns(ns); }>(1, "SetSamplingInterval", told,
                                                                             value("Interval")),
    method<+[](Finder& on, Index count) { on->set_minimum_samples(count); }>(2, "SetMinimumSamples", told,
                                                                             value("Samples")),
    method<+[](Finder& on, Index removed) { on->set_baseline_removal(removed); }>(3, "SetBaselineRemoval", told,
                                                                                  value("SwitchedOn")),
    method<+[](Finder& on, double ns) { on->set_search_start_ns(ns); }>(4, "SetSearchStart", told, value("Time")),
    method<+[](Finder& on, double ns) { on->set_search_end_ns(ns); }>(5, "SetSearchEnd", told, value("Time")),
    method<&set_samples>(6, "SetSamples", told, value("Counts")),
    method<+[](Finder& on, double start_time_ns) { return on->run(start_time_ns); }>(7, "Run", told,
                                                                                     value("StartTime")),
    property<+[](Finder& on) { return on->baseline(); }>(8, "Baseline", told));

}  // namespace

std::span<const ClassDescription> layer_class_descriptions() {
    static const std::array<ClassDescription, Offered::size> classes{{
        {"InstrumentLayer", {}, {}, {}, layer_members},
        {"InstrumentGlobals", {}, {}, {}, globals_members},
        {"SetpointTable", {}, {}, {}, setpoint_members},
        {"InstrumentControl", {}, {}, {}, control_members},
        {"CalibrationStore", {}, {}, {}, calibration_members},
        {"HardwareQueries", {}, {}, {}, hardware_members},
        {"FirmwareChannels", {}, {}, {}, firmware_members},
        {"PathInformation", {}, {}, {}, path_members},
        {"LogbookEntry", {}, {}, {}, logbook_members},
        {"PeakFinder", {}, {}, {}, finder_members},
    }};
    return classes;
}

Object object_of_layer(std::shared_ptr<InstrumentLayer> layer) {
    return make_object(std::make_shared<Layer>(Layer{std::move(layer)}));
}

}  // namespace korvane::automation
