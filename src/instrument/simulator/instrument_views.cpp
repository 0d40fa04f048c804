#include "instrument/simulator/instrument_views.h"

#include <array>
#include <cstdio>

#include "korvane/error.h"

namespace korvane::simulation {

namespace {

using Instrument = std::shared_ptr<SimulatedInstrument>;

class SetpointView final : public SetpointTable {
public:
    explicit SetpointView(Instrument instrument) : instrument_(std::move(instrument)) {}

    InstrumentValue value(std::int32_t index, std::int32_t time_segment, std::int32_t scan_segment) override {
        return instrument_->setpoint_value(index, time_segment, scan_segment);
    }
    void write(std::int32_t index, std::int32_t time_segment, std::int32_t scan_segment,
               const SetpointValue& new_value) override {
        instrument_->write_setpoint(index, time_segment, scan_segment, new_value);
    }
    double lower_limit(std::int32_t index) override { return definition(index).lower_limit; }
    double upper_limit(std::int32_t index) override { return definition(index).upper_limit; }
    double resolution(std::int32_t index) override { return definition(index).resolution; }
    double tolerance(std::int32_t index) override { return definition(index).tolerance; }
    std::int32_t variable_type(std::int32_t index) override {
        return static_cast<std::int32_t>(definition(index).type);
    }
    std::string external_name(std::int32_t index) override { return std::string(definition(index).external_name); }
    std::string internal_name(std::int32_t index) override { return std::string(definition(index).internal_name); }
    std::int32_t index_of(const std::string& name) override {
        if (const SetpointDefinition* found = find_setpoint(name)) return found->index;
        raise_runtime_fault(error_number::invalid_call, "setpoint[" + name + "]");
    }
    std::vector<std::int32_t> indexes() override {
        std::vector<std::int32_t> all;
        for (const SetpointDefinition& each : setpoint_definitions()) all.push_back(each.index);
        return all;
    }

private:
    const SetpointDefinition& definition(std::int32_t index) const { return instrument_->setpoint_definition(index); }

    Instrument instrument_;
};

class CalibrationView final : public CalibrationStore {
public:
    explicit CalibrationView(Instrument instrument) : instrument_(std::move(instrument)) {}

    CalibrationObject calibration(std::int32_t polarity) override { return instrument_->calibration(polarity); }
    void store(std::int32_t polarity, const MassTimeCalibration& calibration) override {
        instrument_->store_calibration(polarity, calibration);
    }

private:
    Instrument instrument_;
};

class HardwareView final : public HardwareQueries {
public:
    explicit HardwareView(Instrument instrument) : instrument_(std::move(instrument)) {}

    bool has_160cm_flight_tube() override { return setup().flight_tube_160cm; }
    std::string option_name(std::int32_t option_code) override {
        if (option_code == 4) return digitizer_option;
        if (option_code == 13) return dual_source_option;
        raise_runtime_fault(error_number::invalid_call, "hardware option code[" + std::to_string(option_code) + "]");
    }
    bool option_present(const std::string& option_name) override {
        if (option_name == digitizer_option) return setup().digitizer_4ghz;
        if (option_name == dual_source_option) return setup().dual_source;
        raise_runtime_fault(error_number::invalid_call, "hardware option[" + option_name + "]");
    }
    bool has_positive_post_acceleration() override { return setup().positive_post_acceleration; }
    std::int16_t abundance_reduction_setting() override {
        return static_cast<std::int16_t>(setup().abundance_reduction);
    }
    std::string model() override { return setup().model; }

private:
    static constexpr const char* digitizer_option = "4GHz Digitizer";
    static constexpr const char* dual_source_option = "Dual SGF";

    const InstrumentSetup& setup() const { return instrument_->scene().instrument; }

    Instrument instrument_;
};

class FirmwareView final : public FirmwareChannels {
public:
    explicit FirmwareView(Instrument instrument) : instrument_(std::move(instrument)) {}

    std::int32_t write(std::int32_t channel, float value) override {
        instrument_->write_channel(channel, value);
        return 0;
    }
    double read(std::int32_t channel) override { return instrument_->read_channel(channel); }

private:
    Instrument instrument_;
};

class ControlView final : public InstrumentControl {
public:
    explicit ControlView(Instrument instrument) : instrument_(std::move(instrument)) {}

    void GetNextSpectrum(AcquiredSpectrum& spectrum) override { instrument_->acquire(spectrum); }
    VariantArray<std::string> GetMetaDescription() override { return instrument_->metadata_description(); }
    std::vector<MetaItem> next_spectrum_metadata() override { return instrument_->acquire_metadata(); }
    double read_register(const std::string& path) override { return instrument_->read_register(path); }

private:
    Instrument instrument_;
};

// By source type code.
constexpr std::array<const char*, 12> source_names{"ESI",       "HPLC-Tile", "nanoESI",      "MALDI",
                                                   "Multimode", "Dual ESI",  "Dual nanoESI", "APCI",
                                                   "APPI",      "SGF ESI",   "GC-APCI",      "Dual SGF ESI"};

constexpr std::int32_t experiment_parameter = 23;

class GlobalsView final : public InstrumentGlobals {
public:
    explicit GlobalsView(const Instrument& instrument)
        : instrument_(instrument),
          setpoints_(instrument),
          calibrations_(instrument),
          hardware_(instrument),
          firmware_(instrument),
          control_(instrument) {}

    // The instrument is simulated in this process: there is nothing to connect to or to fetch.
    void initialise() override {}
    void refresh() override {}
    SetpointTable& setpoints() override { return setpoints_; }
    CalibrationStore& calibrations() override { return calibrations_; }
    HardwareQueries& hardware() override { return hardware_; }
    FirmwareChannels& firmware() override { return firmware_; }
    InstrumentControl* control() override { return &control_; }
    InstrumentValue dictionary_item(const std::string& name) override { return instrument_->dictionary_item(name); }
    std::string parameter_name(std::int32_t index) override {
        if (index == experiment_parameter) return instrument_->metadata_description().front();
        raise_runtime_fault(error_number::invalid_call, "parameter[" + std::to_string(index) + "]");
    }
    InstrumentValue actual_value(const std::string& path, const std::string&) override {
        return instrument_->read_register(path);
    }
    double sampling_interval_seconds() override { return instrument_->sampling_interval_seconds(); }
    std::string source_type() override { return source_name(); }
    std::string source_word() override { return source_name(); }
    std::string time_stamp() override {
        const LocalTime now = instrument_->clock().now();
        std::array<char, 32> text{};
        std::snprintf(text.data(), text.size(), "%02d:%02d:%02d", now.hour, now.minute, now.second);
        return text.data();
    }
    std::string title() override { return instrument_->scene().instrument.title; }

private:
    std::string source_name() const {
        return source_names.at(static_cast<std::size_t>(instrument_->setpoint_value(setpoint::source_type)));
    }

    Instrument instrument_;
    SetpointView setpoints_;
    CalibrationView calibrations_;
    HardwareView hardware_;
    FirmwareView firmware_;
    ControlView control_;
};

}  // namespace

std::unique_ptr<InstrumentGlobals> make_globals_view(std::shared_ptr<SimulatedInstrument> instrument) {
    return std::make_unique<GlobalsView>(instrument);
}

}  // namespace korvane::simulation
