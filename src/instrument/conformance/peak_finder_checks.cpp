// The peak finder, on two peaks far apart on a flat baseline without noise.
#include <cmath>

#include "instrument/conformance/checks.h"
#include "platform/automation_arithmetic.h"

namespace korvane {

namespace {

constexpr double interval_ns = 1;
constexpr double start_ns = 10000;
constexpr double end_ns = 14000;
constexpr double baseline_counts = 300;
constexpr double sigma_ns = 2.5;
constexpr double full_width_ns = fwhm_per_sigma * sigma_ns;

struct KnownPeak {
    double centre_ns;
    double height;
};
constexpr KnownPeak small_peak{11000.3, 20000};
constexpr KnownPeak large_peak{12500.6, 90000};

std::vector<std::int32_t> two_peaks() {
    std::vector<std::int32_t> counts;
    for (double time_ns = start_ns; time_ns < end_ns; time_ns += interval_ns) {
        double value = baseline_counts;
        for (const KnownPeak& peak : {small_peak, large_peak})
            value += peak.height * std::exp(-0.5 * std::pow((time_ns - peak.centre_ns) / sigma_ns, 2));
        counts.push_back(to_int32(value));
    }
    return counts;
}

struct Search {
    const char* where;
    double from_ns, to_ns;
    std::int32_t peaks;
};
constexpr Search searches[] = {{"the gap", large_peak.centre_ns + 200, large_peak.centre_ns + 800, 0},
                               {"a window", small_peak.centre_ns - 100, small_peak.centre_ns + 100, 1},
                               {"the whole spectrum", start_ns, end_ns, 2}};

void check_list(ConformanceChecks& checks, PeakList& peaks, const CalibrationObject& calibration) {
    const std::string get = "PeakList.GetPeakAttributeInfo";
    checks.check("PeakList.order", "by height, the largest first", [&] {
        peaks.order(height_position, 0);
        const double first = peaks.GetPeakAttributeInfo(0, true).pkHeight;
        return unless(first > peaks.GetPeakAttributeInfo(1, true).pkHeight, "the smaller is first");
    });
    checks.check(get, "centroid within a tenth of the width, height within 5 %", [&] {
        const PeakInfo peak = peaks.GetPeakAttributeInfo(0, true);
        return first_of(unless_near(peak.pkCentroid, large_peak.centre_ns, 0.1 * full_width_ns / large_peak.centre_ns),
                        unless_near(peak.pkHeight, large_peak.height, 0.05));
    });
    for (const std::int32_t index : {-1, 2})
        checks.refuses(get + (" of peak " + text_of(index)), error_number::subscript, "",
                       [&] { peaks.GetPeakAttributeInfo(index, true); });
    if (!calibration) return;
    checks.check("PeakList.convert", "gives amu by the calibration, and nanoseconds on request", [&] {
        peaks.convert(*calibration, convert_to_amu_mode);
        const double time_ns = peaks.GetPeakAttributeInfo(0, false).pkCentroid;
        return unless_near(peaks.GetPeakAttributeInfo(0, true).pkCentroid, calibration->mass_from_time(time_ns), 1e-6);
    });
    checks.check("PeakList.convert", "a second time changes nothing", [&] {
        const PeakInfo once = peaks.GetPeakAttributeInfo(0, true);
        peaks.convert(*calibration, convert_to_amu_mode);
        return unless(peaks.GetPeakAttributeInfo(0, true) == once, "it does");
    });
    checks.refuses("PeakList.convert of mode 99", error_number::invalid_call, "",
                   [&] { peaks.convert(*calibration, 99); });
}

}  // namespace

void check_peak_finder(ConformanceChecks& checks, InstrumentLayer& layer, const CalibrationObject& calibration) {
    const std::vector<std::int32_t> counts = two_peaks();
    std::unique_ptr<PeakFinder> finder;
    PeakListObject peaks;
    bool found = false;
    for (const Search& search : searches)
        found = checks.check("PeakFinder.run", text_of(search.peaks) + " peaks in " + search.where, [&] {
            finder = layer.create_peak_finder();
            if (!finder) return std::string("create_peak_finder made nothing");
            finder->set_sampling_interval_ns(interval_ns);
            finder->set_minimum_samples(contract::peak_finder.minimum_samples);
            finder->set_baseline_removal(contract::peak_finder.baseline_removal);
            finder->set_search_start_ns(search.from_ns);
            finder->set_search_end_ns(search.to_ns);
            finder->set_samples(counts);
            peaks = finder->run(start_ns);
            const std::int32_t count = peaks ? peaks->count() : 0;
            return unless(count == search.peaks, text_of(count));
        });
    if (!found) return;
    checks.check("PeakFinder.baseline", "within 10 %",
                 [&] { return unless_near(finder->baseline(), baseline_counts, 0.1); });
    check_list(checks, *peaks, calibration);
}

}  // namespace korvane
