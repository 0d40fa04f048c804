#include "support/scripted_instrument.h"

#include "instrument/peakfinder/measured_peak_list.h"
#include "platform/text.h"

namespace korvane {

void ScriptedState::call() {
    ++calls;
    if (on_call) on_call(calls);
    if (fault_at && (calls == *fault_at || (fault_stays && calls > *fault_at))) throw fault;
}

ScriptedSetpoint& ScriptedState::setpoint(std::int32_t index) {
    const auto known = setpoints.find(index);
    if (known == setpoints.end()) raise_runtime_fault(error_number::subscript, "setpoint " + std::to_string(index));
    return known->second;
}

namespace {

using State = std::shared_ptr<ScriptedState>;

/// The instrument and all its views.
class ScriptedGlobals final : public InstrumentGlobals,
                              public PathInformation,
                              public LogbookEntry,
                              SetpointTable,
                              InstrumentControl,
                              CalibrationStore,
                              HardwareQueries,
                              FirmwareChannels {
public:
    explicit ScriptedGlobals(State state) : state_(std::move(state)) {}

    void initialise() override { state_->call(); }
    void refresh() override { state_->call(); }
    SetpointTable& setpoints() override { return *this; }
    CalibrationStore& calibrations() override { return *this; }
    HardwareQueries& hardware() override { return *this; }
    FirmwareChannels& firmware() override { return *this; }
    InstrumentControl* control() override { return state_->has_control ? this : nullptr; }
    InstrumentValue dictionary_item(const std::string& name) override {
        const auto& items = called().dictionary;
        const auto known = items.find(name);
        if (known == items.end()) raise_runtime_fault(error_number::invalid_call, name);
        return known->second;
    }
    std::string parameter_name(std::int32_t index) override {
        state_->call();
        return index == 23 ? "Experiment" : "parameter " + std::to_string(index);
    }
    InstrumentValue actual_value(const std::string& path, const std::string&) override {
        return called().registers.at(path);
    }
    double sampling_interval_seconds() override { return called().sampling_interval_seconds; }
    std::string source_type() override { return state_->source_type; }
    std::string source_word() override { return state_->source_word; }
    std::string time_stamp() override { return state_->time_stamp; }
    std::string title() override { return state_->title; }
    std::string base_folder() override { return state_->base_folder; }
    void write(std::int32_t kind, const std::string& message, std::int32_t code, std::int32_t first,
               std::int32_t second, const std::string& text) override {
        called().logbook.push_back(text_of(kind, "|", message, "|", code, "|", first, "|", second, "|", text));
    }

private:
    ScriptedState& called() {
        state_->call();
        return *state_;
    }
    ScriptedSetpoint& called(std::int32_t index) { return called().setpoint(index); }
    void note_segments(std::int32_t time_segment, std::int32_t scan_segment) {
        state_->time_segment = time_segment;
        state_->scan_segment = scan_segment;
    }
    void note_spectrum() {
        called().spectra++;
        state_->journal.push_back("spectrum " + std::to_string(state_->spectra));
    }

    InstrumentValue value(std::int32_t index, std::int32_t time_segment, std::int32_t scan_segment) override {
        note_segments(time_segment, scan_segment);
        return called(index).value;
    }
    void write(std::int32_t index, std::int32_t time_segment, std::int32_t scan_segment,
               const SetpointValue& value) override {
        note_segments(time_segment, scan_segment);
        static const char* const types[] = {"double", "int32", "int16"};
        const double number = std::visit([](auto typed) { return static_cast<double>(typed); }, value);
        called(index).value = number;
        state_->journal.push_back(text_of("write ", index, " = ", number, " (", types[value.index()], ")"));
        if (state_->on_write) state_->on_write(index, number);
    }
    double lower_limit(std::int32_t index) override { return called(index).lower; }
    double upper_limit(std::int32_t index) override { return called(index).upper; }
    double resolution(std::int32_t index) override { return called(index).resolution; }
    double tolerance(std::int32_t index) override { return called(index).tolerance; }
    std::int32_t variable_type(std::int32_t index) override { return called(index).type; }
    std::string external_name(std::int32_t index) override { return called(index).name; }
    std::string internal_name(std::int32_t index) override { return called(index).name; }
    std::int32_t index_of(const std::string& internal_name) override {
        for (const auto& [index, setpoint] : called().setpoints)
            if (setpoint.name == internal_name) return index;
        raise_runtime_fault(error_number::invalid_call, internal_name);
    }
    std::vector<std::int32_t> indexes() override {
        std::vector<std::int32_t> all;
        for (const auto& [index, setpoint] : state_->setpoints) all.push_back(index);
        return all;
    }

    void GetNextSpectrum(AcquiredSpectrum& spectrum) override {
        note_spectrum();
        if (state_->acquire) state_->acquire(spectrum, state_->spectra);
    }
    VariantArray<std::string> GetMetaDescription() override { return called().meta_description; }
    std::vector<MetaItem> next_spectrum_metadata() override {
        note_spectrum();
        if (state_->metadata_items) return state_->metadata_items();
        std::vector<MetaItem> items;
        for (const auto& [index, setpoint] : state_->setpoints) items.push_back({setpoint.name, setpoint.value});
        return items;
    }
    double read_register(const std::string& path) override { return to_double(called().registers.at(path)); }

    CalibrationObject calibration(std::int32_t polarity) override { return called().calibrations[polarity]; }
    void store(std::int32_t polarity, const MassTimeCalibration& calibration) override {
        called().journal.push_back("store calibration " + std::to_string(polarity));
        state_->calibrations[polarity] = calibration.clone();
    }

    bool has_160cm_flight_tube() override { return called().flight_tube_160cm; }
    std::string option_name(std::int32_t option_code) override {
        const auto& options = called().options;
        const auto known = options.find(option_code);
        return known == options.end() ? "absent " + std::to_string(option_code) : known->second;
    }
    bool option_present(const std::string& option_name) override {
        return std::ranges::any_of(called().options, [&](const auto& option) { return option.second == option_name; });
    }
    bool has_positive_post_acceleration() override { return called().positive_post_acceleration; }
    std::int16_t abundance_reduction_setting() override { return called().abundance_reduction; }
    std::string model() override { return called().model; }

    std::int32_t write(std::int32_t channel, float value) override {
        called().firmware[channel] = static_cast<double>(value);
        state_->journal.push_back(text_of("firmware ", channel, " = ", value));
        if (state_->on_write) state_->on_write(-channel, static_cast<double>(value));
        return 0;
    }
    double read(std::int32_t channel) override { return called().firmware[channel]; }

    State state_;
};

class ScriptedFinder final : public PeakFinder {
public:
    explicit ScriptedFinder(ScriptedPeaks& script) : script_(script) {}

