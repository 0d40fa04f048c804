// A layer that consists of automation objects.
#include "automation/native_types.h"
#include "frame/routine.h"

namespace korvane::automation {

namespace {

using Text = const std::string&;
using Index = std::int32_t;
using Doubles = std::vector<double>;

/// Runs a call of an interface's member; errors name it, "SetpointTable.Value", and keep number, source and help.
template <class Interface, class Body>
auto naming_errors(std::string_view member, Body body) {
    try {
        return body();
    } catch (...) {
        const Error error = current_error();
        throw error.described(error.description() + (error.description().empty() ? "(" : " (") +
                              std::string(type_name<Interface>) + "." + std::string(member) + ")");
    }
}

/// Error 91 for Nothing.
template <class T>
T required(T object) {
    if (!object) raise_runtime_fault(error_number::object_not_set);
    return object;
}

/// What the object raises, or returns that is not what was asked for, is an error that names the call.
template <class Interface>
class LateBoundAdapter : public Interface, public Adapter {
public:
    explicit LateBoundAdapter(Object object) : Adapter(std::move(object)) {}

protected:
    /// What a member gave, in whatever native type it is wanted.
    struct Answer {
        template <class T>
        operator T() const {  // NOLINT: meant to convert
            return naming_errors<Interface>(member, [&] { return Native<T>::from(value); });
        }
        std::string_view member;
        Value value;
    };

