// The peaks of recorded spectra, whatever law their axes follow.
#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <span>

#include "instrument/replay/mzml_reader.h"
#include "instrument/replay/text_spectrum.h"
#include "korvane/embedded_parts.h"
#include "korvane/forwarding.h"
#include "korvane/instrument_contract.h"

namespace korvane {

namespace {

using replay::RecordedSpectrum;
using replay::RecordingPlace;

/// Masses between the samples of an axis: straight lines between the square roots, in which the axes of time-of-flight
/// analysers are nearly even.
class SampledMasses final : public MassTimeCalibration {
public:
    SampledMasses(std::vector<double> times_ns, std::vector<double> roots)
        : times_ns_(std::move(times_ns)), roots_(std::move(roots)) {}

    double mass_from_time(double time_ns) const override { return std::pow(read(times_ns_, roots_, time_ns), 2); }
    double time_from_mass(double mass) const override { return read(roots_, times_ns_, std::sqrt(mass)); }
    std::shared_ptr<MassTimeCalibration> clone() const override { return std::make_shared<SampledMasses>(*this); }
    // It has no law.
    CalibrationCoefficients coefficients() const override { return {}; }
    void set_coefficients(const CalibrationCoefficients&) override {}
    CalibrationSettings settings() const override { return {}; }
    void set_settings(const CalibrationSettings&) override {}
    VariantArray<std::int32_t> use_flags() const override { return {}; }

private:
    static double read(const std::vector<double>& from, const std::vector<double>& to, double place) {
        const auto above = std::upper_bound(from.begin() + 1, from.end() - 1, place) - from.begin();
        const auto i = static_cast<std::size_t>(above);
        return to[i - 1] + (to[i] - to[i - 1]) * (place - from[i - 1]) / (from[i] - from[i - 1]);
    }

    std::vector<double> times_ns_, roots_;
};

/// The sampling step about a distance of neighbouring roots: nearly the smallest one to either side, and of both sides
/// the larger, since the step may be another one beyond a hole.
double step_about(std::span<const double> distances, std::size_t place) {
    constexpr std::size_t reach = 16, rank = 2;
    const std::size_t first = place - std::min(place, reach), end = std::min(distances.size(), place + reach + 1);
    double step = 0;
    for (const auto side : {distances.subspan(first, place + 1 - first), distances.subspan(place, end - place)}) {
        std::vector<double> sorted(side.begin(), side.end());
        const auto low = sorted.begin() + static_cast<std::ptrdiff_t>(std::min(rank, sorted.size() - 1));
        std::nth_element(sorted.begin(), low, sorted.end());
        step = std::max(step, *low);
    }
    return step;
}

/// Numbers of the samples on an axis with those that were left out; a hole counts as `most_samples_for_one` at most.
std::vector<std::int64_t> positions_of(const std::vector<double>& roots) {
    constexpr double alike = 0.25, most = replay::most_samples_for_one;
    std::vector<double> distances(roots.size());
    std::adjacent_difference(roots.begin(), roots.end(), distances.begin());
    distances.erase(distances.begin());
    std::vector<std::int64_t> positions(roots.size());
    double step = 0;
    for (std::size_t i = 0; i < distances.size(); ++i) {
        double samples = 1;
        if (!(std::abs(distances[i] - step) < alike * step))
            samples = std::clamp(std::round(distances[i] / step_about(distances, i)), 1.0, most);
        step = distances[i] / samples;
        positions[i + 1] = positions[i] + static_cast<std::int64_t>(samples);
    }
    return positions;
}

/// Counts as the finder takes them: fractions, and counts beyond 32 bits, in smaller or larger units.
double finder_unit(const std::vector<double>& intensity) {
    constexpr double largest = 1 << 30, digits = 1 << 24;
    double most = 0;
    bool whole = true;
    for (const double value : intensity) {
        most = std::max(most, std::abs(value));
        whole = whole && value == std::round(value);
    }
    return (whole && most <= largest) || most == 0 ? 1 : std::exp2(std::ceil(std::log2(most / digits)));
}

/// The list in the units of the file.
class ScaledList final : public ForwardingPeakList {
public:
    ScaledList(PeakListObject list, double unit) : ForwardingPeakList(std::move(list)), unit_(unit) {}

