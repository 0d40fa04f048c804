#include "instrument/replay/replay_layer.h"

#include <array>

#include "instrument/embedded/instrument.h"
#include "instrument/peakfinder/embedded_peak_finder.h"
#include "instrument/replay/playback.h"
#include "instrument/replay/recording.h"
#include "platform/automation_arithmetic.h"

namespace korvane {

namespace replay {

namespace {

constexpr double usual_transients = 10000;

/// A recording behind the embedded front: setpoints and calibrations are remembered, the spectra stay as they are.
class ReplayInstrument final : public embedded::Instrument {
public:
    /// Error -904 naming a recorded setpoint whose value lies beyond its limits. Setpoints that a replay does not have
    /// are passed over.
    ReplayInstrument(Playback playback, std::shared_ptr<Clock> clock)
        : Instrument("Recording", {.model = "Recording"}, std::move(clock)), playback_(std::move(playback)) {
        preset_setpoints();
        for (auto spectrum = playback_.spectra.rbegin(); spectrum != playback_.spectra.rend(); ++spectrum)
            recorded_[static_cast<std::size_t>(spectrum->polarity)] = spectrum->calibration;
        // A polarity that was not recorded borrows the law of the first spectrum.
        for (std::size_t slot = 0; slot < lent_.size(); ++slot)
            lent_[slot] = (recorded_[slot] ? recorded_[slot] : playback_.spectra.front().calibration)->clone();
    }

private:
    Turn next_turn() override {
        const std::size_t number = std::exchange(next_, (next_ + 1) % playback_.spectra.size());
        const bool is_first = !std::exchange(shown_any_, true);
        return {static_cast<std::int64_t>(number), is_first ? 0 : wait_milliseconds(number)};
    }

    std::optional<std::int32_t> acquire(std::int64_t number, AcquiredSpectrum* spectrum) override {
        shown_ = static_cast<std::size_t>(number);
        const PlayedSpectrum& played = playback_.spectra[shown_];
        lend(played);
        if (spectrum) *spectrum = played.acquired;
        return static_cast<std::int32_t>(played.polarity);
    }

    double interval_seconds() const override { return playback_.spectra[shown_].sampling_interval_ns * 1e-9; }
    std::unique_ptr<PeakFinder> make_finder() const override {
        return make_peak_finder(playback_.spectra[shown_].peak_finder);
    }
    embedded::CalibrationContent dictionary_calibration() const override {
        const MassTimeCalibration& calibration = *playback_.spectra.front().calibration;
        return {calibration.coefficients(), calibration.settings()};
    }

    void preset_setpoints() {
        const PlayedSpectrum& first = playback_.spectra.front();
        const double interval_ns = first.sampling_interval_ns;
        double largest_mass = 0;
        for (const PlayedSpectrum& spectrum : playback_.spectra)
            largest_mass = std::max(largest_mass, spectrum.acquired.mass_data.elements().back());
        const std::int32_t range = largest_mass <= 1700 ? 0 : largest_mass <= 3200 ? 1 : 2;
        setpoints_.preset(contract::setpoint.sampling_rate, interval_ns > 0.7 ? 1 : interval_ns > 0.35 ? 2 : 3);
        setpoints_.preset(contract::setpoint.source_type, playback_.source_code);
        setpoints_.preset(contract::setpoint.mass_range, range);
        setpoints_.preset(contract::setpoint.highest_extended_mass,
                          std::array{1700, 3200, 20000}[static_cast<std::size_t>(range)]);
        for (const std::int32_t index : {contract::setpoint.transients_1_ghz, contract::setpoint.transients_2_ghz,
                                         contract::setpoint.transients_4_ghz})
            setpoints_.preset(index, usual_transients);
        for (const auto& [name, value] : playback_.setpoints) {
            const auto* const known = embedded::find_setpoint(name);
            if (!known) continue;  // of another instrument: kept in the file for whoever reads it
            try {
                setpoints_.command(known->index, value, true);
            } catch (const Error& error) {
                RecordingPlace{playback_.file, {}}.fail("setpoint [", name, "]: ", error.description());
            }
        }
        setpoints_.preset(contract::setpoint.polarity, static_cast<std::int32_t>(first.polarity));
    }

    std::int32_t wait_milliseconds(std::size_t number) const {
        constexpr double longest_seconds = 1;
        constexpr double usual_seconds = 0.1;  // for the first spectrum after the last, whose distance nobody knows
        const auto minutes = [this](std::size_t i) { return playback_.spectra[i].acquired.retention_time; };
        const double distance = number == 0 ? usual_seconds : 60 * (minutes(number) - minutes(number - 1));
        return static_cast<std::int32_t>(std::lround(std::clamp(distance, 0.0, longest_seconds) * 1000));
    }

    /// A spectrum under another law than the one before it brings its calibration along, unless a client has put in one
    /// of its own.
    void lend(const PlayedSpectrum& spectrum) {
        const auto slot = static_cast<std::size_t>(spectrum.polarity);
        if (recorded_[slot] == spectrum.calibration) return;
        if (lent_[slot]->coefficients() == recorded_[slot]->coefficients()) lent_[slot] = spectrum.calibration->clone();
        recorded_[slot] = spectrum.calibration;
    }

    const Playback playback_;
    std::size_t next_ = 0;
    std::size_t shown_ = 0;  // the first one before any was shown
    bool shown_any_ = false;
    std::array<std::shared_ptr<const MassTimeCalibration>, 2> recorded_;  // lent last, by polarity
};

}  // namespace

}  // namespace replay

std::shared_ptr<InstrumentLayer> make_replay(const std::string& recording, const std::string& base_folder,
                                             const RecordingOptions& options, std::shared_ptr<Files> files,
                                             std::shared_ptr<Clock> clock) {
    return embedded::make_layer("Recording", base_folder, files, clock, [recording, options, files, clock] {
        const replay::Playback playback = replay::prepare_playback(replay::read_recording(*files, recording, options));
        playback.tell(options);
        return std::make_shared<replay::ReplayInstrument>(playback, clock);
    });
}

}  // namespace korvane
