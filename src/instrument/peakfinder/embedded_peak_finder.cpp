#include "instrument/peakfinder/embedded_peak_finder.h"

#include <algorithm>
#include <cfenv>
#include <cmath>
#include <vector>

#include "instrument/peakfinder/background.h"
#include "instrument/peakfinder/candidate_search.h"
#include "instrument/peakfinder/measured_peak_list.h"
#include "instrument/peakfinder/peak_measurement.h"
#include "instrument/peakfinder/shoulder_search.h"
#include "instrument/peakfinder/tail_response.h"
#include "instrument/peakfinder/trait_estimation.h"

namespace korvane {

namespace {

constexpr double fwhm_of_sigma = 2.3548200450309493;
// Samples on either side of the window that are looked at for the background and for peaks which the window cuts.
constexpr double context_samples = 256;

/// The host's thread may round otherwise; the peaks are the same.
class NearestRounding {
public:
    NearestRounding() : before_(std::fegetround()) {
        if (before_ != FE_TONEAREST) std::fesetround(FE_TONEAREST);
    }
    ~NearestRounding() {
        if (before_ != FE_TONEAREST) std::fesetround(before_);
    }
    NearestRounding(const NearestRounding&) = delete;
    NearestRounding& operator=(const NearestRounding&) = delete;

private:
    int before_;
};

MeasuredPeak record_of(const FittedPeak& fitted, const SampleAxis& axis, const PeakTraits& traits, bool on_baseline) {
    const PeakFit& fit = fitted.fit;
    MeasuredPeak peak;
    PeakInfo& record = peak.record;
    const double tail = traits.tail_fraction * traits.tail_effect(fit.own_sigma * axis.interval_ns);
    const double sigma = fit.own_sigma / (1 + width_of_tail * tail);
    record.pkApexX = axis.time_ns(fit.shape.centre + top_of_tail * tail * sigma);
    record.pkStart = axis.time_ns(fitted.start);
    record.pkArea = fitted.area;
    record.pkCentroid = axis.time_ns(fit.shape.centre);
    record.pkWidth = fwhm_of_sigma * sigma * axis.interval_ns;
    record.pkHeight = fit.shape.height / (1 + height_of_tail * tail);
    record.pkResolution = record.pkCentroid / (2 * record.pkWidth);
    record.pkEnd = axis.time_ns(fitted.end);
    peak.uncertainty.centroid = fit.centre_error * axis.interval_ns;
    peak.uncertainty.height = fit.height_error * record.pkHeight;
    peak.uncertainty.width = fit.sigma_error * record.pkWidth;
    peak.uncertainty.area = fitted.area_error;
    peak.uncertainty.ions = std::max(0.0, fitted.area / traits.counts_per_ion);
    if (!on_baseline) {
        record.pkHeight += fitted.baseline;
        record.pkArea += fitted.baseline * std::max(0.0, std::floor(fitted.end) - std::ceil(fitted.start) + 1);
    }
    return peak;
}

}  // namespace

PeakListObject EmbeddedPeakFinder::run(double start_time_ns) {
    if (!(interval_ns_ > 0) || !std::isfinite(interval_ns_))
        raise_runtime_fault(error_number::invalid_call, "sampling interval of the peak finder");
    if (!std::isfinite(start_time_ns) || std::isnan(search_start_ns_) || std::isnan(search_end_ns_))
        raise_runtime_fault(error_number::invalid_call, "search time of the peak finder");
    const NearestRounding nearest;
    const SampleAxis axis{start_time_ns, interval_ns_};
    baseline_ = 0;
    const auto size = static_cast<double>(counts_.size());
    const double first = std::max(0.0, std::ceil(axis.sample(search_start_ns_)));
    const double end = std::min(size, std::floor(axis.sample(search_end_ns_)) + 1);
    if (!(first < end)) return std::make_shared<MeasuredPeakList>(std::vector<MeasuredPeak>());

    const auto context_first = static_cast<std::size_t>(std::max(0.0, first - context_samples));
    const auto context_end = static_cast<std::size_t>(std::min(size, end + context_samples));
    const Background background(counts_, context_first, context_end);
    baseline_ = background.mean_baseline(static_cast<std::size_t>(first), static_cast<std::size_t>(end));
    const auto chunks = busy_chunks(counts_, background);
    if (chunks.empty()) return std::make_shared<MeasuredPeakList>(std::vector<MeasuredPeak>());

    TraitEstimation estimation(counts_, axis, background, options_);
    const PeakTraits coarse = estimation.coarse(chunks);
    auto candidates = CandidateSearch(counts_, axis, background, coarse).search(chunks);
    const PeakTraits traits = estimation.refined(coarse, candidates);
    const double range_start_ns = axis.time_ns(static_cast<double>(context_first));
    const double range_end_ns = axis.time_ns(static_cast<double>(context_end));
    // Fewer counts an ion make shallower valleys count.
    if (!traits.width.agrees(coarse.width, range_start_ns, range_end_ns, 0.2) ||
        traits.ion_variance() < 0.85 * coarse.ion_variance())
        candidates = CandidateSearch(counts_, axis, background, traits).search(chunks);
    auto fitted = PeakMeasurement(counts_, axis, background, traits).measure(candidates);
    ShoulderSearch(counts_, axis, background, traits).take_apart(fitted);

    std::vector<MeasuredPeak> peaks;
    peaks.reserve(fitted.size());
    for (const auto& peak : fitted) {
        const MeasuredPeak measured = record_of(peak, axis, traits, baseline_removal_);
        const double centroid = measured.record.pkCentroid;
        if (centroid < search_start_ns_ || centroid > search_end_ns_) continue;
        if (peak.samples < minimum_samples_) continue;
        peaks.push_back(measured);
    }
    // Two that overlap may have changed places in the fit.
    std::stable_sort(peaks.begin(), peaks.end(), [](const MeasuredPeak& left, const MeasuredPeak& right) {
        return left.record.pkCentroid < right.record.pkCentroid;
    });
    return std::make_shared<MeasuredPeakList>(std::move(peaks));
}

std::unique_ptr<PeakFinder> make_peak_finder(const PeakFinderOptions& options) {
    return std::make_unique<EmbeddedPeakFinder>(options);
}

}  // namespace korvane