    void set_sampling_interval_ns(double interval_ns) override { note("interval ", interval_ns); }
    void set_minimum_samples(std::int32_t samples) override { note("minimum samples ", samples); }
    void set_baseline_removal(std::int32_t on) override { note("baseline removal ", on); }
    void set_search_start_ns(double time_ns) override { note("start ", start_ = time_ns); }
    void set_search_end_ns(double time_ns) override { note("end ", end_ = time_ns); }
    void set_samples(std::span<const std::int32_t> counts) override { note("samples ", counts.size()); }
    PeakListObject run(double start_time_ns) override {
        note("run ", start_time_ns);
        if (script_.returns_no_list) return nullptr;
        std::vector<MeasuredPeak> inside;
        for (const PeakInfo& peak : script_.peaks)
            if (peak.pkCentroid >= start_ && peak.pkCentroid <= end_) inside.push_back({peak, script_.uncertainty});
        return std::make_shared<MeasuredPeakList>(inside);
    }
    double baseline() const override { return script_.baseline; }

private:
    template <class... Pieces>
    void note(const Pieces&... pieces) {
        script_.journal.push_back(text_of(pieces...));
    }
    ScriptedPeaks& script_;
    double start_ = 0;
    double end_ = 0;
};

}  // namespace

std::unique_ptr<InstrumentGlobals> ScriptedLayer::create_globals() {
    return std::make_unique<ScriptedGlobals>(state);
}
std::unique_ptr<PathInformation> ScriptedLayer::create_path_information() {
    return std::make_unique<ScriptedGlobals>(state);
}
std::unique_ptr<LogbookEntry> ScriptedLayer::create_logbook_entry() {
    return std::make_unique<ScriptedGlobals>(state);
}
std::unique_ptr<PeakFinder> ScriptedLayer::create_peak_finder() {
    if (state->make_finder) return state->make_finder();
    static ScriptedPeaks none;
    return none.make();
}

std::unique_ptr<PeakFinder> ScriptedPeaks::make() {
    return std::make_unique<ScriptedFinder>(*this);
}

}  // namespace korvane
