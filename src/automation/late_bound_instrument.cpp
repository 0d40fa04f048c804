#include "automation/late_bound_instrument.h"

#include "automation/late_bound_adapter.h"

namespace korvane::automation {

namespace {

class LateBoundSetpoints final : public LateBoundAdapter<SetpointTable> {
public:
    using LateBoundAdapter::LateBoundAdapter;

    InstrumentValue value(std::int32_t index, std::int32_t time_segment, std::int32_t scan_segment) override {
        return ask<InstrumentValue>("Value", index, time_segment, scan_segment);
    }
    void write(std::int32_t index, std::int32_t time_segment, std::int32_t scan_segment,
               const SetpointValue& value) override {
        const Value typed = std::visit([](auto number) { return Value(number); }, value);
        ask<void>("Write", index, time_segment, scan_segment, typed);
    }
    double lower_limit(std::int32_t index) override { return ask<double>("LowerLimit", index); }
    double upper_limit(std::int32_t index) override { return ask<double>("UpperLimit", index); }
    double resolution(std::int32_t index) override { return ask<double>("Resolution", index); }
    double tolerance(std::int32_t index) override { return ask<double>("Tolerance", index); }
    std::int32_t variable_type(std::int32_t index) override { return ask<std::int32_t>("VariableType", index); }
    std::string external_name(std::int32_t index) override { return ask<std::string>("ExternalName", index); }
    std::string internal_name(std::int32_t index) override { return ask<std::string>("InternalName", index); }
    std::int32_t index_of(const std::string& name) override { return ask<std::int32_t>("IndexOf", name); }
    std::vector<std::int32_t> indexes() override { return ask_for_list<std::int32_t>("Indexes"); }
};

class LateBoundControl final : public LateBoundAdapter<InstrumentControl> {
public:
    using LateBoundAdapter::LateBoundAdapter;

    void GetNextSpectrum(AcquiredSpectrum& spectrum) override {
        naming("GetNextSpectrum", [&] {
            Arguments arguments{{0.0, 0.0, 0, Empty{}, Empty{}, Empty{}, 0.0, 0.0}, {}};
            object()->invoke("GetNextSpectrum", arguments);
            auto filled = arguments.positional.begin();
            const auto take = [&filled]<class... T>(T&... into) { ((into = Native<T>::from(*filled++)), ...); };
            take(spectrum.first_unused, spectrum.retention_time, spectrum.experiment, spectrum.mass_data,
                 spectrum.y_data, spectrum.meta_data, spectrum.start_time_ns, spectrum.last_unused);
        });
    }
    VariantArray<std::string> GetMetaDescription() override {
        return ask<VariantArray<std::string>>("GetMetaDescription");
    }
    std::vector<MetaItem> next_spectrum_metadata() override {
        return naming("NextSpectrumMetadata", [&] {
            const Value table = object()->call("NextSpectrumMetadata");
            const Array& cells = table.as_array();
            if (cells.rank() != 2 || cells.bounds()[1].count != 2)
                raise_runtime_fault(error_number::subscript, "not two columns");
            std::vector<MetaItem> items;
            for (std::size_t place = 0; place < cells.size(); place += 2)
                items.push_back(
                    {cells.element(place).as_text(), Native<InstrumentValue>::from(cells.element(place + 1))});
            return items;
        });
    }
    double read_register(const std::string& path) override { return ask<double>("ReadRegister", path); }
};

class LateBoundCalibrations final : public LateBoundAdapter<CalibrationStore> {
public:
    using LateBoundAdapter::LateBoundAdapter;

    CalibrationObject calibration(std::int32_t polarity) override {
        return ask_for_object<CalibrationObject>("Calibration", polarity);
    }
    void store(std::int32_t polarity, const MassTimeCalibration& calibration) override {
        ask<void>("Store", polarity, object_of(calibration));
    }
};

class LateBoundHardware final : public LateBoundAdapter<HardwareQueries> {
public:
    using LateBoundAdapter::LateBoundAdapter;

