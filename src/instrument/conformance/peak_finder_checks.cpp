#include "instrument/conformance/checks.h"
#include "platform/automation_arithmetic.h"

namespace korvane {

namespace {

// Two peaks on a flat baseline, far apart, without noise.
constexpr double interval_ns = 1;
constexpr double start_ns = 10000;
constexpr std::size_t sample_count = 4000;
constexpr double baseline_counts = 300;
constexpr double sigma_ns = 2.5;
constexpr double full_width_ns = 2.3548 * sigma_ns;

struct KnownPeak {
    double centre_ns;
    double height;
};
constexpr KnownPeak small_peak{11000.3, 20000};
constexpr KnownPeak large_peak{12500.6, 90000};

std::vector<std::int32_t> two_peaks() {
    std::vector<std::int32_t> counts;
    for (std::size_t sample = 0; sample < sample_count; ++sample) {
        double value = baseline_counts;
        for (const KnownPeak& peak : {small_peak, large_peak}) {
            const double distance = (start_ns + static_cast<double>(sample) * interval_ns - peak.centre_ns) / sigma_ns;
            value += peak.height * std::exp(-0.5 * distance * distance);
        }
        counts.push_back(to_int32(value));
    }
    return counts;
}

struct Search {
    std::unique_ptr<PeakFinder> finder;
    PeakListObject peaks;
};

Search search(InstrumentLayer& layer, const std::vector<std::int32_t>& counts, double from_ns, double to_ns) {
    Search result{layer.create_peak_finder(), nullptr};
    PeakFinder& finder = *result.finder;
    finder.set_sampling_interval_ns(interval_ns);
    finder.set_minimum_samples(3);
    finder.set_baseline_removal(1);
    finder.set_search_start_ns(from_ns);
    finder.set_search_end_ns(to_ns);
    finder.set_samples(counts);
    result.peaks = finder.run(start_ns);
    return result;
}

void check_list(ConformanceChecks& checks, const Search& found, InstrumentLayer& layer) {
    PeakList& peaks = *found.peaks;
    checks.check("PeakList.order", "by height, the largest first", [&] {
        peaks.order(height_position, 0);
        return unless(peaks.GetPeakAttributeInfo(0, true).pkHeight > peaks.GetPeakAttributeInfo(1, true).pkHeight,
                      "no");
    });
    checks.check("PeakList.GetPeakAttributeInfo", "centroid within a tenth of the width, height within 5 %", [&] {
        const PeakInfo peak = peaks.GetPeakAttributeInfo(0, true);
        return unless(std::fabs(peak.pkCentroid - large_peak.centre_ns) < 0.1 * full_width_ns &&
                          std::fabs(peak.pkHeight / large_peak.height - 1) < 0.05,
                      "centroid " + number_text(peak.pkCentroid) + ", height " + number_text(peak.pkHeight));
    });
    for (const std::int32_t index : {-1, 2})
        checks.refuses("PeakList.GetPeakAttributeInfo", "error 9 for index " + std::to_string(index) + " of 2 peaks",
                       error_number::subscript, "", [&] { peaks.GetPeakAttributeInfo(index, true); });
    CalibrationObject calibration;
    checks.check("PeakList.convert", "gives amu by the calibration, and nanoseconds on request", [&] {
        const auto globals = layer.create_globals();
        globals->initialise();
        calibration = globals->calibrations().calibration(0)->clone();
        peaks.convert(*calibration, convert_to_amu_mode);
        const double mass = peaks.GetPeakAttributeInfo(0, true).pkCentroid;
        const double time = peaks.GetPeakAttributeInfo(0, false).pkCentroid;
        return unless(std::fabs(calibration->mass_from_time(time) - mass) <= 1e-6 * mass,
                      number_text(mass) + " amu at " + number_text(time) + " ns");
    });
    if (!calibration) return;
    checks.check("PeakList.convert", "a second time changes nothing", [&] {
        const PeakInfo once = peaks.GetPeakAttributeInfo(0, true);
        peaks.convert(*calibration, convert_to_amu_mode);
        return unless(peaks.GetPeakAttributeInfo(0, true) == once, "it does");
    });
    checks.refuses("PeakList.convert", "error 5 for mode 99", error_number::invalid_call, "",
                   [&] { peaks.convert(*calibration, 99); });
}

}  // namespace

void check_peak_finder(ConformanceChecks& checks, InstrumentLayer& layer) {
    const std::vector<std::int32_t> counts = two_peaks();
    const double end_ns = start_ns + static_cast<double>(sample_count) * interval_ns;
    Search found;
    checks.check("PeakFinder.run", "finds two peaks", [&] {
        found = search(layer, counts, start_ns, end_ns);
        if (!found.peaks) return std::string("no list");
        return unless(found.peaks->count() == 2, std::to_string(found.peaks->count()));
    });
    checks.check("PeakFinder.run", "finds those of the window only", [&] {
        const Search one = search(layer, counts, small_peak.centre_ns - 100, small_peak.centre_ns + 100);
        const std::int32_t count = one.peaks ? one.peaks->count() : 0;
        return unless(count == 1, std::to_string(count));
    });
    checks.check("PeakFinder.run", "finds none where there is none", [&] {
        const Search none = search(layer, counts, large_peak.centre_ns + 200, large_peak.centre_ns + 800);
        return unless(!none.peaks || none.peaks->count() == 0, "some");
    });
    checks.check("PeakFinder.baseline", "within 10 %", [&] {
        const double baseline = found.finder ? found.finder->baseline() : 0;
        return unless(std::fabs(baseline / baseline_counts - 1) < 0.1, number_text(baseline));
    });
    if (found.peaks && found.peaks->count() == 2) check_list(checks, found, layer);
}

}  // namespace korvane
