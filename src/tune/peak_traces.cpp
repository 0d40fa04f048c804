// Keeps the samples that peaks are searched in, for pictures.
#include <algorithm>
#include <cmath>

#include "korvane/forwarding.h"
#include "korvane/tune_history.h"

namespace korvane {

namespace {

constexpr double most_samples = 4096;
constexpr double fit_reach_widths = 3;  // to either side of the peak: a Gaussian is 1e-10 of its height there
constexpr int fit_points_per_sample = 4;

std::optional<PeakInfo> highest_peak(const PeakList& list) {
    std::optional<PeakInfo> highest;
    for (std::int32_t i = 0; i < list.count(); ++i)
        if (const PeakInfo peak = list.GetPeakAttributeInfo(i, false); !highest || peak.pkHeight > highest->pkHeight)
            highest = peak;
    return highest;
}

/// A Gaussian of the record where the finder does not tell what it fitted.
void add_fit(const PeakInfo& peak, const PeakList& list, PeakTrace& trace) {
    const double reach = std::ceil(fit_reach_widths * peak.pkWidth / trace.interval_ns);
    if (!(reach > 0 && reach < most_samples)) return;
    const double middle = std::round((peak.pkCentroid - trace.start_ns) / trace.interval_ns);
    trace.fit_start_ns = trace.start_ns + (middle - reach) * trace.interval_ns;
    trace.fit_interval_ns = trace.interval_ns / fit_points_per_sample;
    const auto points = static_cast<std::size_t>(2 * reach * fit_points_per_sample) + 1;
    trace.fit = list.fitted_counts(trace.fit_start_ns, trace.fit_interval_ns, points);
    trace.fit_is_told = trace.fit.size() == points;
    trace.fit.resize(points);
    for (std::size_t i = 0; i < points; ++i) {
        const double time_ns = trace.fit_start_ns + static_cast<double>(i) * trace.fit_interval_ns;
        const double sigmas = (time_ns - peak.pkCentroid) * fwhm_per_sigma / peak.pkWidth;
        if (!trace.fit_is_told) trace.fit[i] = trace.baseline + peak.pkHeight * std::exp(-0.5 * sigmas * sigmas);
        trace.fit[i] = std::round(10 * trace.fit[i]) / 10;  // more digits would be none of the samples
    }
}

/// The trace of a search that knows its axis and its window.
PeakTrace trace_of(const PeakTrace& search, std::span<const std::int32_t> samples, const PeakList* list) {
    PeakTrace trace = search;
    const auto size = static_cast<double>(samples.size());
    const auto sample_at = [&](double time_ns) {
        return std::clamp((time_ns - search.start_ns) / search.interval_ns, 0.0, size);
    };
    double first = std::ceil(sample_at(search.window_start_ns));
    double end = std::min(std::floor(sample_at(search.window_end_ns)) + 1, size);
    if (!(first < end)) return trace;
    const auto peak = list ? highest_peak(*list) : std::nullopt;
    if (end - first > most_samples) {
        const double middle = peak ? sample_at(peak->pkCentroid) : 0.5 * (first + end);
        first = std::clamp(std::round(middle) - most_samples / 2, first, end - most_samples);
        end = first + most_samples;
    }
    trace.start_ns = search.start_ns + first * search.interval_ns;
    const auto kept = samples.subspan(static_cast<std::size_t>(first), static_cast<std::size_t>(end - first));
    trace.counts.assign(kept.begin(), kept.end());
    if (peak) add_fit(*peak, *list, trace);
    return trace;
}

using Kept = std::shared_ptr<std::vector<PeakTrace>>;

struct TracingFinder final : ForwardingWith<ForwardingPeakFinder, Kept> {
    using ForwardingWith::ForwardingWith;
    void set_sampling_interval_ns(double interval_ns) override {
        ForwardingPeakFinder::set_sampling_interval_ns(search.interval_ns = interval_ns);
    }
    void set_search_start_ns(double time_ns) override {
        ForwardingPeakFinder::set_search_start_ns(search.window_start_ns = time_ns);
    }
    void set_search_end_ns(double time_ns) override {
        ForwardingPeakFinder::set_search_end_ns(search.window_end_ns = time_ns);
    }
    void set_samples(std::span<const std::int32_t> counts) override {
        ForwardingPeakFinder::set_samples(samples = counts);
    }
    PeakListObject run(double start_time_ns) override {
        PeakListObject list = ForwardingPeakFinder::run(search.start_ns = start_time_ns);
        search.baseline = baseline();
        state->push_back(trace_of(search, samples, list.get()));
        return list;
    }

    PeakTrace search;
    std::span<const std::int32_t> samples;
};

struct TracingLayer final : ForwardingWith<ForwardingInstrumentLayer, Kept> {
    using ForwardingWith::ForwardingWith;
    std::unique_ptr<PeakFinder> create_peak_finder() override {
        auto finder = ForwardingInstrumentLayer::create_peak_finder();
        return finder ? std::make_unique<TracingFinder>(std::move(finder), state) : nullptr;
    }
};

}  // namespace

std::string measure_record(TuneRecord& record, const Platform& platform, TuneGlobals& globals,
                           const VariantArray<double>& masses, double window_percent) {
    const TuneLimits limits = read_tune_limits(platform);
    const Kept kept = std::make_shared<std::vector<PeakTrace>>();
    Platform tracing = platform;
    tracing.instrument = std::make_shared<TracingLayer>(platform.instrument, kept);
    SpectrumParser parser(tracing);
    judge(record, measure_calibrants(parser, globals, masses, window_percent), limits);
    for (std::size_t i = 0; i < kept->size() && kept->size() == record.calibrants.size(); ++i)
        record.calibrants[i].trace = std::move((*kept)[i]);
    return parser.tune_log_path();
}

}  // namespace korvane
