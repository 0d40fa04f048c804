// A recording behind the embedded front: setpoints and calibrations are remembered, the spectra stay as they are.
#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <optional>

#include "instrument/embedded/instrument.h"
#include "instrument/replay/playback.h"

namespace korvane::replay {

class ReplayInstrument final : public embedded::Instrument {
public:
    /// Error -904 naming a recorded setpoint whose value lies beyond its limits. Setpoints that a replay does not have
    /// are passed over.
    ReplayInstrument(Playback playback, std::shared_ptr<Clock> clock);

private:
    Turn next_turn() override;
    std::optional<std::int32_t> acquire(std::int64_t number, AcquiredSpectrum* spectrum) override;
    double interval_seconds() const override { return playback_.spectra[shown_].sampling_interval_ns * 1e-9; }
    std::unique_ptr<PeakFinder> make_finder() const override;
    embedded::CalibrationContent dictionary_calibration(std::int32_t polarity) const override;

    void preset_setpoints();
    std::int32_t wait_milliseconds(std::size_t number) const;
    void lend(const PlayedSpectrum& spectrum);

    const Playback playback_;
    std::size_t next_ = 0;
    std::size_t shown_ = 0;  // the first one before any was shown
    bool shown_any_ = false;
    std::array<std::shared_ptr<const SquareLawCalibration>, 2> recorded_;  // lent last, by polarity
};

}  // namespace korvane::replay