    /// Calls a member with native arguments.
    template <class... A>
    Answer ask(std::string_view member, const A&... arguments) const {
        return {member,
                naming_errors<Interface>(member, [&] { return object->call(member, {Native<A>::to(arguments)...}); })};
    }
    /// The same for an object, which must not be Nothing.
    template <class T, class... A>
    T ask_for_object(std::string_view member, const A&... arguments) const {
        return naming_errors<Interface>(
            member, [&] { return required(Native<T>::from(object->call(member, {Native<A>::to(arguments)...}))); });
    }
};

Object object_of(const MassTimeCalibration& calibration) {
    const auto* const adapter = dynamic_cast<const Adapter*>(&calibration);
    return adapter ? adapter->object : make_object(calibration.clone());
}

struct LateBoundCalibration final : LateBoundAdapter<MassTimeCalibration> {
    using LateBoundAdapter::LateBoundAdapter;
    CalibrationCoefficients coefficients() const override { return ask("Coefficients"); }
    void set_coefficients(const CalibrationCoefficients& terms) override {
        ask("SetCoefficients", Value(array_of(terms)));
    }
    CalibrationSettings settings() const override { return ask("Settings"); }
    void set_settings(const CalibrationSettings& chosen) override { ask("SetSettings", Value(array_of(chosen))); }
    VariantArray<Index> use_flags() const override { return ask("UseFlags"); }
    double mass_from_time(double time_ns) const override { return ask("MassFromTime", time_ns); }
    double time_from_mass(double mass) const override { return ask("TimeFromMass", mass); }
    Doubles masses_from_times(const Doubles& times_ns) const override { return ask("MassesFromTimes", times_ns); }
    Doubles times_from_masses(const Doubles& masses) const override { return ask("TimesFromMasses", masses); }
    std::shared_ptr<MassTimeCalibration> clone() const override { return ask_for_object<CalibrationObject>("Clone"); }
};

struct LateBoundPeakList final : LateBoundAdapter<PeakList> {
    using LateBoundAdapter::LateBoundAdapter;
    Index count() const override { return ask("Count"); }
    void order(Index position, Index direction) override { ask("Order", position, direction); }
    PeakInfo GetPeakAttributeInfo(Index index, bool current) const override {
        return ask("GetPeakAttributeInfo", index, current);
    }
    void convert(const MassTimeCalibration& by, Index mode) override { ask("Convert", object_of(by), mode); }
};

/// An adapter for an object that has the member by which its kind is known.
template <class Bound, class Interface>
std::shared_ptr<Interface> adapted(const Object& object, const char* member) {
    try {
        object->dispid_of(member);
    } catch (const Error& error) {
        if (error.number() != no_such_member) throw;
        raise_runtime_fault(error_number::type_mismatch, "an object ", object->class_name(), " is no ",
                            type_name<Interface>, ": it has no ", member);
    }
    return std::make_shared<Bound>(object);
}

struct LateBoundSetpoints final : LateBoundAdapter<SetpointTable> {
    using LateBoundAdapter::LateBoundAdapter;
    InstrumentValue value(Index index, Index time, Index scan) override { return ask("Value", index, time, scan); }
    void write(Index index, Index time, Index scan, const SetpointValue& value) override {
        ask("Write", index, time, scan, value);
    }
    double lower_limit(Index index) override { return ask("LowerLimit", index); }
    double upper_limit(Index index) override { return ask("UpperLimit", index); }
    double resolution(Index index) override { return ask("Resolution", index); }
    double tolerance(Index index) override { return ask("Tolerance", index); }
    Index variable_type(Index index) override { return ask("VariableType", index); }
    std::string external_name(Index index) override { return ask("ExternalName", index); }
    std::string internal_name(Index index) override { return ask("InternalName", index); }
    Index index_of(Text name) override { return ask("IndexOf", name); }
    std::vector<Index> indexes() override { return ask("Indexes"); }
};

struct LateBoundControl final : LateBoundAdapter<InstrumentControl> {
    using LateBoundAdapter::LateBoundAdapter;
    void GetNextSpectrum(AcquiredSpectrum& spectrum) override {
        naming_errors<InstrumentControl>("GetNextSpectrum", [&] {
            Arguments arguments{{0.0, 0.0, 0, Empty{}, Empty{}, Empty{}, 0.0, 0.0}, {}};
            object->invoke("GetNextSpectrum", arguments);
            auto filled = arguments.positional.begin();
            const auto take = [&filled]<class... T>(T&... into) { ((into = Native<T>::from(*filled++)), ...); };
            take(spectrum.first_unused, spectrum.retention_time, spectrum.experiment, spectrum.mass_data,
                 spectrum.y_data, spectrum.meta_data, spectrum.start_time_ns, spectrum.last_unused);
        });
    }
    VariantArray<std::string> GetMetaDescription() override { return ask("GetMetaDescription"); }
    std::vector<MetaItem> next_spectrum_metadata() override { return ask("NextSpectrumMetadata"); }
    double read_register(Text path) override { return ask("ReadRegister", path); }
};

struct LateBoundCalibrations final : LateBoundAdapter<CalibrationStore> {
    using LateBoundAdapter::LateBoundAdapter;
    CalibrationObject calibration(Index polarity) override {
        return ask_for_object<CalibrationObject>("Calibration", polarity);
    }
    void store(Index polarity, const MassTimeCalibration& given) override { ask("Store", polarity, object_of(given)); }
};

struct LateBoundHardware final : LateBoundAdapter<HardwareQueries> {
    using LateBoundAdapter::LateBoundAdapter;
    bool has_160cm_flight_tube() override { return ask("Has160cmFlightTube"); }
    std::string option_name(Index code) override { return ask("OptionName", code); }
    bool option_present(Text name) override { return ask("OptionPresent", name); }
    bool has_positive_post_acceleration() override { return ask("HasPositivePostAcceleration"); }
    std::int16_t abundance_reduction_setting() override { return ask("AbundanceReductionSetting"); }
    std::string model() override { return ask("Model"); }
};

struct LateBoundFirmware final : LateBoundAdapter<FirmwareChannels> {
    using LateBoundAdapter::LateBoundAdapter;
    Index write(Index channel, float value) override { return ask("Write", channel, value); }
    double read(Index channel) override { return ask("Read", channel); }
};

struct LateBoundGlobals final : LateBoundAdapter<InstrumentGlobals> {
    using LateBoundAdapter::LateBoundAdapter;
    void initialise() override { ask("Initialise"); }
    void refresh() override { ask("Refresh"); }
    SetpointTable& setpoints() override { return part(setpoints_, "Setpoints"); }
    CalibrationStore& calibrations() override { return part(calibrations_, "Calibrations"); }
    HardwareQueries& hardware() override { return part(hardware_, "Hardware"); }
    FirmwareChannels& firmware() override { return part(firmware_, "Firmware"); }
    InstrumentControl* control() override {
        if (!control_)
            if (Object control = ask("Control")) control_ = std::make_unique<LateBoundControl>(control);
        return control_.get();
    }
    InstrumentValue dictionary_item(Text name) override { return ask("DictionaryItem", name); }
    std::string parameter_name(Index index) override { return ask("ParameterName", index); }
    InstrumentValue actual_value(Text path, Text type) override { return ask("ActualValue", path, type); }
    double sampling_interval_seconds() override { return ask("SamplingInterval"); }
    std::string source_type() override { return ask("SourceType"); }
    std::string source_word() override { return ask("SourceWord"); }
    std::string time_stamp() override { return ask("TimeStamp"); }
    std::string title() override { return ask("Title"); }

private:
    /// A part of the view, asked for at its first use: what a procedure does not touch need not exist.
    template <class Part>
    Part& part(std::unique_ptr<Part>& known, const char* member) {
        if (!known) known = std::make_unique<Part>(ask_for_object<Object>(member));
        return *known;
    }

