#include "automation/layer_objects.h"

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
constexpr std::string_view names[]{type_name<Classes>...};
// In the order of the descriptions.
constexpr auto& offered_names = names<Layer, Globals, SetpointTable, InstrumentControl, CalibrationStore,
                                      HardwareQueries, FirmwareChannels, PathInformation, LogbookEntry, Finder>;
template <class C>
constexpr std::size_t place_of =
    std::find(std::begin(offered_names), std::end(offered_names), type_name<C>) - std::begin(offered_names);

}  // namespace

template <class C>
requires(place_of<C> < std::size(offered_names)) inline constexpr bool is_object_class<C> = true;

template <class C>
const ClassDescription& class_of() {
    return layer_class_descriptions()[place_of<C>];
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
    AcquiredSpectrum next;
    control.GetNextSpectrum(next);
    std::tie(first_unused, retention_time, experiment, mass_data, y_data, meta_data, start_time_ns, last_unused) =
        std::tie(next.first_unused, next.retention_time, next.experiment, next.mass_data, next.y_data, next.meta_data,
                 next.start_time_ns, next.last_unused);
}

/// The kind of the value is the type in which it is written.
void write_setpoint(SetpointTable& table, Index index, Index time_segment, Index scan_segment, const Value& value) {
    const bool whole = value.holds<std::int32_t>() || value.holds<std::int16_t>();
    table.write(index, time_segment, scan_segment,
                whole ? SetpointValue(value.as_int32()) : SetpointValue(value.as_double()));
}

void set_samples(Finder& finder, const VariantArray<std::int32_t>& counts) {
    finder.samples = counts;
    finder->set_samples(finder.samples.elements());
}

/// A method or a property that is read; what docs/instrument-objects.md says of it is not said again here.
template <auto Function, class... Names>
constexpr Member call(Index number, std::string_view name, Names... parameters) {
    return method<Function>(number, name, {}, value(parameters)...);
}
template <auto Function>
constexpr Member read(Index number, std::string_view name) {
    return property<Function>(number, name, {});
}

constexpr auto layer_members = member_table(
    call<+[](Layer& on) { return std::make_shared<Globals>(Globals{on.layer->create_globals()}); }>(1, "CreateGlobals"),
    call<+[](Layer& on) -> std::shared_ptr<PathInformation> { return on.layer->create_path_information(); }>(
        2, "CreatePathInformation"),
    call<+[](Layer& on) -> std::shared_ptr<LogbookEntry> { return on.layer->create_logbook_entry(); }>(
        3, "CreateLogbookEntry"),
    call<+[](Layer& on) { return std::make_shared<Finder>(Finder{on.layer->create_peak_finder()}); }>(
        4, "CreatePeakFinder"));

constexpr auto globals_members =
    member_table(call<+[](Globals& on) { on->initialise(); }>(1, "Initialise"),
                 call<+[](Globals& on) { on->refresh(); }>(2, "Refresh"),
                 read<+[](Globals& on) { return on.part(&on->setpoints()); }>(3, "Setpoints"),
                 read<+[](Globals& on) { return on.part(&on->calibrations()); }>(4, "Calibrations"),
                 read<+[](Globals& on) { return on.part(&on->hardware()); }>(5, "Hardware"),
                 read<+[](Globals& on) { return on.part(&on->firmware()); }>(6, "Firmware"),
                 read<+[](Globals& on) { return on.part(on->control()); }>(7, "Control"),
                 call<+[](Globals& on, Text name) { return on->dictionary_item(name); }>(8, "DictionaryItem", "Name"),
                 call<+[](Globals& on, Index index) { return on->parameter_name(index); }>(9, "ParameterName", "Index"),
                 call<+[](Globals& on, Text path, Text type) { return on->actual_value(path, type); }>(
                     10, "ActualValue", "Path", "Type"),
                 read<+[](Globals& on) { return on->sampling_interval_seconds(); }>(11, "SamplingInterval"),
                 read<+[](Globals& on) { return on->source_type(); }>(12, "SourceType"),
                 read<+[](Globals& on) { return on->source_word(); }>(13, "SourceWord"),
                 read<+[](Globals& on) { return on->time_stamp(); }>(14, "TimeStamp"),
                 read<+[](Globals& on) { return on->title(); }>(15, "Title"));

