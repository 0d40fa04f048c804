// The state that all views of one replay share.
#pragma once

#include <array>
#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "instrument/replay/playback.h"
#include "instrument/replay/replay_setpoints.h"
#include "korvane/instrument.h"
#include "korvane/system.h"
#include "platform/files.h"

namespace korvane::replay {

class ReplayInstrument final : public InstrumentControl, public CalibrationStore, public FirmwareChannels {
public:
    ReplayInstrument(Playback playback, std::shared_ptr<Clock> clock);

    void GetNextSpectrum(AcquiredSpectrum& spectrum) override;
    VariantArray<std::string> GetMetaDescription() override;
    std::vector<MetaItem> next_spectrum_metadata() override;
    double read_register(const std::string& path) override;

    CalibrationObject calibration(std::int32_t polarity) override;
    void store(std::int32_t polarity, const MassTimeCalibration& calibration) override;

    std::int32_t write(std::int32_t channel, float value) override;
    double read(std::int32_t channel) override;

    ReplaySetpoints& setpoints() { return setpoints_; }
    /// Of the spectrum shown last; of the first one before that.
    double sampling_interval_seconds() const;
    const PeakFinderOptions& peak_finder_options() const { return playback_.spectra[shown_].peak_finder; }
    /// Error 5 naming an unknown item.
    InstrumentValue dictionary_item(const std::string& name) const;
    /// Error 5 for all but 23, the experiment.
    static std::string parameter_name(std::int32_t index);

private:
    void preset_setpoints();
    void preset_recorded(const std::string& name, double value);
    const PlayedSpectrum& advance();
    void wait_for(std::size_t next) const;
    void lend(const PlayedSpectrum& spectrum);
    std::vector<MetaItem> metadata(const PlayedSpectrum& spectrum);

    Playback playback_;
    std::shared_ptr<Clock> clock_;
    ReplaySetpoints setpoints_;
    std::size_t next_ = 0;
    std::size_t shown_ = 0;
    bool shown_any_ = false;
    std::array<std::shared_ptr<const SquareLawCalibration>, 2> recorded_;  // last put into the store, by polarity
    std::array<CalibrationObject, 2> lent_;
    std::map<std::int32_t, float> channels_;
};

}  // namespace korvane::replay
