// Forwarding bases of the seams: each hands every call on, so that a fake, a fault or an observer overrides only what
// it bends. Errors are those of the object behind.
#pragma once

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "korvane/instrument.h"
#include "korvane/system.h"

namespace korvane {

/// What all of them share. The object behind is shared with whoever else holds it (a `std::unique_ptr` gives it away),
/// or borrowed by reference and then has to outlive this one. Objects that it makes or lends are its own: to bend these
/// too, override the member that makes or lends them.
template <class Interface>
class Forwarding : public Interface {
public:
    explicit Forwarding(std::shared_ptr<Interface> target) : target_(std::move(target)) {}
    explicit Forwarding(Interface& borrowed) : target_(std::shared_ptr<void>(), &borrowed) {}

protected:
    /// Called before every forwarded call with the member's name; what it raises, the call raises.
    virtual void before(const char* /*member*/) const {}
    Interface& target(const char* member = __builtin_FUNCTION()) const {
        before(member);
        return *target_;
    }

private:
    std::shared_ptr<Interface> target_;
};

/// A forwarding base with what a bent form needs beside the object behind, such as a journal or a hook.
template <class Forwarded, class State>
struct ForwardingWith : Forwarded {
    template <class Target>
    ForwardingWith(Target&& target, State its_state)
        : Forwarded(std::forward<Target>(target)), state(std::move(its_state)) {}

