// The samples kept for a picture are those that the peak was measured in, and the fit kept beside them is theirs.
#include "korvane/peak_traces.h"

#include <gtest/gtest.h>

#include <cmath>

#include "korvane/embedded.h"
#include "support/test_platform.h"

namespace korvane {
namespace {

TEST(PeakTraces, SamplesAndFitBelongToTheMeasuredPeak) {
    const TemporaryFolder folder;
    create_base_folder(folder.path() / "base");
    PeakTraces traces(make_embedded_platform({.base_folder = folder.path() / "base"}));
    TuneGlobals globals(traces.platform());
    SpectrumParser parser(traces.platform());
    const VariantArray<double> masses(std::vector<double>{158.9640, 600.0, 1926.6365});
    const auto measured = measure_calibrants(parser, globals, masses);
    const auto kept = traces.take();
    ASSERT_EQ(kept.size(), measured.size());
    EXPECT_FALSE(kept[1].counts.empty());
    EXPECT_TRUE(traces.take().empty());
    for (const std::size_t i : {0, 2}) {
        const PeakTrace& trace = kept[i];
        EXPECT_LE(trace.window_start_ns, trace.start_ns);
        EXPECT_LT(trace.window_end_ns - trace.start_ns, trace.interval_ns * static_cast<double>(trace.counts.size()));
        // Sample for sample the fit leaves what counting ions leaves, which a shift of a tenth of a width does not.
        double left = 0, all = 0;
        for (std::size_t point = 0; point < trace.fit.size(); point += 4) {
            const double time_ns = trace.fit_start_ns + static_cast<double>(point) * trace.fit_interval_ns;
            const auto sample = std::lround((time_ns - trace.start_ns) / trace.interval_ns);
            ASSERT_NEAR(trace.start_ns + static_cast<double>(sample) * trace.interval_ns, time_ns, 1e-6);
            const double counts = trace.counts.at(static_cast<std::size_t>(sample));
            left += std::abs(counts - trace.fit[point]);
            all += counts - trace.baseline;
        }
        EXPECT_NEAR(all, measured[i].ns.pkArea, 0.05 * all);
        EXPECT_LT(left, 0.06 * all);
    }
}

}  // namespace
}  // namespace korvane
