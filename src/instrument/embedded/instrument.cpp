#include "instrument/embedded/instrument.h"

#include <fmt/format.h>
#include <cmath>
#include <utility>

#include "korvane/error.h"
#include "korvane/forwarding.h"
#include "korvane/instrument_contract.h"
#include "platform/automation_arithmetic.h"
#include "platform/text.h"

namespace korvane::embedded {

namespace {

constexpr const char* experiment_name = "Experiment";
constexpr std::int32_t experiment = 0;
constexpr double ready = 0, not_ready = -1, running = 2;

// By source type code.
constexpr std::array<const char*, 12> source_names{"ESI",       "HPLC-Tile", "nanoESI",      "MALDI",
                                                   "Multimode", "Dual ESI",  "Dual nanoESI", "APCI",
                                                   "APPI",      "SGF ESI",   "GC-APCI",      "Dual SGF ESI"};

struct Option {
    std::int32_t code;
    const char* name;
    bool Hardware::*present;
};
constexpr std::array<Option, 2> options{{{contract::option.digitiser, "4GHz Digitizer", &Hardware::digitizer_4ghz},
                                         {contract::option.dual_source, "Dual SGF", &Hardware::dual_source}}};

[[noreturn]] void refuse(const std::string& what, const std::string& name) {
    raise_runtime_fault(error_number::invalid_call, what, "[", name, "]");
}

void check_segments(std::int32_t time_segment, std::int32_t scan_segment) {
    if (time_segment == 0 && scan_segment == 0) return;
    raise_runtime_fault(error_number::subscript, "time segment[", time_segment, "], scan segment[", scan_segment, "]");
}

void check_channel(std::int32_t channel) {
    if (channel != contract::firmware_channel.quad_amu) refuse("firmware channel", std::to_string(channel));
}

std::size_t polarity_slot(std::int32_t polarity) {
    if (polarity != 0 && polarity != 1) refuse("calibration of polarity", std::to_string(polarity));
    return static_cast<std::size_t>(polarity);
}

/// The base folder and the logbook in it. One line an entry: date, time, kind, code, the two numbers, the text where
/// there is one, and the message.
class BaseFolder final : public PathInformation, public LogbookEntry {
public:
    BaseFolder(std::string owner, std::string folder, std::shared_ptr<Files> files, std::shared_ptr<Clock> clock)
        : owner_(std::move(owner)), folder_(std::move(folder)), files_(std::move(files)), clock_(std::move(clock)) {}

    std::string base_folder() override { return folder_; }
    void write(std::int32_t kind, const std::string& message, std::int32_t code, std::int32_t first,
               std::int32_t second, const std::string& text) override {
        const std::string path = join_path(join_path(folder_, "Logfiles"), "Logbook.txt");
        const LocalTime now = clock_->now();
        const std::string note = text.empty() ? "" : " [" + text + "]";
        try {
            const auto file = files_->open_append(path);
            file->write(fmt::format("{} {} {} {} {} {}{} {}\n", date_yyyymmdd(now), time_hhmmss(now), kind, code, first,
                                    second, note, message));
        } catch (const FileError& fault) {
            throw Error(fault.runtime_error_number(), owner_, "logbook file[" + path + "]: " + fault.what());
        }
    }

private:
    std::string owner_, folder_;
    std::shared_ptr<Files> files_;
    std::shared_ptr<Clock> clock_;
};

class Layer final : public InstrumentLayer {
public:
    Layer(const BaseFolder& base_folder, InstrumentMaker make) : base_folder_(base_folder), make_(std::move(make)) {}

    std::unique_ptr<InstrumentGlobals> create_globals() override {
        return std::make_unique<ForwardingInstrumentGlobals>(instrument());
    }
    std::unique_ptr<PathInformation> create_path_information() override {
        return std::make_unique<BaseFolder>(base_folder_);
    }
    std::unique_ptr<LogbookEntry> create_logbook_entry() override { return std::make_unique<BaseFolder>(base_folder_); }
    std::unique_ptr<PeakFinder> create_peak_finder() override { return instrument()->create_peak_finder(); }

private:
    std::shared_ptr<Instrument> instrument() {
        const std::lock_guard lock(mutex_);
        if (!instrument_) instrument_ = make_();
        return instrument_;
    }

