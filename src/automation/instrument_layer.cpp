// The objects of an instrument layer.
#include <array>

#include "automation/class_description.h"
#include "automation/native_types.h"
#include "korvane/forwarding.h"

namespace korvane::automation {

namespace {

using Index = std::int32_t;

class SampleKeeper final : public ForwardingPeakFinder {
public:
    using ForwardingPeakFinder::ForwardingPeakFinder;
    void set_samples(std::span<const Index> counts) override {
        samples_.assign(counts.begin(), counts.end());
        ForwardingPeakFinder::set_samples(samples_);
    }

private:
    std::vector<Index> samples_;
};

std::shared_ptr<PeakFinder> create_peak_finder(InstrumentLayer& layer) {
    return keeping_samples(layer.create_peak_finder());
}

void set_samples(PeakFinder& finder, const VariantArray<Index>& counts) {
    finder.set_samples(counts.elements());
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

/// A method or a property that is read; what docs/instrument-objects.md says of it is not said again here.
template <auto Function, class... Names>
constexpr Member call(Index number, std::string_view name, Names... parameters) {
    return method<Function>(number, name, {}, value(parameters)...);
}
template <auto Function>
constexpr Member read(Index number, std::string_view name) {
    return property<Function>(number, name, {});
}

constexpr auto layer_members = member_table(call<&InstrumentLayer::create_globals>(1, "CreateGlobals"),
                                            call<&InstrumentLayer::create_path_information>(2, "CreatePathInformation"),
                                            call<&InstrumentLayer::create_logbook_entry>(3, "CreateLogbookEntry"),
                                            call<&create_peak_finder>(4, "CreatePeakFinder"));

constexpr auto globals_members = member_table(
    call<&InstrumentGlobals::initialise>(1, "Initialise"), call<&InstrumentGlobals::refresh>(2, "Refresh"),
    read<&InstrumentGlobals::setpoints>(3, "Setpoints"), read<&InstrumentGlobals::calibrations>(4, "Calibrations"),
    read<&InstrumentGlobals::hardware>(5, "Hardware"), read<&InstrumentGlobals::firmware>(6, "Firmware"),
    read<&InstrumentGlobals::control>(7, "Control"),
    call<&InstrumentGlobals::dictionary_item>(8, "DictionaryItem", "Name"),
    call<&InstrumentGlobals::parameter_name>(9, "ParameterName", "Index"),
    call<&InstrumentGlobals::actual_value>(10, "ActualValue", "Path", "Type"),
    read<&InstrumentGlobals::sampling_interval_seconds>(11, "SamplingInterval"),
    read<&InstrumentGlobals::source_type>(12, "SourceType"), read<&InstrumentGlobals::source_word>(13, "SourceWord"),
    read<&InstrumentGlobals::time_stamp>(14, "TimeStamp"), read<&InstrumentGlobals::title>(15, "Title"));

constexpr auto setpoint_members = member_table(
    call<&SetpointTable::value>(1, "Value", "Index", "TimeSegment", "ScanSegment"),
    call<&SetpointTable::write>(2, "Write", "Index", "TimeSegment", "ScanSegment", "NewValue"),
    call<&SetpointTable::lower_limit>(3, "LowerLimit", "Index"),
    call<&SetpointTable::upper_limit>(4, "UpperLimit", "Index"),
    call<&SetpointTable::resolution>(5, "Resolution", "Index"),
    call<&SetpointTable::tolerance>(6, "Tolerance", "Index"),
    call<&SetpointTable::variable_type>(7, "VariableType", "Index"),
    call<&SetpointTable::external_name>(8, "ExternalName", "Index"),
    call<&SetpointTable::internal_name>(9, "InternalName", "Index"),
    call<&SetpointTable::index_of>(10, "IndexOf", "InternalName"), call<&SetpointTable::indexes>(11, "Indexes"));

constexpr auto control_members =
    member_table(method<&next_spectrum>(1, "GetNextSpectrum", {}, result("FirstUnused"), result("RetentionTime"),
                                        result("Experiment"), result("MassData"), result("YData"), result("MetaData"),
                                        result("StartTime"), result("LastUnused")),
                 call<&InstrumentControl::GetMetaDescription>(2, "GetMetaDescription"),
                 call<&InstrumentControl::next_spectrum_metadata>(3, "NextSpectrumMetadata"),
                 call<&InstrumentControl::read_register>(4, "ReadRegister", "Path"));

constexpr auto calibration_members =
    member_table(call<&CalibrationStore::calibration>(1, "Calibration", "Polarity"),
                 method<+[](CalibrationStore& on, Index polarity, const CalibrationObject& calibration) {
                     if (!calibration)
                         raise_runtime_fault(error_number::object_not_set, "Calibration[Nothing] of Store");
                     on.store(polarity, *calibration);
                 }>(2, "Store", {}, value("Polarity"), reference("Calibration")));

constexpr auto hardware_members =
    member_table(read<&HardwareQueries::has_160cm_flight_tube>(1, "Has160cmFlightTube"),
                 call<&HardwareQueries::option_name>(2, "OptionName", "OptionCode"),
                 call<&HardwareQueries::option_present>(3, "OptionPresent", "OptionName"),
                 read<&HardwareQueries::has_positive_post_acceleration>(4, "HasPositivePostAcceleration"),
                 read<&HardwareQueries::abundance_reduction_setting>(5, "AbundanceReductionSetting"),
                 read<&HardwareQueries::model>(6, "Model"));

constexpr auto firmware_members = member_table(call<&FirmwareChannels::write>(1, "Write", "Channel", "NewValue"),
                                               call<&FirmwareChannels::read>(2, "Read", "Channel"));

constexpr auto path_members = member_table(read<&PathInformation::base_folder>(1, "BaseFolder"));

constexpr auto logbook_members =
    member_table(call<&LogbookEntry::write>(1, "Write", "Kind", "Message", "Code", "First", "Second", "Text"));

constexpr auto finder_members = member_table(
    call<&PeakFinder::set_sampling_interval_ns>(1, "SetSamplingInterval", "Interval"),
    call<&PeakFinder::set_minimum_samples>(2, "SetMinimumSamples", "Samples"),
    call<&PeakFinder::set_baseline_removal>(3, "SetBaselineRemoval", "SwitchedOn"),
    call<&PeakFinder::set_search_start_ns>(4, "SetSearchStart", "Time"),
    call<&PeakFinder::set_search_end_ns>(5, "SetSearchEnd", "Time"), call<&set_samples>(6, "SetSamples", "Counts"),
    call<&PeakFinder::run>(7, "Run", "StartTime"), read<&PeakFinder::baseline>(8, "Baseline"));

}  // namespace

std::span<const ClassDescription> layer_class_descriptions() {
    static const std::array<ClassDescription, 10> classes{{
        {type_name<InstrumentLayer>, {}, {}, {}, layer_members},
        {type_name<InstrumentGlobals>, {}, {}, {}, globals_members},
        {type_name<SetpointTable>, {}, {}, {}, setpoint_members},
        {type_name<InstrumentControl>, {}, {}, {}, control_members},
        {type_name<CalibrationStore>, {}, {}, {}, calibration_members},
        {type_name<HardwareQueries>, {}, {}, {}, hardware_members},
        {type_name<FirmwareChannels>, {}, {}, {}, firmware_members},
        {type_name<PathInformation>, {}, {}, {}, path_members},
        {type_name<LogbookEntry>, {}, {}, {}, logbook_members},
        {type_name<PeakFinder>, {}, {}, {}, finder_members},
    }};
    return classes;
}

Value Native<std::vector<MetaItem>>::to(const std::vector<MetaItem>& items) {
    std::vector<Value> cells;
    for (const MetaItem& item : items) cells.insert(cells.end(), {item.name, Native<InstrumentValue>::to(item.value)});
    return table_of(std::move(cells), 2);
}

std::vector<MetaItem> Native<std::vector<MetaItem>>::from(const Value& value) {
    const Array& cells = value.as_array();
    if (cells.rank() != 2 || cells.bounds()[1].count != 2)
        raise_runtime_fault(error_number::subscript, "not two columns");
    std::vector<MetaItem> items;
    for (std::size_t place = 0; place < cells.size(); place += 2)
        items.push_back({cells.element(place).as_text(), Native<InstrumentValue>::from(cells.element(place + 1))});
    return items;
}

std::shared_ptr<PeakFinder> keeping_samples(std::shared_ptr<PeakFinder> finder) {
    return finder ? std::make_shared<SampleKeeper>(std::move(finder)) : nullptr;
}

}  // namespace korvane::automation