    std::unique_ptr<LateBoundSetpoints> setpoints_;
    std::unique_ptr<LateBoundCalibrations> calibrations_;
    std::unique_ptr<LateBoundHardware> hardware_;
    std::unique_ptr<LateBoundFirmware> firmware_;
    std::unique_ptr<LateBoundControl> control_;
};

struct LateBoundPaths final : LateBoundAdapter<PathInformation> {
    using LateBoundAdapter::LateBoundAdapter;
    std::string base_folder() override { return ask("BaseFolder"); }
};

struct LateBoundLogbook final : LateBoundAdapter<LogbookEntry> {
    using LateBoundAdapter::LateBoundAdapter;
    void write(Index kind, Text message, Index code, Index first, Index second, Text text) override {
        ask("Write", kind, message, code, first, second, text);
    }
};

struct LateBoundFinder final : LateBoundAdapter<PeakFinder> {
    using LateBoundAdapter::LateBoundAdapter;
    void set_sampling_interval_ns(double interval_ns) override { ask("SetSamplingInterval", interval_ns); }
    void set_minimum_samples(Index samples) override { ask("SetMinimumSamples", samples); }
    void set_baseline_removal(Index on) override { ask("SetBaselineRemoval", on); }
    void set_search_start_ns(double time_ns) override { ask("SetSearchStart", time_ns); }
    void set_search_end_ns(double time_ns) override { ask("SetSearchEnd", time_ns); }
    void set_samples(std::span<const Index> counts) override {
        ask("SetSamples", std::vector(counts.begin(), counts.end()));
    }
    PeakListObject run(double start_time_ns) override { return ask("Run", start_time_ns); }
    double baseline() const override { return ask("Baseline"); }
};

class LateBoundLayer final : public InstrumentLayer {
public:
    explicit LateBoundLayer(std::function<Object()> object) : object_(std::move(object)) {}

    std::unique_ptr<InstrumentGlobals> create_globals() override { return make<LateBoundGlobals>("CreateGlobals"); }
    std::unique_ptr<PathInformation> create_path_information() override {
        return make<LateBoundPaths>("CreatePathInformation");
    }
    std::unique_ptr<LogbookEntry> create_logbook_entry() override {
        return make<LateBoundLogbook>("CreateLogbookEntry");
    }
    std::unique_ptr<PeakFinder> create_peak_finder() override { return make<LateBoundFinder>("CreatePeakFinder"); }

private:
    template <class Part>
    std::unique_ptr<Part> make(const char* member) {
        const Object layer = object_();
        return naming_errors<InstrumentLayer>(
            member, [&] { return std::make_unique<Part>(required(layer->call(member).as_object())); });
    }

    std::function<Object()> object_;
};

}  // namespace

std::shared_ptr<void> adapt(const Object& object, std::string_view class_name) {
    if (class_name == type_name<MassTimeCalibration>)
        return adapted<LateBoundCalibration, MassTimeCalibration>(object, "MassFromTime");
    if (class_name == type_name<PeakList>) return adapted<LateBoundPeakList, PeakList>(object, "GetPeakAttributeInfo");
    return nullptr;
}

std::shared_ptr<InstrumentLayer> make_late_bound_layer(std::function<Object()> layer) {
    return std::make_shared<LateBoundLayer>(std::move(layer));
}

}  // namespace korvane::automation
