// The page of a tune: of the kept scene as text, of hostile names, of many calibrants. What its pictures may not lose.
#include "korvane/report.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cmath>
#include <cstdlib>

#include "korvane/tune_history.h"
#include "korvane/tune_run.h"
#include "support/test_platform.h"
#include "tune/svg.h"

namespace korvane {
namespace {

/// A tune of the default scene, with a calibration put off before it, and a search.
TuneRecord tune_of_the_kept_scene() {
    const EmbeddedBase world;
    const Platform platform = world.platform();
    TuneGlobals(platform).SetNewCalibrationWithTheseAAndt0Values_usec(0.450009, 0.02);
    write_text(world.folder.path() / "recipe.json",
               R"({"fit_spectra": 3, "masses": [158.964, 566.8885, 1110.7877, 2470.5358],
        "adjust": [{"setpoint": "FragmentTune", "mz": 566.8885, "target": 110000, "around_percent": 40}]})");
    TuneRecord record = begin_record(platform, "tune");
    constexpr std::array steps{TuneStep::ready, TuneStep::verify, TuneStep::adjust, TuneStep::fit, TuneStep::measure};
    EXPECT_EQ(run_tune(platform, read_tune_recipe(platform, world.folder.file("recipe.json")), steps, record), "");
    end_record(record, platform);
    record.id = 7;
    record.time = "2026-11-22T08:51:49Z";
    record.instrument = "simulated";
    record.log.clear();
    return record;
}

std::vector<TrendChart> kept_trends() {
    TrendChart chart{"Mass error that all calibrants share", "ppm", {}};
    for (int day = 1; day <= 30; ++day)
        chart.points.push_back({"2026-10-" + std::to_string(100 + day).substr(1), day == 21 ? 2.6 : std::sin(day), 0,
                                -2, 2, day == 21 ? "beyond a limit" : ""});
    return {chart};
}

TEST(Report, OfTheKeptSceneIsThatOfTheReview) {
    const std::string page = report_html(tune_of_the_kept_scene(), kept_trends());
    const auto golden = std::filesystem::path(KORVANE_SOURCE_DIR) / "tests/tune/report.html";
    if (std::getenv("KORVANE_KEEP_REPORT")) write_text(golden, page);
    EXPECT_TRUE(page == read_text(golden)) << "if the change is meant: KORVANE_KEEP_REPORT=1 test_tune, and look at it";
}

// Texts of users, instruments and files stay texts, in a page, in a picture and in the data.
TEST(Report, HostileNamesAreShownAsText) {
    const std::string name = "<script>alert(1)</script>\"'&\n\xE2\x80\xAE\xFF-->";
    TuneRecord record;
    record.time = record.kind = record.note = record.instrument = record.serial = record.verdict = name;
    record.setpoints = {{name, 1, 2}};
    record.searches = {{name, 100, 1000, 1, 2, name, {{1, 1, 500, 10}, {2, 1, 1000, NAN}}}};
    record.residuals = {{{}, 0, 0, 0, 0, 0, name}};
    RecordedCalibrant calibrant;
    calibrant.verdict.text = name;
    record.calibrants = {calibrant};
    const std::string page =
        report_html(record, std::vector<TrendChart>{{name, name, {{name, 1, NAN, NAN, NAN, name}}}});
    std::size_t scripts = 0;
    for (std::size_t at = page.find("<script"); at != std::string::npos; at = page.find("<script", at + 1)) ++scripts;
    EXPECT_EQ(scripts, 1U) << "the record's data alone";
    const std::string shown = page.substr(0, page.find("<script type=\"application/json\""));
    for (const char* part : {"<script>alert", "\"'&", "\xE2\x80\xAE", "\xFF", "-->"})
        EXPECT_EQ(shown.find(part), std::string::npos) << part;
    EXPECT_NE(page.find("&#60;script&#62;alert(1)&#60;/script&#62;&#34;&#39;&#38;[U+000A][U+202E]\xEF\xBF\xBD--&#62;"),
              std::string::npos);
}

TEST(Report, OfFiftyCalibrantsIsSmallAndSoonWritten) {
    TuneRecord record = tune_of_the_kept_scene();
    while (record.calibrants.size() < 50) record.calibrants.push_back(record.calibrants[record.calibrants.size() % 4]);
    std::size_t size = 0;
    double best_ms = INFINITY;
    for (int i = 0; i < 5; ++i) {
        const auto begin = std::chrono::steady_clock::now();
        size = report_html(record, kept_trends()).size();
        best_ms = std::min(best_ms,
                           std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin).count());
    }
    EXPECT_LT(size, 1'000'000U);
    const char* const most = std::getenv("KORVANE_REPORT_MS");
    EXPECT_LE(best_ms, most ? std::atof(most) : INFINITY);
}

// A line of any number of points over a few hundred columns keeps its lowest and its highest value.
TEST(Svg, LinesKeepTheirApex) {
    for (const std::size_t size : {1U, 100U, 300'000U})
        for (const std::size_t apex : {std::size_t{0}, size / 3, size - 1}) {
            std::vector<svg::Point> points;
            for (std::size_t i = 0; i < size; ++i)
                points.push_back({static_cast<double>(i), i == apex ? 50.0 : 1.0 + i % 2});
            svg::Panel panel({0, 0, 500, 100}, {{0, static_cast<double>(size)}}, {{0, 100}});
            panel.line(points, "apex");
            EXPECT_NE(panel.content().find(" 50"), std::string::npos) << size << ", " << apex;
            EXPECT_LT(panel.content().size(), 25'000U);
        }
}

// The samples kept for a picture are those that the peak was measured in, and the fit kept beside them is theirs.
TEST(PeakTrace, SamplesAndFitBelongToTheMeasuredPeak) {
    const EmbeddedBase world;
    const Platform platform = world.platform();
    TuneGlobals globals(platform);
    TuneRecord record;
    measure_record(record, platform, globals, VariantArray<double>({158.9640, 600.0, 1926.6365}));
    ASSERT_EQ(record.calibrants.size(), 3U);
    EXPECT_FALSE(record.calibrants[1].trace.value().counts.empty());
    for (const std::size_t i : {0, 2}) {
        const MeasuredCalibrant& measured = record.calibrants[i].measured;
        const PeakTrace& trace = record.calibrants[i].trace.value();
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
        EXPECT_NEAR(all, measured.ns.pkArea, 0.05 * all);
        EXPECT_LT(left, 0.06 * all);
    }
}

}  // namespace
}  // namespace korvane
