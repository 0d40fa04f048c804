#include "automation/late_bound_instrument.h"

#include "automation/native_types.h"

namespace korvane::automation {

namespace {

/// The kinds of an instrument value, whatever kind of number the object returns.
InstrumentValue item_of(const Value& value) {
    return array_from<InstrumentValue>(Array(std::vector<Value>{value})).at(0);
}

/// Error 91 naming the member that returned Nothing.
Object required_object(const Value& value, const std::string& member) {
    Object object = value.as_object();
    if (!object) raise_runtime_fault(error_number::object_not_set, member + " of the instrument layer");
    return object;
}

class Setpoints final : public SetpointTable {
public:
    explicit Setpoints(Object object) : object_(std::move(object)) {}

    InstrumentValue value(std::int32_t index, std::int32_t time_segment, std::int32_t scan_segment) override {
        return item_of(object_->call("Value", {index, time_segment, scan_segment}));
    }
    void write(std::int32_t index, std::int32_t time_segment, std::int32_t scan_segment,
               const SetpointValue& value) override {
        object_->call("Write",
                      {index, time_segment, scan_segment, std::visit([](auto typed) { return Value(typed); }, value)});
    }
    double lower_limit(std::int32_t index) override { return object_->call("LowerLimit", {index}).as_double(); }
    double upper_limit(std::int32_t index) override { return object_->call("UpperLimit", {index}).as_double(); }
    double resolution(std::int32_t index) override { return object_->call("Resolution", {index}).as_double(); }
    double tolerance(std::int32_t index) override { return object_->call("Tolerance", {index}).as_double(); }
    std::int32_t variable_type(std::int32_t index) override {
        return object_->call("VariableType", {index}).as_int32();
    }
    std::string external_name(std::int32_t index) override { return object_->call("ExternalName", {index}).as_text(); }
    std::string internal_name(std::int32_t index) override { return object_->call("InternalName", {index}).as_text(); }
    std::int32_t index_of(const std::string& name) override { return object_->call("IndexOf", {name}).as_int32(); }
    std::vector<std::int32_t> indexes() override {
        const auto all = array_from<std::int32_t>(object_->call("Indexes"));
        return {all.elements().begin(), all.elements().end()};
    }

private:
    Object object_;
};

class Control final : public InstrumentControl {
public:
    explicit Control(Object object) : object_(std::move(object)) {}

    void GetNextSpectrum(AcquiredSpectrum& spectrum) override {
        Arguments arguments{{0.0, 0.0, 0, Empty{}, Empty{}, Empty{}, 0.0, 0.0}, {}};
        object_->invoke("GetNextSpectrum", arguments);
        const std::vector<Value>& filled = arguments.positional;
        spectrum.first_unused = filled[0].as_double();
        spectrum.retention_time = filled[1].as_double();
        spectrum.experiment = filled[2].as_int32();
        spectrum.mass_data = array_from<double>(filled[3]);
        spectrum.y_data = array_from<double>(filled[4]);
        spectrum.meta_data = array_from<InstrumentValue>(filled[5]);
        spectrum.start_time_ns = filled[6].as_double();
        spectrum.last_unused = filled[7].as_double();
    }
    VariantArray<std::string> GetMetaDescription() override {
        return array_from<std::string>(object_->call("GetMetaDescription"));
    }
    std::vector<MetaItem> next_spectrum_metadata() override {
        const Value table = object_->call("NextSpectrumMetadata");
        const Array& cells = table.as_array();
        if (cells.rank() != 2 || cells.bounds()[1].count != 2)
            raise_runtime_fault(error_number::subscript,
                                "NextSpectrumMetadata of the instrument layer has not two columns");
        std::vector<MetaItem> items;
        for (std::size_t place = 0; place < cells.size(); place += 2)
            items.push_back({cells.element(place).as_text(), item_of(cells.element(place + 1))});
        return items;
    }
    double read_register(const std::string& path) override { return object_->call("ReadRegister", {path}).as_double(); }

private:
    Object object_;
};

class Calibrations final : public CalibrationStore {
public:
    explicit Calibrations(Object object) : object_(std::move(object)) {}

    CalibrationObject calibration(std::int32_t polarity) override {
        return native_from<MassTimeCalibration>(
            required_object(object_->call("Calibration", {polarity}), "Calibration"));
    }
    void store(std::int32_t polarity, const MassTimeCalibration& calibration) override {
        Object object = object_behind(calibration);
        if (!object) object = make_object(calibration.clone());
        object_->call("Store", {polarity, object});
    }

private:
    Object object_;
};

class Hardware final : public HardwareQueries {
public:
    explicit Hardware(Object object) : object_(std::move(object)) {}

    bool has_160cm_flight_tube() override { return object_->call("Has160cmFlightTube").as_boolean(); }
    std::string option_name(std::int32_t code) override { return object_->call("OptionName", {code}).as_text(); }
    bool option_present(const std::string& name) override {
        return object_->call("OptionPresent", {name}).as_boolean();
    }
    bool has_positive_post_acceleration() override { return object_->call("HasPositivePostAcceleration").as_boolean(); }
    std::int16_t abundance_reduction_setting() override {
        return object_->call("AbundanceReductionSetting").as_int16();
    }
    std::string model() override { return object_->call("Model").as_text(); }

private:
    Object object_;
};

class Firmware final : public FirmwareChannels {
public:
    explicit Firmware(Object object) : object_(std::move(object)) {}