    State state;
};

/// The bent form of an object that another one lends, for overrides of the member that lends it: made at the first use,
/// and anew where a different object is lent.
template <class Bent>
class Lent {
public:
    /// What follows the object goes to the bent form's constructor, too.
    template <class Interface, class... More>
    Bent& of(Interface& lent, const More&... more) {
        if (lent_ != &lent) bent_.emplace(lent, more...);
        lent_ = &lent;
        return *bent_;
    }

private:
    const void* lent_ = nullptr;
    std::optional<Bent> bent_;
};

struct ForwardingSetpointTable : Forwarding<SetpointTable> {
    using Forwarding::Forwarding;
    InstrumentValue value(std::int32_t index, std::int32_t time_segment, std::int32_t scan_segment) override {
        return target().value(index, time_segment, scan_segment);
    }
    void write(std::int32_t index, std::int32_t time_segment, std::int32_t scan_segment,
               const SetpointValue& value) override {
        target().write(index, time_segment, scan_segment, value);
    }
    double lower_limit(std::int32_t index) override { return target().lower_limit(index); }
    double upper_limit(std::int32_t index) override { return target().upper_limit(index); }
    double resolution(std::int32_t index) override { return target().resolution(index); }
    double tolerance(std::int32_t index) override { return target().tolerance(index); }
    std::int32_t variable_type(std::int32_t index) override { return target().variable_type(index); }
    std::string external_name(std::int32_t index) override { return target().external_name(index); }
    std::string internal_name(std::int32_t index) override { return target().internal_name(index); }
    std::int32_t index_of(const std::string& name) override { return target().index_of(name); }
    std::vector<std::int32_t> indexes() override { return target().indexes(); }
};

struct ForwardingInstrumentControl : Forwarding<InstrumentControl> {
    using Forwarding::Forwarding;
    void GetNextSpectrum(AcquiredSpectrum& spectrum) override { target().GetNextSpectrum(spectrum); }
    VariantArray<std::string> GetMetaDescription() override { return target().GetMetaDescription(); }
    std::vector<MetaItem> next_spectrum_metadata() override { return target().next_spectrum_metadata(); }
    double read_register(const std::string& path) override { return target().read_register(path); }
};

struct ForwardingMassTimeCalibration : Forwarding<MassTimeCalibration> {
    using Forwarding::Forwarding;
    CalibrationCoefficients coefficients() const override { return target().coefficients(); }
    void set_coefficients(const CalibrationCoefficients& nanoseconds) override {
        target().set_coefficients(nanoseconds);
    }
    CalibrationSettings settings() const override { return target().settings(); }
    void set_settings(const CalibrationSettings& settings) override { target().set_settings(settings); }
    VariantArray<std::int32_t> use_flags() const override { return target().use_flags(); }
    double mass_from_time(double time_ns) const override { return target().mass_from_time(time_ns); }
    double time_from_mass(double mass) const override { return target().time_from_mass(mass); }
    std::vector<double> masses_from_times(const std::vector<double>& times_ns) const override {
        return target().masses_from_times(times_ns);
    }
    std::vector<double> times_from_masses(const std::vector<double>& masses) const override {
        return target().times_from_masses(masses);
    }
    /// The bare copy of the object behind.
    std::shared_ptr<MassTimeCalibration> clone() const override { return target().clone(); }
};

struct ForwardingCalibrationStore : Forwarding<CalibrationStore> {
    using Forwarding::Forwarding;
    CalibrationObject calibration(std::int32_t polarity) override { return target().calibration(polarity); }
    void store(std::int32_t polarity, const MassTimeCalibration& calibration) override {
        target().store(polarity, calibration);
    }
};

struct ForwardingHardwareQueries : Forwarding<HardwareQueries> {
    using Forwarding::Forwarding;
    bool has_160cm_flight_tube() override { return target().has_160cm_flight_tube(); }
    std::string option_name(std::int32_t option_code) override { return target().option_name(option_code); }
    bool option_present(const std::string& name) override { return target().option_present(name); }
    bool has_positive_post_acceleration() override { return target().has_positive_post_acceleration(); }
    std::int16_t abundance_reduction_setting() override { return target().abundance_reduction_setting(); }
    std::string model() override { return target().model(); }
};

struct ForwardingFirmwareChannels : Forwarding<FirmwareChannels> {
    using Forwarding::Forwarding;
    std::int32_t write(std::int32_t channel, float value) override { return target().write(channel, value); }
    double read(std::int32_t channel) override { return target().read(channel); }
};

struct ForwardingInstrumentGlobals : Forwarding<InstrumentGlobals> {
    using Forwarding::Forwarding;
    void initialise() override { target().initialise(); }
    void refresh() override { target().refresh(); }
    SetpointTable& setpoints() override { return target().setpoints(); }
    CalibrationStore& calibrations() override { return target().calibrations(); }
    HardwareQueries& hardware() override { return target().hardware(); }
    FirmwareChannels& firmware() override { return target().firmware(); }
    InstrumentControl* control() override { return target().control(); }
    InstrumentValue dictionary_item(const std::string& name) override { return target().dictionary_item(name); }
    std::string parameter_name(std::int32_t index) override { return target().parameter_name(index); }
    InstrumentValue actual_value(const std::string& path, const std::string& type) override {
        return target().actual_value(path, type);
    }
    double sampling_interval_seconds() override { return target().sampling_interval_seconds(); }
    std::string source_type() override { return target().source_type(); }
    std::string source_word() override { return target().source_word(); }
    std::string time_stamp() override { return target().time_stamp(); }
    std::string title() override { return target().title(); }
};

struct ForwardingPathInformation : Forwarding<PathInformation> {
    using Forwarding::Forwarding;
    std::string base_folder() override { return target().base_folder(); }
};

struct ForwardingLogbookEntry : Forwarding<LogbookEntry> {
    using Forwarding::Forwarding;
    void write(std::int32_t kind, const std::string& message, std::int32_t code, std::int32_t first,
               std::int32_t second, const std::string& text) override {
        target().write(kind, message, code, first, second, text);
    }
};

struct ForwardingPeakList : Forwarding<PeakList> {
    using Forwarding::Forwarding;
    std::int32_t count() const override { return target().count(); }
    void order(std::int32_t position, std::int32_t direction) override { target().order(position, direction); }
    PeakInfo GetPeakAttributeInfo(std::int32_t index, bool current_units) const override {
        return target().GetPeakAttributeInfo(index, current_units);
    }
    void convert(const MassTimeCalibration& calibration, std::int32_t mode) override {
        target().convert(calibration, mode);
    }
    std::optional<PeakUncertainty> uncertainty(std::int32_t index) const override {
        return target().uncertainty(index);
    }
    std::optional<PeakQuality> quality(std::int32_t index) const override { return target().quality(index); }
    std::vector<double> fitted_counts(double start_ns, double interval_ns, std::size_t count) const override {
        return target().fitted_counts(start_ns, interval_ns, count);
    }
};

struct ForwardingPeakFinder : Forwarding<PeakFinder> {
    using Forwarding::Forwarding;
    void set_sampling_interval_ns(double interval_ns) override { target().set_sampling_interval_ns(interval_ns); }
    void set_minimum_samples(std::int32_t samples) override { target().set_minimum_samples(samples); }
    void set_baseline_removal(std::int32_t on) override { target().set_baseline_removal(on); }
    void set_search_start_ns(double time_ns) override { target().set_search_start_ns(time_ns); }
    void set_search_end_ns(double time_ns) override { target().set_search_end_ns(time_ns); }
    void set_samples(std::span<const std::int32_t> counts) override { target().set_samples(counts); }
    PeakListObject run(double start_time_ns) override { return target().run(start_time_ns); }
    double baseline() const override { return target().baseline(); }
};

struct ForwardingInstrumentLayer : Forwarding<InstrumentLayer> {
    using Forwarding::Forwarding;
    std::unique_ptr<InstrumentGlobals> create_globals() override { return target().create_globals(); }
    std::unique_ptr<PathInformation> create_path_information() override { return target().create_path_information(); }
    std::unique_ptr<LogbookEntry> create_logbook_entry() override { return target().create_logbook_entry(); }
    std::unique_ptr<PeakFinder> create_peak_finder() override { return target().create_peak_finder(); }
};

struct ForwardingClock : Forwarding<Clock> {
    using Forwarding::Forwarding;
    double seconds_since_midnight() override { return target().seconds_since_midnight(); }
    LocalTime now() override { return target().now(); }
    void sleep_milliseconds(int milliseconds) override { target().sleep_milliseconds(milliseconds); }
    void process_pending_events() override { target().process_pending_events(); }
};

struct ForwardingFiles : Forwarding<Files> {
    using Forwarding::Forwarding;
    void read(const std::string& path, std::string& bytes) override { target().read(path, bytes); }
    FileStatus status(const std::string& path) override { return target().status(path); }
    void clear_read_only(const std::string& path) override { target().clear_read_only(path); }
    std::unique_ptr<OutputFile> open_append(const std::string& path) override { return target().open_append(path); }
    std::unique_ptr<OutputFile> create_new(const std::string& path, const std::string& like) override {
        return target().create_new(path, like);
    }
    void remove_abandoned(const std::string& path) override { target().remove_abandoned(path); }
    std::unique_ptr<FileLock> try_lock(const std::string& path) override { return target().try_lock(path); }
    void replace(const std::string& from, const std::string& to) override { target().replace(from, to); }
    void flush_folder(const std::string& folder) override { target().flush_folder(folder); }
    void remove(const std::string& path) override { target().remove(path); }
    std::vector<std::string> list(const std::string& folder) override { return target().list(folder); }
    std::string resolve(const std::string& path) override { return target().resolve(path); }
};

}  // namespace korvane
