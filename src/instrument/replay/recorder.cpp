#include "instrument/replay/recorder.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "instrument/embedded/setpoints.h"
#include "instrument/peakfinder/embedded_peak_finder.h"
#include "instrument/replay/mzml_writer.h"
#include "instrument/replay/playback.h"
#include "platform/automation_arithmetic.h"
#include "platform/safe_save.h"

namespace korvane {

namespace replay {

namespace {

class Recorder {
public:
    Recorder(InstrumentLayer& layer, std::string path)
        : layer_(layer), globals_(layer.create_globals()), path_(std::move(path)) {
        globals_->initialise();
        if (globals_->control() == nullptr) raise_runtime_fault(error_number::object_not_set, "instrument control");
    }

    void record(int count, Clock& clock, const RecordingProgress& progress, OutputFile& file) {
        MzmlWriter writer({globals_->hardware().model(), globals_->source_type(), interval_ns(), setpoints(),
                           date_and_time(clock.now())},
                          count, [&](std::string_view text) { file.write(text); });
        // What a replay would refuse is refused here.
        Notes ignored;
        AxisKeeper axis(path_, ignored);
        for (int i = 0; i < count; ++i) {
            if (progress) progress(i);
            const RecordedSpectrum spectrum = recorded(next_spectrum());
            axis.play(spectrum);
            writer.add(spectrum);
        }
        writer.finish();
    }

private:
    [[noreturn]] void fail(const std::string& what) const {
        throw Error(error_number::file_or_element, "RecordingWriter", "recording [" + path_ + "]: " + what);
    }

    static std::string date_and_time(const LocalTime& time) {
        return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}", time.year, time.month, time.day, time.hour,
                           time.minute, time.second);
    }

    double interval_ns() { return globals_->sampling_interval_seconds() * 1e9; }

    AcquiredSpectrum next_spectrum() {
        constexpr int most_tries = 10;
        for (int i = 0; i < most_tries; ++i) {
            AcquiredSpectrum spectrum;
            globals_->refresh();
            globals_->control()->GetNextSpectrum(spectrum);
            if (!spectrum.mass_data.is_empty() && !spectrum.y_data.is_empty() && !spectrum.meta_data.is_empty())
                return spectrum;
        }
        fail("the instrument shows no spectrum: " + std::to_string(most_tries) + " came empty");
    }

    RecordedSpectrum recorded(const AcquiredSpectrum& spectrum) {
        RecordedSpectrum record;
        record.polarity = polarity(spectrum);
        record.scan_start_minutes = std::isfinite(spectrum.retention_time) ? spectrum.retention_time : 0;
        record.mz.assign(spectrum.mass_data.elements().begin(), spectrum.mass_data.elements().end());
        record.intensity.assign(spectrum.y_data.elements().begin(), spectrum.y_data.elements().end());
        check(record);
        record.first_flight_time_ns = spectrum.start_time_ns;
        record.sampling_interval_ns = interval_ns();
        const auto calibration = globals_->calibrations().calibration(static_cast<std::int32_t>(record.polarity));
        const auto flags = calibration->use_flags();
        record.calibration = {calibration->coefficients(), {flags.elements().begin(), flags.elements().end()}};
        // Flags are written from power 0 on.
        if (!flags.is_empty() && flags.lower_bound() > 0)
            record.calibration->use_flags.insert(record.calibration->use_flags.begin(),
                                                 static_cast<std::size_t>(flags.lower_bound()), 0);
        const auto finder = layer_.create_peak_finder();
        if (const auto* embedded = dynamic_cast<const EmbeddedPeakFinder*>(finder.get()))
            record.peak_finder = embedded->options();
        return record;
    }

    /// By the rule by which the library itself finds the polarity.
    PolaritySetpoint polarity(const AcquiredSpectrum& spectrum) {
        const std::string name = globals_->setpoints().external_name(contract::setpoint.polarity);
        const auto description = globals_->control()->GetMetaDescription();
        for (std::size_t i = 0; i < std::min(description.size(), spectrum.meta_data.size()); ++i) {
            const std::string& entry = description.elements()[i];
            if (entry.find(name) == std::string::npos ||
                entry.find(contract::metadata_name.setpoint_mark) == std::string::npos)
                continue;
            const std::int16_t value = to_int16(spectrum.meta_data.elements()[i]);
            if (value != 0 && value != 1) fail("the metadata give the polarity " + std::to_string(value));
            return static_cast<PolaritySetpoint>(value);
        }
        fail("the metadata do not tell the polarity");
    }

    void check(const RecordedSpectrum& record) const {
        if (record.mz.empty() || record.mz.size() != record.intensity.size())
            fail("a spectrum has " + std::to_string(record.mz.size()) + " masses and " +
                 std::to_string(record.intensity.size()) + " abundances");
        if (!std::ranges::all_of(record.intensity, [](double counts) { return std::isfinite(counts); }))
            fail("a spectrum has abundances that are not finite numbers");
        double below = 0;
        for (const double mass : record.mz) {
            if (!(mass > below) || !std::isfinite(mass))
                fail("the mass axis does not ascend: [" + number_text(mass) + "] after [" + number_text(below) + "]");
            below = mass;
        }
    }

    /// All of them, those of the contract and the embedded instrument by the names that it has for them; values beyond
    /// the limits that a replay has are left out.
    std::map<std::string, double> setpoints() {
        SetpointTable& table = globals_->setpoints();
        std::map<std::string, double> values;
        for (const std::int32_t index : table.indexes()) {
            const double value = to_double(table.value(index, 0, 0));
            const auto known =
                std::ranges::find(embedded::setpoint_definitions(), index, &embedded::SetpointDefinition::index);
            if (known == embedded::setpoint_definitions().end()) {
                const std::string name = table.internal_name(index);
                if (!embedded::find_setpoint(name) && std::isfinite(value)) values.emplace(name, value);
            } else if (value >= known->lower_limit && value <= known->upper_limit) {
                values.emplace(known->internal_name, value);
            }
        }
        return values;
    }

    InstrumentLayer& layer_;
    std::unique_ptr<InstrumentGlobals> globals_;
    std::string path_;
};

}  // namespace

}  // namespace replay

void record_spectra(InstrumentLayer& instrument, const std::string& path, int count, Files& files, Clock& clock,
                    const RecordingProgress& progress) {
    if (count < 1) raise_runtime_fault(error_number::invalid_call, "count " + std::to_string(count));
    replay::Recorder recorder(instrument, path);
    try {
        safe_save(files, path, [&](OutputFile& file) { recorder.record(count, clock, progress, file); });
    } catch (const FileError& fault) {
        throw Error(error_number::file_or_element, "RecordingWriter",
                    "recording [" + path + "]: cannot be written: " + fault.what());
    }
}

}  // namespace korvane
