#include "instrument/replay/replay_instrument.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "instrument/replay/recording_fault.h"
#include "platform/automation_arithmetic.h"

namespace korvane::replay {

namespace {

constexpr const char* experiment_name = "Experiment";
constexpr std::int32_t experiment = 0;
constexpr std::int32_t ready = 0;
constexpr std::int32_t pre_run = 1;
constexpr double highest_mass = 20000;

std::size_t slot_of(std::int32_t polarity) {
    return polarity == 0 ? 0 : 1;
}

std::int32_t sampling_rate_code(double interval_ns) {
    return interval_ns > 0.7 ? 1 : interval_ns > 0.35 ? 2 : 3;
}

}  // namespace

ReplayInstrument::ReplayInstrument(Playback playback, std::shared_ptr<Clock> clock)
    : playback_(std::move(playback)), clock_(std::move(clock)) {
    preset_setpoints();
    // A polarity that was not recorded borrows the law of the first spectrum.
    for (std::size_t slot = 0; slot < lent_.size(); ++slot)
        lent_[slot] = playback_.spectra.front().calibration->clone();
    for (auto spectrum = playback_.spectra.rbegin(); spectrum != playback_.spectra.rend(); ++spectrum)
        recorded_[slot_of(static_cast<std::int32_t>(spectrum->polarity))] = spectrum->calibration;
    for (std::size_t slot = 0; slot < lent_.size(); ++slot)
        if (recorded_[slot]) lent_[slot] = recorded_[slot]->clone();
}

void ReplayInstrument::preset_setpoints() {
    const PlayedSpectrum& first = playback_.spectra.front();
    const std::int32_t rate = sampling_rate_code(first.sampling_interval_ns);
    double largest_mass = 0;
    for (const PlayedSpectrum& spectrum : playback_.spectra)
        largest_mass = std::max(largest_mass, spectrum.mass_data.elements().back());
    const std::int32_t range = largest_mass <= 1700 ? 0 : largest_mass <= 3200 ? 1 : 2;
    setpoints_.preset(setpoint::sampling_rate, rate);
    setpoints_.preset(setpoint::source_type, playback_.source_code);
    setpoints_.preset(setpoint::mass_range, range);
    setpoints_.preset(setpoint::upper_mass_limit, range == 0 ? 1700 : range == 1 ? 3200 : highest_mass);
    for (const auto& [name, value] : playback_.setpoints) preset_recorded(name, value);
    setpoints_.preset(setpoint::polarity, static_cast<std::int32_t>(first.polarity));
}

void ReplayInstrument::preset_recorded(const std::string& name, double value) {
    try {
        setpoints_.preset(setpoints_.index_of(name), value);
    } catch (const Error& error) {
        RecordingPlace{playback_.file, {}}.fail("setpoint [" + name + "] cannot be [" + number_text(value) +
                                                "]: " + error.description());
    }
}

double ReplayInstrument::sampling_interval_seconds() const {
    return playback_.spectra[shown_].sampling_interval_ns * 1e-9;
}

InstrumentValue ReplayInstrument::dictionary_item(const std::string& name) const {
    const auto& calibration = *playback_.spectra.front().calibration;
    if (name == "CoefA") return calibration.coefficients().A;
    if (name == "CoefB") return calibration.coefficients().B;
    if (name == "CalReserved1") return calibration.settings().CalReserved1;
    if (name == "CalTraditionalWeighting") return calibration.settings().CalTraditionalWeighting;
    if (name == "CalPolynomialWeighting") return calibration.settings().CalPolynomialWeighting;
    raise_runtime_fault(error_number::invalid_call, "data dictionary item[" + name + "]");
}

std::string ReplayInstrument::parameter_name(std::int32_t index) {
    constexpr std::int32_t experiment_parameter = 23;
    if (index != experiment_parameter)
        raise_runtime_fault(error_number::invalid_call, "parameter[" + std::to_string(index) + "]");
    return experiment_name;
}

void ReplayInstrument::wait_for(std::size_t next) const {
    constexpr double longest_seconds = 1;
    constexpr double usual_seconds = 0.1;  // for the first spectrum after the last, whose distance nobody knows
    const auto minutes = [this](std::size_t i) { return playback_.spectra[i].scan_start_minutes; };
    const double distance = next == 0 ? usual_seconds : 60 * (minutes(next) - minutes(next - 1));
    const double seconds = std::clamp(distance, 0.0, longest_seconds);
    clock_->sleep_milliseconds(static_cast<int>(std::lround(seconds * 1000)));
}

const PlayedSpectrum& ReplayInstrument::advance() {
    if (shown_any_) wait_for(next_);
    shown_ = next_;
    shown_any_ = true;
    next_ = (next_ + 1) % playback_.spectra.size();
    lend(playback_.spectra[shown_]);
    return playback_.spectra[shown_];
}

/// A spectrum under another law than the one before it brings its calibration along, unless a client has put in one of
/// its own.
void ReplayInstrument::lend(const PlayedSpectrum& spectrum) {
    const std::size_t slot = slot_of(static_cast<std::int32_t>(spectrum.polarity));
    if (recorded_[slot] == spectrum.calibration) return;
    if (lent_[slot]->coefficients() == recorded_[slot]->coefficients()) lent_[slot] = spectrum.calibration->clone();
    recorded_[slot] = spectrum.calibration;
}

std::vector<MetaItem> ReplayInstrument::metadata(const PlayedSpectrum& spectrum) {
    std::vector<MetaItem> items{
        {experiment_name, experiment},
        {setpoints_.external_name(setpoint::polarity), static_cast<std::int32_t>(spectrum.polarity)}};
    for (const std::int32_t index : setpoints_.indexes())
        if (index != setpoint::polarity)
            items.push_back({setpoints_.external_name(index), setpoints_.value(index, 0, 0)});
    return items;
}

void ReplayInstrument::GetNextSpectrum(AcquiredSpectrum& spectrum) {
    const PlayedSpectrum& played = advance();
    std::vector<InstrumentValue> values;
    for (MetaItem& item : metadata(played)) values.push_back(std::move(item.value));
    spectrum.first_unused = 0;
    spectrum.retention_time = played.scan_start_minutes;
    spectrum.experiment = experiment;
    spectrum.mass_data = played.mass_data;
    spectrum.y_data = played.y_data;
    spectrum.meta_data = std::move(values);
    spectrum.start_time_ns = played.start_time_ns;
    spectrum.last_unused = 0;
}

VariantArray<std::string> ReplayInstrument::GetMetaDescription() {
    std::vector<std::string> names;
    for (const MetaItem& item : metadata(playback_.spectra[shown_]))
        names.push_back(item.name == experiment_name ? item.name : item.name + " (S)");
    return names;
}

std::vector<MetaItem> ReplayInstrument::next_spectrum_metadata() {
    return metadata(advance());
}

double ReplayInstrument::read_register(const std::string& path) {
    if (path == "ACTUAL.NDR[NRDYSTATE]") return ready;
    if (path == "REG[ACTUAL].OBJ[1].NDR[RUNSTATE]") return pre_run;
    raise_runtime_fault(error_number::invalid_call, "register[" + path + "]");
}

CalibrationObject ReplayInstrument::calibration(std::int32_t polarity) {
    return lent_[slot_of(polarity)];
}

void ReplayInstrument::store(std::int32_t polarity, const MassTimeCalibration& calibration) {
    lent_[slot_of(polarity)] = calibration.clone();
}

std::int32_t ReplayInstrument::write(std::int32_t channel, float value) {
    channels_[channel] = value;
    return 0;
}

double ReplayInstrument::read(std::int32_t channel) {
    const auto written = channels_.find(channel);
    return written == channels_.end() ? 0.0 : static_cast<double>(written->second);
}

}  // namespace korvane::replay
