// The embedded instrument and its layer: everything that the seam asks for and that a simulation and a replay answer
// alike. Each of them derives from it and supplies the next spectrum and what a set does.
#pragma once

#include <array>
#include <functional>
#include <memory>
#include <mutex>

#include "instrument/embedded/setpoints.h"
#include "korvane/instrument.h"
#include "korvane/system.h"
#include "platform/files.h"

namespace korvane::embedded {

/// What the instrument is built of.
struct Hardware {
    std::string model;
    std::string title = "Korvane";
    bool flight_tube_160cm = false;
    bool digitizer_4ghz = false;              ///< option 4
    bool dual_source = false;                 ///< option 13
    bool positive_post_acceleration = false;  ///< second query of the pulse-height target
    std::int32_t abundance_reduction = 0;
};

/// A mass-time law as it is kept: coefficients in ns, and settings.
struct CalibrationContent {
    CalibrationCoefficients coefficients;
    CalibrationSettings settings;
    friend bool operator==(const CalibrationContent&, const CalibrationContent&) = default;
};

/// One instrument behind all views of a layer; safe to use from several threads. It has time segment 0 and scan segment
/// 0; others are error 9, as are unknown indexes. Unknown names, options, polarities, channels, registers and items are
/// error 5 naming them.
class Instrument : public InstrumentGlobals,
                   public SetpointTable,
                   public CalibrationStore,
                   public HardwareQueries,
                   public FirmwareChannels,
                   public InstrumentControl {
public:
    InstrumentValue value(std::int32_t index, std::int32_t time_segment, std::int32_t scan_segment) final;
    void write(std::int32_t index, std::int32_t time_segment, std::int32_t scan_segment,
               const SetpointValue& new_value) final;
    double lower_limit(std::int32_t index) final { return setpoint_definition(index).lower_limit; }
    double upper_limit(std::int32_t index) final { return setpoint_definition(index).upper_limit; }
    double resolution(std::int32_t index) final { return setpoint_definition(index).resolution; }
    double tolerance(std::int32_t index) final { return setpoint_definition(index).tolerance; }
    std::int32_t variable_type(std::int32_t index) final { return setpoint_definition(index).type; }
    std::string external_name(std::int32_t index) final { return setpoint_definition(index).external_name; }
    std::string internal_name(std::int32_t index) final { return setpoint_definition(index).internal_name; }
    std::int32_t index_of(const std::string& name) final;
    std::vector<std::int32_t> indexes() final;

    CalibrationObject calibration(std::int32_t polarity) final;
    void store(std::int32_t polarity, const MassTimeCalibration& calibration) final;

    bool has_160cm_flight_tube() final { return hardware_.flight_tube_160cm; }
    std::string option_name(std::int32_t option_code) final;
    bool option_present(const std::string& option_name) final;
    bool has_positive_post_acceleration() final { return hardware_.positive_post_acceleration; }
    std::int16_t abundance_reduction_setting() final {
        return static_cast<std::int16_t>(hardware_.abundance_reduction);
    }
    std::string model() final { return hardware_.model; }

    /// Channel 22 is the quadrupole: setpoint QuadAMU, without delay.
    std::int32_t write(std::int32_t channel, float channel_value) final;
    double read(std::int32_t channel) final;

    /// Metadata are the experiment, always 0, then every setpoint's reached value, ascending by index.
    void GetNextSpectrum(AcquiredSpectrum& spectrum) final;
    VariantArray<std::string> GetMetaDescription() final;
    std::vector<MetaItem> next_spectrum_metadata() final { return next_metadata(nullptr); }
    double read_register(const std::string& path) final;

    // It is in this process: there is nothing to connect to or to fetch.
    void initialise() final {}
    void refresh() final {}
    SetpointTable& setpoints() final { return *this; }
    CalibrationStore& calibrations() final { return *this; }
    HardwareQueries& hardware() final { return *this; }
    FirmwareChannels& firmware() final { return *this; }
    InstrumentControl* control() final { return this; }
    InstrumentValue dictionary_item(const std::string& name) final;
    std::string parameter_name(std::int32_t index) final;
    InstrumentValue actual_value(const std::string& path, const std::string&) final { return read_register(path); }
    double sampling_interval_seconds() final;
    std::string source_type() final;
    std::string source_word() final { return source_type(); }
    std::string time_stamp() final;
    std::string title() final { return hardware_.title; }

    std::unique_ptr<PeakFinder> create_peak_finder();

protected:
    /// `name` is the source of errors.
    Instrument(std::string name, Hardware hardware, std::shared_ptr<Clock> clock);

    /// The next spectrum: its number, and how long it takes on the clock.
    struct Turn {
        std::int64_t number = 0;
        std::int32_t wait_milliseconds = 0;
    };

    // What differs. All are called with the lock held, which is not held while a spectrum is waited for.
    virtual Turn next_turn() = 0;
    /// Acquires the spectrum of this number and returns its polarity, or nothing when it comes empty. Fills in
    /// everything but the metadata; null asks for metadata alone.
    virtual std::optional<std::int32_t> acquire(std::int64_t number, AcquiredSpectrum* spectrum) = 0;
    virtual double interval_seconds() const = 0;
    virtual std::unique_ptr<PeakFinder> make_finder() const = 0;
    /// The calibration that the data dictionary states.
    virtual CalibrationContent dictionary_calibration() const = 0;
    /// An item of the data dictionary that is not of the calibration; nothing where there is none.
    virtual std::optional<InstrumentValue> own_dictionary_item(const std::string&) const { return std::nullopt; }
    virtual bool is_ready() { return true; }
    virtual bool is_pre_run() { return true; }
    /// A setpoint's commanded value has changed.
    virtual void setpoint_changed() {}
    virtual void store_calibration(std::size_t polarity, const MassTimeCalibration& calibration);

    const std::shared_ptr<Clock> clock_;
    std::mutex mutex_;
    Setpoints setpoints_;
    std::array<CalibrationObject, 2> lent_;  // by polarity

private:
    std::vector<MetaItem> next_metadata(AcquiredSpectrum* spectrum);
    void write_setpoint(std::int32_t index, const SetpointValue& new_value, bool at_once);

    const Hardware hardware_;
};

/// Makes the instrument out of its files.
using InstrumentMaker = std::function<std::shared_ptr<Instrument>()>;

/// The layer of an instrument that is made when it is first needed, by a globals object or a peak finder: an error of
/// `make` is raised there, and the next one tries again. Base folder and logbook do without it. The globals objects
/// keep the instrument alive. `name` is the source of the logbook's errors; paths are UTF-8.
std::shared_ptr<InstrumentLayer> make_layer(std::string name, std::string base_folder, std::shared_ptr<Files> files,
                                            std::shared_ptr<Clock> clock, InstrumentMaker make);

}  // namespace korvane::embedded
