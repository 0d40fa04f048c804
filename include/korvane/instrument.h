// Seam: the instrument layer. Whoever connects an instrument implements these interfaces; the embedded simulator does.
// Faults are raised as `Error` and reach the caller unchanged. What the library asks for, by number and by name, stands
// in instrument_contract.h. No pointer is null unless its member says so.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "korvane/export.h"
#include "korvane/mass_time.h"
#include "korvane/peak_finder.h"
#include "korvane/records.h"

namespace korvane {

/// The setpoint table. An index that the instrument does not have is error 9 naming it, in every member. Values and
/// limits are in the setpoint's own unit.
class KORVANE_API SetpointTable {
public:
    virtual ~SetpointTable() = default;

    /// What the setpoint is set to; a number. Segments count from 0.
    virtual InstrumentValue value(std::int32_t index, std::int32_t time_segment, std::int32_t scan_segment) = 0;
    /// Sets the setpoint; `value` is in the setpoint's type. Returns when it is set, not when it is reached.
    virtual void write(std::int32_t index, std::int32_t time_segment, std::int32_t scan_segment,
                       const SetpointValue& value) = 0;
    virtual double lower_limit(std::int32_t index) = 0;
    virtual double upper_limit(std::int32_t index) = 0;
    /// The smallest step, above 0.
    virtual double resolution(std::int32_t index) = 0;
    /// How close a read-back must come to count as reached (strictly less than this).
    virtual double tolerance(std::int32_t index) = 0;
    /// One of `contract::variable_type`.
    virtual std::int32_t variable_type(std::int32_t index) = 0;
    /// The name under which the setpoint occurs in spectrum metadata; no other name begins with it, case ignored.
    virtual std::string external_name(std::int32_t index) = 0;
    virtual std::string internal_name(std::int32_t index) = 0;
    /// The index of an internal name; error 5 naming an unknown name.
    virtual std::int32_t index_of(const std::string& internal_name) = 0;
    /// All indexes, ascending.
    virtual std::vector<std::int32_t> indexes() = 0;
};

/// One acquired spectrum. An array that the instrument did not fill stays empty.
struct AcquiredSpectrum {
    double first_unused = 0;
    double retention_time = 0;  ///< minutes, as recordings have it; only logged
    std::int32_t experiment = 0;
    VariantArray<double> mass_data;           ///< amu of every sample
    VariantArray<double> y_data;              ///< abundance of every sample, counts
    VariantArray<InstrumentValue> meta_data;  ///< one value per entry of the metadata description
    double start_time_ns = 0;                 ///< flight time of the first sample
    double last_unused = 0;
};

class KORVANE_API InstrumentControl {
public:
    virtual ~InstrumentControl() = default;

    /// Waits for and fills in the next spectrum; the three arrays come in empty, and may stay so where none came.
    virtual void GetNextSpectrum(AcquiredSpectrum& spectrum) = 0;
    /// One text for every metadata value of a spectrum: `contract::metadata_name`.
    virtual VariantArray<std::string> GetMetaDescription() = 0;
    /// Waits for the next spectrum and returns its metadata as name/value items.
    virtual std::vector<MetaItem> next_spectrum_metadata() = 0;
    /// Current value of a register; error 5 naming an unknown path.
    virtual double read_register(const std::string& path) = 0;
};

class KORVANE_API CalibrationStore {
public:
    virtual ~CalibrationStore() = default;

    /// The object that the instrument lends for a polarity (0 positive, 1 negative): changes show in the store's copy.
    /// Null where there is none, which the library raises as error 91; error 5 naming any other polarity.
    virtual CalibrationObject calibration(std::int32_t polarity) = 0;
    /// Takes over the content of `calibration`, which may be another layer's object, and keeps it.
    virtual void store(std::int32_t polarity, const MassTimeCalibration& calibration) = 0;
};

class KORVANE_API HardwareQueries {
public:
    virtual ~HardwareQueries() = default;