    bool has_160cm_flight_tube() override { return ask<bool>("Has160cmFlightTube"); }
    std::string option_name(std::int32_t code) override { return ask<std::string>("OptionName", code); }
    bool option_present(const std::string& name) override { return ask<bool>("OptionPresent", name); }
    bool has_positive_post_acceleration() override { return ask<bool>("HasPositivePostAcceleration"); }
    std::int16_t abundance_reduction_setting() override {
        return naming("AbundanceReductionSetting",
                      [&] { return object()->call("AbundanceReductionSetting").as_int16(); });
    }
    std::string model() override { return ask<std::string>("Model"); }
};

class LateBoundFirmware final : public LateBoundAdapter<FirmwareChannels> {
public:
    using LateBoundAdapter::LateBoundAdapter;

    std::int32_t write(std::int32_t channel, float value) override {
        return ask<std::int32_t>("Write", channel, value);
    }
    double read(std::int32_t channel) override { return ask<double>("Read", channel); }
};

class LateBoundGlobals final : public LateBoundAdapter<InstrumentGlobals> {
public:
    using LateBoundAdapter::LateBoundAdapter;

    void initialise() override { ask<void>("Initialise"); }
    void refresh() override { ask<void>("Refresh"); }
    SetpointTable& setpoints() override { return part(setpoints_, "Setpoints"); }
    CalibrationStore& calibrations() override { return part(calibrations_, "Calibrations"); }
    HardwareQueries& hardware() override { return part(hardware_, "Hardware"); }
    FirmwareChannels& firmware() override { return part(firmware_, "Firmware"); }
    InstrumentControl* control() override {
        if (!control_)
            if (Object control = ask<Object>("Control")) control_ = std::make_unique<LateBoundControl>(control);
        return control_.get();
    }
    InstrumentValue dictionary_item(const std::string& name) override {
        return ask<InstrumentValue>("DictionaryItem", name);
    }
    std::string parameter_name(std::int32_t index) override { return ask<std::string>("ParameterName", index); }
    InstrumentValue actual_value(const std::string& path, const std::string& type) override {
        return ask<InstrumentValue>("ActualValue", path, type);
    }
    double sampling_interval_seconds() override { return ask<double>("SamplingInterval"); }
    std::string source_type() override { return ask<std::string>("SourceType"); }
    std::string source_word() override { return ask<std::string>("SourceWord"); }
    std::string time_stamp() override { return ask<std::string>("TimeStamp"); }
    std::string title() override { return ask<std::string>("Title"); }

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

class LateBoundPaths final : public LateBoundAdapter<PathInformation> {
public:
    using LateBoundAdapter::LateBoundAdapter;
    std::string base_folder() override { return ask<std::string>("BaseFolder"); }
};

class LateBoundLogbook final : public LateBoundAdapter<LogbookEntry> {
public:
    using LateBoundAdapter::LateBoundAdapter;
    void write(std::int32_t kind, const std::string& message, std::int32_t code, std::int32_t first,
               std::int32_t second, const std::string& text) override {
        ask<void>("Write", kind, message, code, first, second, text);
    }
};

class LateBoundFinder final : public LateBoundAdapter<PeakFinder> {
public:
    using LateBoundAdapter::LateBoundAdapter;

    void set_sampling_interval_ns(double interval_ns) override { ask<void>("SetSamplingInterval", interval_ns); }
    void set_minimum_samples(std::int32_t samples) override { ask<void>("SetMinimumSamples", samples); }
    void set_baseline_removal(std::int32_t on) override { ask<void>("SetBaselineRemoval", on); }
    void set_search_start_ns(double time_ns) override { ask<void>("SetSearchStart", time_ns); }
    void set_search_end_ns(double time_ns) override { ask<void>("SetSearchEnd", time_ns); }
    void set_samples(std::span<const std::int32_t> counts) override {
        ask<void>("SetSamples", Value(Array(std::vector<std::int32_t>(counts.begin(), counts.end()))));
    }
    PeakListObject run(double start_time_ns) override { return ask<PeakListObject>("Run", start_time_ns); }
    double baseline() const override { return ask<double>("Baseline"); }
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
    template <class Adapter>
    std::unique_ptr<Adapter> make(const char* member) {
        const Object layer = object_();
        return naming_errors<InstrumentLayer>(
            member, [&] { return std::make_unique<Adapter>(required(layer->call(member).as_object())); });
    }

    std::function<Object()> object_;
};

}  // namespace

std::shared_ptr<InstrumentLayer> make_late_bound_layer(std::function<Object()> layer) {
    return std::make_shared<LateBoundLayer>(std::move(layer));
}

}  // namespace korvane::automation