    BaseFolder base_folder_;
    InstrumentMaker make_;
    std::mutex mutex_;
    std::shared_ptr<Instrument> instrument_;
};

}  // namespace

Instrument::Instrument(std::string name, Hardware hardware, std::shared_ptr<Clock> clock)
    : clock_(std::move(clock)), setpoints_(std::move(name)), hardware_(std::move(hardware)) {}

InstrumentValue Instrument::value(std::int32_t index, std::int32_t time_segment, std::int32_t scan_segment) {
    check_segments(time_segment, scan_segment);
    const std::lock_guard lock(mutex_);
    return setpoint_definition(index).typed(setpoints_.commanded(index));
}

void Instrument::write(std::int32_t index, std::int32_t time_segment, std::int32_t scan_segment,
                       const SetpointValue& new_value) {
    check_segments(time_segment, scan_segment);
    write_setpoint(index, new_value, false);
}

void Instrument::write_setpoint(std::int32_t index, const SetpointValue& new_value, bool at_once) {
    const std::lock_guard lock(mutex_);
    if (setpoints_.command(index, new_value, at_once)) setpoint_changed();
}

std::int32_t Instrument::index_of(const std::string& name) {
    if (const SetpointDefinition* found = find_setpoint(name)) return found->index;
    refuse("setpoint", name);
}

std::vector<std::int32_t> Instrument::indexes() {
    std::vector<std::int32_t> all;
    for (const SetpointDefinition& definition : setpoint_definitions()) all.push_back(definition.index);
    return all;
}

CalibrationObject Instrument::calibration(std::int32_t polarity) {
    const std::size_t slot = polarity_slot(polarity);
    const std::lock_guard lock(mutex_);
    return lent_[slot];
}

void Instrument::store(std::int32_t polarity, const MassTimeCalibration& calibration) {
    const std::size_t slot = polarity_slot(polarity);
    // What the next start would refuse to read.
    const CalibrationCoefficients c = calibration.coefficients();
    if (!(c.A > 0)) refuse("calibration coefficient A", number_text(c.A));
    for (const auto& [name, member] : calibration_coefficients)
        if (c.*member != 0 && !std::isnormal(c.*member)) refuse("calibration coefficient", number_text(c.*member));
    const std::lock_guard lock(mutex_);
    store_calibration(slot, calibration);
}

void Instrument::store_calibration(std::size_t polarity, const MassTimeCalibration& calibration) {
    auto copy = calibration.clone();
    if (!copy) raise_runtime_fault(error_number::object_not_set, "clone() of the calibration");
    lent_[polarity] = std::move(copy);
}

std::string Instrument::option_name(std::int32_t option_code) {
    for (const Option& option : options)
        if (option.code == option_code) return option.name;
    refuse("hardware option code", std::to_string(option_code));
}

bool Instrument::option_present(const std::string& option_name) {
    for (const Option& option : options)
        if (option.name == option_name) return hardware_.*option.present;
    refuse("hardware option", option_name);
}

std::int32_t Instrument::write(std::int32_t channel, float channel_value) {
    check_channel(channel);
    write_setpoint(quad_amu_setpoint, static_cast<double>(channel_value), true);
    return 0;
}

double Instrument::read(std::int32_t channel) {
    check_channel(channel);
    const std::lock_guard lock(mutex_);
    return setpoints_.actual(quad_amu_setpoint);
}

std::vector<MetaItem> Instrument::next_metadata(AcquiredSpectrum* spectrum) {
    std::unique_lock lock(mutex_);
    const Turn turn = next_turn();
    if (turn.wait_milliseconds > 0) {
        lock.unlock();
        clock_->sleep_milliseconds(turn.wait_milliseconds);
        lock.lock();
    }
    setpoints_.spectrum_begins();
    const auto polarity = acquire(turn.number, spectrum);
    std::vector<MetaItem> items;
    if (!polarity) return items;
    items.push_back({experiment_name, experiment});
    for (const SetpointDefinition& definition : setpoint_definitions()) {
        const bool is_polarity = definition.index == contract::setpoint.polarity;
        const double reached = is_polarity ? *polarity : setpoints_.actual(definition.index);
        items.push_back({definition.external_name, definition.typed(reached)});
    }
    return items;
}

void Instrument::GetNextSpectrum(AcquiredSpectrum& spectrum) {
    spectrum = {};
    spectrum.experiment = experiment;
    std::vector<InstrumentValue> values;
    for (MetaItem& item : next_metadata(&spectrum)) values.push_back(std::move(item.value));
    if (!values.empty()) spectrum.meta_data = std::move(values);
}

VariantArray<std::string> Instrument::GetMetaDescription() {
    std::vector<std::string> entries{experiment_name};
    for (const SetpointDefinition& definition : setpoint_definitions())
        entries.push_back(std::string(definition.external_name) + " " + contract::metadata_name.setpoint_mark.key);
    return entries;
}

double Instrument::read_register(const std::string& path) {
    const std::lock_guard lock(mutex_);
    if (path == contract::instrument_register.not_ready_state.key) return is_ready() ? ready : not_ready;
    if (path == contract::instrument_register.run_state.key)
        return is_pre_run() ? double{contract::run_state.pre_run.key} : running;
    refuse("register", path);
}

InstrumentValue Instrument::dictionary_item(const std::string& name) {
    const std::lock_guard lock(mutex_);
    const CalibrationContent content = dictionary_calibration();
    if (name == contract::dictionary_item.coefficient_a.key) return content.coefficients.A;
    if (name == contract::dictionary_item.coefficient_b.key) return content.coefficients.B;
    if (name == contract::dictionary_item.reserved_1.key) return content.settings.CalReserved1;
    if (name == contract::dictionary_item.traditional_weighting.key) return content.settings.CalTraditionalWeighting;
    if (name == contract::dictionary_item.polynomial_weighting.key) return content.settings.CalPolynomialWeighting;
    if (auto own = own_dictionary_item(name)) return *std::move(own);
    refuse("data dictionary item", name);
}

std::string Instrument::parameter_name(std::int32_t index) {
    if (index == contract::parameter.experiment) return experiment_name;
    refuse("parameter", std::to_string(index));
}

double Instrument::sampling_interval_seconds() {
    const std::lock_guard lock(mutex_);
    return interval_seconds();
}

std::string Instrument::source_type() {
    const std::lock_guard lock(mutex_);
    return source_names.at(static_cast<std::size_t>(setpoints_.commanded(contract::setpoint.source_type)));
}

std::string Instrument::time_stamp() {
    const LocalTime now = clock_->now();
    return fmt::format("{:02}:{:02}:{:02}", now.hour, now.minute, now.second);
}

std::unique_ptr<PeakFinder> Instrument::create_peak_finder() {
    const std::lock_guard lock(mutex_);
    return make_finder();
}

std::shared_ptr<InstrumentLayer> make_layer(std::string name, std::string base_folder, std::shared_ptr<Files> files,
                                            std::shared_ptr<Clock> clock, InstrumentMaker make) {
    return std::make_shared<Layer>(
        BaseFolder(std::move(name), std::move(base_folder), std::move(files), std::move(clock)), std::move(make));
}

}  // namespace korvane::embedded