    PeakInfo GetPeakAttributeInfo(std::int32_t index, bool current_units) const override {
        PeakInfo record = ForwardingPeakList::GetPeakAttributeInfo(index, current_units);
        record.pkHeight *= unit_;
        record.pkArea *= unit_;
        return record;
    }
    std::optional<PeakUncertainty> uncertainty(std::int32_t index) const override {
        auto errors = ForwardingPeakList::uncertainty(index);
        errors->height *= unit_;
        errors->area *= unit_;
        return errors;
    }

private:
    double unit_;
};

PeakListObject peaks_of(const RecordedSpectrum& spectrum, const RecordingPlace& place) {
    std::vector<double> roots(spectrum.mz.size());
    std::ranges::transform(spectrum.mz, roots.begin(), [](double mz) { return std::sqrt(mz); });
    const auto finder = make_peak_finder(spectrum.peak_finder);
    if (roots.size() < 2) return finder->set_sampling_interval_ns(1), finder->run(0);
    const std::vector<std::int64_t> positions = positions_of(roots);
    if (positions.back() >= replay::largest_spectrum_samples)
        place.fail("m/z array: with the samples that were left out there are " + std::to_string(positions.back() + 1) +
                   ", more than " + std::to_string(replay::largest_spectrum_samples));
    // Widths grow with the flight time, so that its beginning matters: where the straight line of the roots has its.
    const double interval_ns = spectrum.sampling_interval_ns.value_or(1);
    const double steps_before = roots.front() / (roots.back() - roots.front()) * static_cast<double>(positions.back());
    const double start_ns = spectrum.first_flight_time_ns.value_or(steps_before * interval_ns);
    const double unit = finder_unit(spectrum.intensity);
    std::vector<std::int32_t> counts(static_cast<std::size_t>(positions.back()) + 1);
    std::vector<double> times_ns(roots.size());
    for (std::size_t i = 0; i < roots.size(); ++i) {
        counts[static_cast<std::size_t>(positions[i])] =
            static_cast<std::int32_t>(std::lround(spectrum.intensity[i] / unit));
        times_ns[i] = start_ns + static_cast<double>(positions[i]) * interval_ns;
    }
    finder->set_sampling_interval_ns(interval_ns);
    finder->set_minimum_samples(contract::peak_finder.minimum_samples);
    finder->set_baseline_removal(contract::peak_finder.baseline_removal);
    finder->set_search_start_ns(-std::numeric_limits<double>::infinity());
    finder->set_search_end_ns(std::numeric_limits<double>::infinity());
    finder->set_samples(counts);
    auto list = finder->run(start_ns);
    list->convert(SampledMasses(std::move(times_ns), std::move(roots)), convert_to_amu_mode);
    if (unit != 1) list = std::make_shared<ScaledList>(std::move(list), unit);
    return list;
}

}  // namespace

void search_profiles(Files& files, const std::string& file, const RecordingOptions& options,
                     const SpectrumSearched& searched) {
    std::string bytes = replay::recording_bytes(files, file);
    const std::size_t first = bytes.find_first_not_of(" \t\r\n\xEF\xBB\xBF");
    const bool is_xml =
        first != std::string::npos && (bytes[first] == '<' || bytes[first] == '\xFE' || bytes[first] == '\xFF');
    const replay::Recording recording =
        is_xml ? replay::parse_recording(std::move(bytes), file, options) : replay::parse_text_spectrum(bytes, file);
    if (options.tell)
        for (const std::string& line : recording.notes.lines()) options.tell("recording [" + file + "]: " + line);
    std::size_t number = 0;
    for (const RecordedSpectrum& spectrum : recording.spectra)
        searched({spectrum.id, spectrum.ms_level, spectrum.polarity, spectrum.scan_start_minutes,
                  peaks_of(spectrum, {file, spectrum.id})},
                 ++number, recording.spectra.size());
}

}  // namespace korvane
