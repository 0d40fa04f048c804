// The page of a tune: of the kept scene as text, of hostile names, of many calibrants.
#include "korvane/report.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdlib>

#include "korvane/embedded.h"
#include "korvane/peak_traces.h"
#include "support/test_platform.h"

namespace korvane {
namespace {

/// A tune of the default scene, with a calibration put off before it, a search, and a history with one alarm.
TuneRecord tune_of_the_kept_scene() {
    const TemporaryFolder folder;
    create_base_folder(folder.path() / "base");
    EmbeddedOptions options;
    options.base_folder = folder.path() / "base";
    const Platform platform = make_embedded_platform(options);
    PeakTraces traces(platform);
    TuneGlobals globals(platform);
    SpectrumParser parser(traces.platform());
    TuneRecord record;
    record.id = 7;
    record.time = "2026-11-22T08:51:49Z";
    record.kind = "tune";
    record.instrument = "simulated";
    record.source = globals.GetSourceTypeStr();
    record.polarity = globals.GetPolarityStr();
    record.limits = read_tune_limits(platform);
    const VariantArray<double> masses(std::vector<double>{158.964, 566.8885, 1110.7877, 1654.6869, 2470.5358});
    globals.SetNewCalibrationWithTheseAAndt0Values_usec(0.450009, 0.02);
    const CalibrationObject before = globals.GetCurrentCalibrationObjFromDD();
    record.calibration_before = before->coefficients();
    const SecantOutcome outcome = adjust_by_secant(platform, {.setpoint = 30, .mz = 566.8885, .target = 60000});
    record.searches = {{"FragmentTune", 566.8885, 60000, 175, outcome.value, "within tolerance", outcome.probes}};
    record.setpoints = {{"FragmentTune", 175, outcome.value}, {"Skimmer1", 65, 65}};
    const CalibrationFit fit = fit_calibration(measure_calibrant_times(parser, globals, masses, 3), *before);
    record.residuals = fit.calibrants;
    record.calibration_after = fit.calibration->coefficients();
    globals.WriteThisCalibrationObjToDD(fit.calibration);
    traces.take();
    for (const MeasuredCalibrant& measured : measure_calibrants(parser, globals, masses))
        record.calibrants.push_back({measured, verdict_of(measured, *record.limits), {}});
    traces.give_to(record.calibrants);
    record.verdict = "ok";
    return record;
}

std::vector<TrendChart> kept_trends() {
    TrendChart chart{"Mass error that all calibrants share", "ppm", {}};
    for (int day = 1; day <= 30; ++day)
        chart.points.push_back({"2026-10-" + std::to_string(100 + day).substr(1) + "T08:00:00Z",
                                day == 21 ? 2.6 : std::sin(day), 0, -2, 2, day == 21 ? "beyond a limit" : ""});
    return {chart};
}

TEST(Report, OfTheKeptSceneIsThatOfTheReview) {
    const std::string page = report_html(tune_of_the_kept_scene(), kept_trends());
    const auto golden = std::filesystem::path(KORVANE_SOURCE_DIR) / "tests/tune/report.html";
    if (std::getenv("KORVANE_KEEP_REPORT")) write_text(golden, page);
    EXPECT_LE(page.size(), 60000U);
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
    for (const char* part : {"<script>alert", "\"'&", "\xE2\x80\xAE", "\xFF", "-->"})
        EXPECT_EQ(page.find(part), std::string::npos) << part;
    EXPECT_NE(page.find("&#60;script&#62;alert(1)&#60;/script&#62;&#34;&#39;&#38;[U+000A][U+202E]\xEF\xBF\xBD--&#62;"),
              std::string::npos);
}

TEST(Report, OfFiftyCalibrantsIsSmallAndSoonWritten) {
    TuneRecord record = tune_of_the_kept_scene();
    while (record.calibrants.size() < 50) record.calibrants.push_back(record.calibrants[record.calibrants.size() % 5]);
    std::size_t size = 0;
    double best_ms = INFINITY;
    for (int i = 0; i < 5; ++i) {
        const auto begin = std::chrono::steady_clock::now();
        size = report_html(record, kept_trends()).size();
        best_ms = std::min(best_ms,
                           std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin).count());
    }
    EXPECT_LT(size, 1'000'000U);
    RecordProperty("milliseconds", std::to_string(best_ms));
    std::printf("%.1f ms, %zu bytes\n", best_ms, size);
}

}  // namespace
}  // namespace korvane