constexpr auto setpoint_members =
    member_table(call<&SetpointTable::value>(1, "Value", "Index", "TimeSegment", "ScanSegment"),
                 call<&write_setpoint>(2, "Write", "Index", "TimeSegment", "ScanSegment", "NewValue"),
                 call<&SetpointTable::lower_limit>(3, "LowerLimit", "Index"),
                 call<&SetpointTable::upper_limit>(4, "UpperLimit", "Index"),
                 call<&SetpointTable::resolution>(5, "Resolution", "Index"),
                 call<&SetpointTable::tolerance>(6, "Tolerance", "Index"),
                 call<&SetpointTable::variable_type>(7, "VariableType", "Index"),
                 call<&SetpointTable::external_name>(8, "ExternalName", "Index"),
                 call<&SetpointTable::internal_name>(9, "InternalName", "Index"),
                 call<&SetpointTable::index_of>(10, "IndexOf", "InternalName"),
                 call<+[](SetpointTable& on) -> Value { return Array(on.indexes()); }>(11, "Indexes"));

constexpr auto control_members =
    member_table(method<&next_spectrum>(1, "GetNextSpectrum", {}, result("FirstUnused"), result("RetentionTime"),
                                        result("Experiment"), result("MassData"), result("YData"), result("MetaData"),
                                        result("StartTime"), result("LastUnused")),
                 call<&InstrumentControl::GetMetaDescription>(2, "GetMetaDescription"),
                 call<&next_spectrum_metadata>(3, "NextSpectrumMetadata"),
                 call<&InstrumentControl::read_register>(4, "ReadRegister", "Path"));

constexpr auto calibration_members =
    member_table(call<&CalibrationStore::calibration>(1, "Calibration", "Polarity"),
                 method<+[](CalibrationStore& on, Index polarity, const CalibrationObject& calibration) {
                     on.store(polarity, *calibration);
                 }>(2, "Store", {}, value("Polarity"), reference("Calibration")));

constexpr auto hardware_members =
    member_table(read<&HardwareQueries::has_160cm_flight_tube>(1, "Has160cmFlightTube"),
                 call<&HardwareQueries::option_name>(2, "OptionName", "OptionCode"),
                 call<&HardwareQueries::option_present>(3, "OptionPresent", "OptionName"),
                 read<&HardwareQueries::has_positive_post_acceleration>(4, "HasPositivePostAcceleration"),
                 read<+[](HardwareQueries& on) -> Index { return on.abundance_reduction_setting(); }>(
                     5, "AbundanceReductionSetting"),
                 read<&HardwareQueries::model>(6, "Model"));

constexpr auto firmware_members = member_table(call<&FirmwareChannels::write>(1, "Write", "Channel", "NewValue"),
                                               call<&FirmwareChannels::read>(2, "Read", "Channel"));

constexpr auto path_members = member_table(read<&PathInformation::base_folder>(1, "BaseFolder"));

constexpr auto logbook_members =
    member_table(call<&LogbookEntry::write>(1, "Write", "Kind", "Message", "Code", "First", "Second", "Text"));

constexpr auto finder_members = member_table(
    call<+[](Finder& on, double ns) { on->set_sampling_interval_ns(ns); }>(1, "SetSamplingInterval", "Interval"),
    call<+[](Finder& on, Index count) { on->set_minimum_samples(count); }>(2, "SetMinimumSamples", "Samples"),
    call<+[](Finder& on, Index removed) { on->set_baseline_removal(removed); }>(3, "SetBaselineRemoval", "SwitchedOn"),
    call<+[](Finder& on, double ns) { on->set_search_start_ns(ns); }>(4, "SetSearchStart", "Time"),
    call<+[](Finder& on, double ns) { on->set_search_end_ns(ns); }>(5, "SetSearchEnd", "Time"),
    call<&set_samples>(6, "SetSamples", "Counts"),
    call<+[](Finder& on, double start_time_ns) { return on->run(start_time_ns); }>(7, "Run", "StartTime"),
    read<+[](Finder& on) { return on->baseline(); }>(8, "Baseline"));

}  // namespace

std::span<const ClassDescription> layer_class_descriptions() {
    constexpr std::span<const Member> members[]{
        layer_members,    globals_members,  setpoint_members, control_members, calibration_members,
        hardware_members, firmware_members, path_members,     logbook_members, finder_members};
    static const std::vector<ClassDescription> classes = [&] {
        std::vector<ClassDescription> all;
        for (const auto& table : members) all.push_back({offered_names[all.size()], {}, {}, {}, table});
        return all;
    }();
    return classes;
}

Object object_of_layer(std::shared_ptr<InstrumentLayer> layer) {
    return make_object(std::make_shared<Layer>(Layer{std::move(layer)}));
}

Object object_of_peak_finder(std::shared_ptr<PeakFinder> finder) {
    return make_object(std::make_shared<Finder>(Finder{std::move(finder)}));
}

}  // namespace korvane::automation