    /// 160 cm flight tube, which is the extended mass range.
    virtual bool has_160cm_flight_tube() = 0;
    /// The name of an option code, installed or not.
    virtual std::string option_name(std::int32_t option_code) = 0;
    /// Whether an option is installed; an unknown name is not, or is error 5 naming it.
    virtual bool option_present(const std::string& option_name) = 0;
    /// The second query of the pulse-height target: positive ions are post-accelerated.
    virtual bool has_positive_post_acceleration() = 0;
    /// 0 is off.
    virtual std::int16_t abundance_reduction_setting() = 0;
    /// Only the first five characters tell: `contract::model_4410`.
    virtual std::string model() = 0;
};

class KORVANE_API FirmwareChannels {
public:
    virtual ~FirmwareChannels() = default;

    /// Returns the firmware's status, which is only logged.
    virtual std::int32_t write(std::int32_t channel, float value) = 0;
    /// Current value of a channel, in the channel's unit.
    virtual double read(std::int32_t channel) = 0;
};

/// One client's view of the instrument. Several live at the same time; each is called by one thread at a time.
/// References stay valid as long as the object, from `initialise` on.
class KORVANE_API InstrumentGlobals {
public:
    virtual ~InstrumentGlobals() = default;

    /// Called once, before any other member. May assume nothing of other views, and connect to the instrument.
    virtual void initialise() = 0;
    /// Called before every request of a spectrum.
    virtual void refresh() = 0;
    virtual SetpointTable& setpoints() = 0;
    virtual CalibrationStore& calibrations() = 0;
    virtual HardwareQueries& hardware() = 0;
    virtual FirmwareChannels& firmware() = 0;
    /// Null where no instrument control is connected, which the library raises as error 91.
    virtual InstrumentControl* control() = 0;
    /// Data dictionary item; error 5 naming an unknown item.
    virtual InstrumentValue dictionary_item(const std::string& name) = 0;
    /// Name of a parameter of the catalogue: `contract::parameter`.
    virtual std::string parameter_name(std::int32_t index) = 0;
    /// Current value of an instrument register, a number; error 5 naming an unknown path. The type is one of those in
    /// instrument_contract.h.
    virtual InstrumentValue actual_value(const std::string& path, const std::string& type) = 0;
    /// Between two samples of a spectrum.
    virtual double sampling_interval_seconds() = 0;
    /// Texts: the ion source ("ESI", "Dual ESI", ...), the same as the tune parameter file writes it, a time stamp for
    /// setpoint log lines, and the title of the instrument.
    virtual std::string source_type() = 0;
    virtual std::string source_word() = 0;
    virtual std::string time_stamp() = 0;
    virtual std::string title() = 0;
};

class KORVANE_API PathInformation {
public:
    virtual ~PathInformation() = default;
    /// The base folder, with or without a trailing separator.
    virtual std::string base_folder() = 0;
};

class KORVANE_API LogbookEntry {
public:
    virtual ~LogbookEntry() = default;
    /// Writes the entry: `contract::logbook`.
    virtual void write(std::int32_t kind, const std::string& message, std::int32_t code, std::int32_t first,
                       std::int32_t second, const std::string& text) = 0;
};

/// The instrument layer: makes the objects above. Every globals object made by one layer is a view of one instrument.
class KORVANE_API InstrumentLayer {
public:
    virtual ~InstrumentLayer() = default;

    virtual std::unique_ptr<InstrumentGlobals> create_globals() = 0;
    virtual std::unique_ptr<PathInformation> create_path_information() = 0;
    virtual std::unique_ptr<LogbookEntry> create_logbook_entry() = 0;
    virtual std::unique_ptr<PeakFinder> create_peak_finder() = 0;
};

/// A view of the instrument, ready for use. Error 91 where the layer makes none; those of the layer.
KORVANE_API std::unique_ptr<InstrumentGlobals> open_globals(InstrumentLayer& layer);

/// A number that the instrument shows, as such or as a text; error 13 naming what is none.
KORVANE_API double number_of(const InstrumentValue& value, const std::string& what);

}  // namespace korvane