    std::int32_t write(std::int32_t channel, float value) override {
        return object_->call("Write", {channel, value}).as_int32();
    }
    double read(std::int32_t channel) override { return object_->call("Read", {channel}).as_double(); }

private:
    Object object_;
};

/// A part of the view, asked for at its first use: what a procedure does not touch need not exist.
template <class Part>
class LatePart {
public:
    Part& get(const Object& owner, const char* member) {
        if (!part_) part_ = std::make_unique<Part>(required_object(owner->call(member), member));
        return *part_;
    }

private:
    std::unique_ptr<Part> part_;
};

class Globals final : public InstrumentGlobals {
public:
    explicit Globals(Object object) : object_(std::move(object)) {}

    void initialise() override { object_->call("Initialise"); }
    void refresh() override { object_->call("Refresh"); }
    SetpointTable& setpoints() override { return setpoints_.get(object_, "Setpoints"); }
    CalibrationStore& calibrations() override { return calibrations_.get(object_, "Calibrations"); }
    HardwareQueries& hardware() override { return hardware_.get(object_, "Hardware"); }
    FirmwareChannels& firmware() override { return firmware_.get(object_, "Firmware"); }
    InstrumentControl* control() override {
        if (!control_)
            if (Object control = object_->call("Control").as_object())
                control_ = std::make_unique<Control>(std::move(control));
        return control_.get();
    }
    InstrumentValue dictionary_item(const std::string& name) override {
        return item_of(object_->call("DictionaryItem", {name}));
    }
    std::string parameter_name(std::int32_t index) override {
        return object_->call("ParameterName", {index}).as_text();
    }
    InstrumentValue actual_value(const std::string& path, const std::string& type) override {
        return item_of(object_->call("ActualValue", {path, type}));
    }
    double sampling_interval_seconds() override { return object_->call("SamplingInterval").as_double(); }
    std::string source_type() override { return object_->call("SourceType").as_text(); }
    std::string source_word() override { return object_->call("SourceWord").as_text(); }
    std::string time_stamp() override { return object_->call("TimeStamp").as_text(); }
    std::string title() override { return object_->call("Title").as_text(); }

private:
    Object object_;
    LatePart<Setpoints> setpoints_;
    LatePart<Calibrations> calibrations_;
    LatePart<Hardware> hardware_;
    LatePart<Firmware> firmware_;
    std::unique_ptr<Control> control_;
};

class Paths final : public PathInformation {
public:
    explicit Paths(Object object) : object_(std::move(object)) {}
    std::string base_folder() override { return object_->call("BaseFolder").as_text(); }

private:
    Object object_;
};

class Logbook final : public LogbookEntry {
public:
    explicit Logbook(Object object) : object_(std::move(object)) {}
    void write(std::int32_t kind, const std::string& message, std::int32_t code, std::int32_t first,
               std::int32_t second, const std::string& text) override {
        object_->call("Write", {kind, message, code, first, second, text});
    }

private:
    Object object_;
};

class Finder final : public PeakFinder {
public:
    explicit Finder(Object object) : object_(std::move(object)) {}

    void set_sampling_interval_ns(double interval_ns) override { object_->call("SetSamplingInterval", {interval_ns}); }
    void set_minimum_samples(std::int32_t samples) override { object_->call("SetMinimumSamples", {samples}); }
    void set_baseline_removal(std::int32_t on) override { object_->call("SetBaselineRemoval", {on}); }
    void set_search_start_ns(double time_ns) override { object_->call("SetSearchStart", {time_ns}); }
    void set_search_end_ns(double time_ns) override { object_->call("SetSearchEnd", {time_ns}); }
    void set_samples(std::span<const std::int32_t> counts) override {
        object_->call("SetSamples", {Array(std::vector<std::int32_t>(counts.begin(), counts.end()))});
    }
    PeakListObject run(double start_time_ns) override {
        return native_from<PeakList>(object_->call("Run", {start_time_ns}).as_object());
    }
    double baseline() const override { return object_->call("Baseline").as_double(); }

private:
    Object object_;
};

class Layer final : public InstrumentLayer {
public:
    explicit Layer(std::function<Object()> object) : object_(std::move(object)) {}

    std::unique_ptr<InstrumentGlobals> create_globals() override { return make<Globals>("CreateGlobals"); }
    std::unique_ptr<PathInformation> create_path_information() override { return make<Paths>("CreatePathInformation"); }
    std::unique_ptr<LogbookEntry> create_logbook_entry() override { return make<Logbook>("CreateLogbookEntry"); }
    std::unique_ptr<PeakFinder> create_peak_finder() override { return make<Finder>("CreatePeakFinder"); }

private:
    template <class Adapter>
    std::unique_ptr<Adapter> make(const char* member) {
        return std::make_unique<Adapter>(required_object(object_()->call(member), member));
    }

    std::function<Object()> object_;
};

}  // namespace

std::shared_ptr<InstrumentLayer> make_late_bound_layer(std::function<Object()> layer) {
    return std::make_shared<Layer>(std::move(layer));
}

}  // namespace korvane::automation
