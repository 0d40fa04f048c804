// The peaks of recorded spectra, whatever law their axes follow.
#include <charconv>
#include <limits>

#include "instrument/peakfinder/measured_peak_list.h"
#include "instrument/replay/axis_fit.h"
#include "instrument/replay/recording.h"
#include "korvane/embedded_parts.h"
#include "korvane/instrument_contract.h"

namespace korvane {

namespace {

using replay::RecordedSpectrum;
using replay::Recording;
using replay::RecordingPlace;

/// The numbers of a line; nothing where it holds anything else, or not two.
std::optional<std::pair<double, double>> two_numbers(std::string_view line) {
    constexpr std::string_view between = " \t,;\r";
    double numbers[2];
    for (double& number : numbers) {
        line.remove_prefix(std::min(line.find_first_not_of(between), line.size()));
        const auto [end, fault] = std::from_chars(line.data(), line.data() + line.size(), number);
        if (fault != std::errc()) return std::nullopt;
        line.remove_prefix(static_cast<std::size_t>(end - line.data()));
        if (!line.empty() && between.find(line.front()) == std::string_view::npos) return std::nullopt;
    }
    if (line.find_first_not_of(between) != std::string_view::npos) return std::nullopt;
    return std::pair(numbers[0], numbers[1]);
}

/// A spectrum that stands in a text, a line a sample: m/z and counts, with blanks, tabs, a comma or a semicolon
/// between. Empty lines, lines that begin with #, and a first line of titles are passed over. Fails naming the line
/// that is something else, and for m/z that do not ascend from above 0 or are those of centroids.
Recording parse_text_spectrum(std::string_view text, const std::string& file) {
    const RecordingPlace place{file, {}};
    RecordedSpectrum spectrum;
    bool is_first = true;
    for (std::size_t number = 1, begin = 0; begin < text.size(); ++number) {
        const std::size_t end = std::min(text.find('\n', begin), text.size());
        const std::string_view line = text.substr(begin, end - begin);
        begin = end + 1;
        const std::size_t first = line.find_first_not_of(" \t\r");
        if (first == std::string_view::npos || line[first] == '#') continue;
        const auto sample = two_numbers(line);
        if (!sample && !is_first)
            place.fail("line ", number, " [", line.substr(0, 60), "] is not the m/z and the counts of a sample");
        is_first = false;
        if (!sample) continue;
        spectrum.mz.push_back(sample->first);
        spectrum.intensity.push_back(sample->second);
    }
    if (spectrum.mz.empty()) place.fail("this is neither mzML nor a text of m/z and counts, a line a sample");
    replay::check_samples(spectrum, place);
    if (!replay::is_spaced_as_profile(spectrum.mz))
        place.fail("there is no profile spectrum: centroids, by their spacing");
    Recording recording;
    recording.file = file;
    recording.spectra.push_back(std::move(spectrum));
    return recording;
}

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

/// Counts as the finder takes them: fractions, and counts beyond 32 bits, in smaller or larger units.
double finder_unit(const std::vector<double>& intensity) {
    constexpr double largest = 1 << 30, digits = 1 << 24, smallest = -1000;
    double most = 0;
    bool whole = true;
    for (const double value : intensity) {
        most = std::max(most, std::abs(value));
        whole = whole && value == std::round(value);
    }
    return (whole && most <= largest) || most == 0 ? 1
                                                   : std::exp2(std::max(smallest, std::ceil(std::log2(most / digits))));
}

/// The list in the units of the file.
PeakListObject scaled(const PeakList& list, double unit) {
    std::vector<MeasuredPeak> peaks;
    for (std::int32_t i = 0; i < list.count(); ++i) {
        peaks.push_back({list.GetPeakAttributeInfo(i, true), *list.uncertainty(i), *list.quality(i)});
        auto& [record, errors, quality, signal] = peaks.back();
        for (double* counts : {&record.pkHeight, &record.pkArea, &errors.height, &errors.area}) *counts *= unit;
    }
    return std::make_shared<MeasuredPeakList>(std::move(peaks));
}

PeakListObject peaks_of(const RecordedSpectrum& spectrum, const RecordingPlace& place) {
    std::vector<double> roots(spectrum.mz.size());
    std::ranges::transform(spectrum.mz, roots.begin(), [](double mz) { return std::sqrt(mz); });
    const auto finder = make_peak_finder(spectrum.peak_finder);
    if (roots.size() < 2 || !(roots.front() < roots.back())) return finder->set_sampling_interval_ns(1), finder->run(0);
    const std::vector<std::int64_t> positions = replay::count_steps(roots, replay::most_samples_for_one);
    if (positions.back() >= replay::largest_spectrum_samples)
        place.fail("m/z array: with the samples that were left out there are ", positions.back() + 1, ", more than ",
                   replay::largest_spectrum_samples);
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
    return unit == 1 ? list : scaled(*list, unit);
}

}  // namespace

void search_profiles(Files& files, const std::string& file, const RecordingOptions& options,
                     const SpectrumSearched& searched) {
    std::string bytes = replay::recording_bytes(files, file);
    const std::size_t first = bytes.find_first_not_of(" \t\r\n\xEF\xBB\xBF");
    const bool is_xml =
        first != std::string::npos && (bytes[first] == '<' || bytes[first] == '\xFE' || bytes[first] == '\xFF');
    const Recording recording =
        is_xml ? replay::parse_recording(std::move(bytes), file, options) : parse_text_spectrum(bytes, file);
    recording.tell(options);
    std::size_t number = 0;
    for (const RecordedSpectrum& spectrum : recording.spectra)
        searched({spectrum.id, spectrum.ms_level, spectrum.polarity, spectrum.scan_start_minutes,
                  peaks_of(spectrum, {file, spectrum.id})},
                 ++number, recording.spectra.size());
}

}  // namespace korvane
