#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "instrument/peakfinder/embedded_peak_finder.h"
#include "korvane/spectrum_parser.h"
#include "parser/calibrant_measurement_texts.h"
#include "support/spectrum_world.h"

namespace korvane {
namespace {

using testing::Contains;
using testing::Each;
using testing::HasSubstr;
using testing::Not;
using Lines = std::vector<std::string>;

struct Calibrants {
    SpectrumWorld world;
    SpectrumParser parser{world.platform()};

    static VariantArray<double> list(std::vector<double> masses) { return masses; }
    double scintillator() { return world.instrument().setpoint(69).value; }
    Lines writes() {
        Lines found;
        for (const std::string& line : world.instrument().journal)
            if (line.starts_with("write")) found.push_back(line);
        return found;
    }
};

// One calibrant with two peaks, one with none.
TEST(CalibrantPeaks, WholeTraceAndTuneLogOfOneMeasurement) {
    Calibrants test;
    test.world.instrument().setpoint(69).value = 5;
    test.world.set_peak(1600, 0);
    test.world.set_peak(400.5, 7000);
    test.world.test.trace().lines.clear();
    const auto peaks = test.parser.GetPeakInfoForCalibrantMasses(Calibrants::list({400, 1600}));
    EXPECT_EQ(joined(test.world.test.trace().lines), calibrant_measurement_trace);
    EXPECT_EQ(joined(test.world.tune_log()), calibrant_measurement_log);
    EXPECT_EQ(test.writes(), (Lines{"write 69 = 0 (double)", "write 69 = 5 (double)"}));
    ASSERT_EQ(peaks.rows(), 2);
    ASSERT_EQ(peaks.columns(), 2);
    EXPECT_EQ(peaks.at(0, 0).pkHeight, 7000);
    EXPECT_NEAR(peaks.at(0, 1).pkCentroid, 400.5, 1e-9);
    EXPECT_EQ(peaks.at(1, 0), PeakInfo{});
    EXPECT_EQ(peaks.at(1, 1), PeakInfo{});
}

TEST(CalibrantPeaks, GivenWindowLeavesTheConfigurationAloneAndPassesNoMassWindow) {
    Calibrants test;
    double window = 5;
    test.parser.GetPeakInfoForCalibrantMasses(Calibrants::list({400}), window);
    EXPECT_EQ(window, 5);
    EXPECT_THAT(test.world.test.trace().lines, Contains("GetPeakInfoForCalibrantMasses: dPeakFindTimeWindow = 5"));
    EXPECT_THAT(test.world.test.trace().lines, Not(Contains(HasSubstr("PeakHandling"))));
    window = 0;  // falls back to a mass window of the amu passed on
    test.parser.GetPeakInfoForCalibrantMasses(Calibrants::list({400}), window);
    EXPECT_THAT(test.world.test.trace().lines, Contains("CalculateTimeIndex: MassWindow(0) = [400, 400]"));
}

TEST(CalibrantPeaks, ConfiguredPercentageIsAlsoTheMassWindowItFallsBackTo) {
    Calibrants test;
    test.world.test.limit("PeakHandling", "PeakFindWindowInPercentT", "-0.5");
    double window = -1;
    EXPECT_EQ(error_of([&] { test.parser.GetPeakInfoForCalibrantMasses({}, window); }).number(), -1);
    EXPECT_EQ(window, -0.5) << "the caller's window is replaced by the configured one";
    Calibrants zero;
    zero.world.test.limit("PeakHandling", "PeakFindWindowInPercentT", "0");
    zero.parser.GetPeakInfoForCalibrantMasses(Calibrants::list({400}));
    EXPECT_THAT(zero.world.test.trace().lines, Contains("CalculateTimeIndex: Using deltaMass window"));
}

TEST(CalibrantPeaks, ScintillatorAtZeroIsStillWrittenBack) {
    Calibrants test;
    test.parser.GetPeakInfoForCalibrantMasses();
    EXPECT_EQ(test.writes(), Lines{"write 69 = 0 (double)"});
    EXPECT_THAT(test.world.test.trace().lines, Not(Contains(HasSubstr("Scint NOT TTI mode"))));
}

TEST(CalibrantPeaks, ErrorLeavesTheScintillatorAtZero) {
    Calibrants test;
    test.world.instrument().setpoint(69).value = 5;
    test.world.instrument().acquire = [&](AcquiredSpectrum& answer, int) {
        test.world.fill(answer);
        answer.meta_data = VariantArray<InstrumentValue>(std::vector<InstrumentValue>{0, 1});
        test.world.test.clock->advance(46);
    };
    const Error error = error_of([&] { test.parser.GetPeakInfoForCalibrantMasses(); });
    EXPECT_EQ(error.number(), -8);
    EXPECT_EQ(error.source(), "GetPeakInfoForCalibrantMasses");
    EXPECT_EQ(test.scintillator(), 0);
}

TEST(CalibrantPeaks, ListWithALowerBoundKeepsItsPositions) {
    Calibrants test;
    const auto peaks =
        test.parser.GetPeakInfoForCalibrantMasses(VariantArray<double>(std::vector<double>{400, 900}, 2));
    ASSERT_EQ(peaks.rows(), 4);
    EXPECT_EQ(peaks.at(0, 0).pkHeight, 0);
    EXPECT_EQ(peaks.at(1, 0).pkHeight, 0);
    EXPECT_EQ(peaks.at(2, 0).pkCentroid, 20000);
    EXPECT_EQ(peaks.at(3, 0).pkCentroid, 30000);
}

TEST(CalibrantPeaks, ListsThatCannotBeSizedAreErrors) {
    Calibrants test;
    const auto number_of = [&](const VariantArray<double>& masses) {
        return error_of([&] { test.parser.GetPeakInfoForCalibrantMasses(masses); }).number();
    };
    EXPECT_EQ(number_of(std::vector<double>{}), error_number::subscript);
    EXPECT_EQ(number_of(VariantArray<double>(std::vector<double>{400, 900}, -1)), error_number::subscript);
    EXPECT_EQ(number_of(VariantArray<double>()), error_number::type_mismatch);
}

TEST(CalibrantPeaks, DefaultListIsClippedToTheMassRange) {
    Calibrants test;
    test.world.instrument().setpoint(128).value = 0;
    EXPECT_EQ(test.parser.GetPeakInfoForCalibrantMasses().rows(), 4);
}

TEST(CalibrantPeaks, HeightAtTheMinimumIsInformationAndBelowAWarning) {
    Calibrants test;
    test.world.set_peak(400, 1000);
    test.world.set_peak(900, std::nextafter(1000, 0));
    test.parser.GetPeakInfoForCalibrantMasses(Calibrants::list({400, 900}));
    const Lines log = test.world.tune_log();
    EXPECT_THAT(log, Contains("AUTOTUNE LOG: INFO: FindPeakForMass: right after FindPeakForMass(),  "
                              "massIndex/mass[0/400], peakInfoInNanoseconds.pkHeight = 1000"));
    EXPECT_THAT(log, Contains("AUTOTUNE LOG: WARNING: FindPeakForMass: right after FindPeakForMass() "
                              "massIndex/mass[1/900], peakInfoInNanoseconds.pkHeight = 999.9999999999999"));
}

TEST(CalibrantPeaks, ListsOfAMassAreInAmuAndAMissingPeakIsAnEmptyList) {
    Calibrants test;
    test.world.set_peak(900, 0);
    const auto lists = test.parser.GetPeakListsForCalibrantMasses(Calibrants::list({400, 900}));
    ASSERT_EQ(lists.size(), 2);
    EXPECT_NEAR(lists.at(0)->GetPeakAttributeInfo(0, true).pkCentroid, 400, 1e-9);
    EXPECT_EQ(lists.at(1)->count(), 0);
    const Lines log = test.world.tune_log();
    EXPECT_THAT(log,
                Contains("AUTOTUNE LOG: INFO: FindPeakForMass: right after FindPeakForMass(),  massIdx/mass[0/400], "
                         "peakList.GetPeakAttributeInfo(0, True).pkHeight = 5000"));
    EXPECT_THAT(log, Contains("AUTOTUNE LOG: PeakFind: STATUS: Abundance of most abundant peak: 0"));
    EXPECT_EQ(test.writes(), Lines{"write 69 = 0 (double)"});
}

TEST(CalibrantPeaks, UncertaintiesAreThoseInNanosecondsOfTheLastMeasurement) {
    Calibrants test;
    test.world.peaks.uncertainty = PeakUncertainty{0.25, 1, 2, 3, 4};
    test.world.set_peak(900, 0);
    test.parser.GetPeakInfoForCalibrantMasses(Calibrants::list({400, 900}));
    const auto& stated = test.parser.last_uncertainties();
    ASSERT_EQ(stated.size(), 2);
    EXPECT_EQ(stated[0].value().centroid, 0.25);
    EXPECT_FALSE(stated[1].has_value());
    test.world.instrument().fault_at = test.world.instrument().calls + 1;
    EXPECT_THROW(test.parser.GetPeakInfoForCalibrantMasses(), Error);
    EXPECT_TRUE(test.parser.last_uncertainties().empty());
}

// Single windows, through the public members.

struct WindowSearch : Calibrants {
    WindowSearch() {
        parser.CalculateTimeIndex(world.axis, calibration, list({400}), 0, 1.0F);
        world.peaks.journal.clear();
    }
    std::int32_t find() {
        return parser.FindPeakForMass(position, SpectrumWorld::start_ns, world.samples, ns, amu, baseline, calibration);
    }
    bool outputs_untouched() const { return ns == PeakInfo{1, 1, 1, 1, 1, 1, 1, 1} && amu == ns && baseline == -3; }

    CalibrationObject calibration = world.instrument().calibrations[0];
    std::int32_t position = 0;
    PeakInfo ns{1, 1, 1, 1, 1, 1, 1, 1}, amu = ns;
    double baseline = -3;
};

TEST(WindowSearch, FinderIsSetUpInItsOrderWithTheWholeSpectrum) {
    WindowSearch test;
    EXPECT_EQ(test.find(), 1);
    EXPECT_EQ(test.world.peaks.journal, (Lines{"interval 10", "minimum samples 3", "baseline removal 1", "start 19803",
                                               "end 20203", "samples 5500", "run 5003"}));
    EXPECT_EQ(test.baseline, 7.5);
}

TEST(WindowSearch, EndPastTheLastSampleIsClamped) {
    WindowSearch test;
    test.world.samples = VariantArray<double>(std::vector<double>(1501, 100.0));
    test.find();
    EXPECT_THAT(test.world.peaks.journal, Contains("end 20003"));
    EXPECT_THAT(test.world.tune_log().at(1), HasSubstr("EndTimeRange[1500]"));
}

TEST(WindowSearch, PeakOnTheEdgeOfTheWindowIsCountedButNotTaken) {
    for (const double edge_ns : {19803.0, 20203.0}) {
        WindowSearch test;
        test.world.peaks.peaks.clear();
        test.world.set_peak(edge_ns * edge_ns * 1e-6, 5000);
        test.world.peaks.peaks[0].pkCentroid = edge_ns;
        EXPECT_EQ(test.find(), 1);
        EXPECT_TRUE(test.outputs_untouched()) << edge_ns;
        EXPECT_EQ(test.world.tune_log().back(), "AUTOTUNE LOG: PeakFind: STATUS: Abundance of most abundant peak: 1");
    }
}

TEST(WindowSearch, NothingFoundLeavesTheRecordsAndLogsTheOldHeight) {
    WindowSearch test;
    test.world.peaks.peaks.clear();
    EXPECT_EQ(test.find(), 0);
    EXPECT_TRUE(test.outputs_untouched());
    EXPECT_THAT(test.world.test.trace().lines, Contains("FindPeakForMass: NO Peaks Found"));
    test.world.peaks.returns_no_list = true;
    EXPECT_EQ(test.find(), 0);
    EXPECT_TRUE(test.outputs_untouched());
    EXPECT_THAT(test.world.test.trace().lines, Contains("FindPeakForMass: PeakList is not set by PeakFinder"));
}

TEST(WindowSearch, EmptySpectrumIsNotSearched) {
    WindowSearch test;
    test.world.samples.clear();
    EXPECT_EQ(test.find(), 0);
    EXPECT_TRUE(test.outputs_untouched());
    EXPECT_TRUE(test.world.peaks.journal.empty());
    PeakListObject list;
    EXPECT_EQ(test.parser.FindPeakListForMass(0, 0, test.world.samples, list, test.baseline, test.calibration), 0);
    EXPECT_EQ(list, nullptr);
}

TEST(WindowSearch, FaultsLeaveTheRecordsAsTheyWere) {
    WindowSearch outside;
    outside.position = 1;
    EXPECT_EQ(error_of([&] { outside.find(); }).number(), error_number::subscript);
    WindowSearch without_calibration;
    without_calibration.calibration = nullptr;
    EXPECT_EQ(error_of([&] { without_calibration.find(); }).number(), error_number::object_not_set);
    EXPECT_TRUE(without_calibration.outputs_untouched());
    WindowSearch endless_interval;
    endless_interval.world.instrument().sampling_interval_seconds = 1e300;
    EXPECT_EQ(error_of([&] { endless_interval.find(); }).number(), error_number::overflow);
    WindowSearch overflowing;
    overflowing.world.samples = VariantArray<double>(std::vector<double>(5500, 3e9));
    EXPECT_EQ(error_of([&] { overflowing.find(); }).number(), error_number::overflow);
    EXPECT_THAT(overflowing.world.test.trace().lines,
                Contains(testing::StartsWith("FindPeakForMass: Error[6] in FindPeakForMass(): ")));
}

TEST(WindowSearch, EdgeOffTheMassAxisFindsNothingInsteadOfFailing) {
    WindowSearch test;
    test.world.instrument().make_finder = [] { return make_peak_finder(); };
    for (const double mass : {25.5, 3590.0}) {  // the axis ends at 25.03 and at 3599.3
        test.parser.CalculateTimeIndex(test.world.axis, test.calibration, Calibrants::list({mass}), 0, 2.0F);
        EXPECT_EQ(test.find(), 0) << mass;
        EXPECT_TRUE(test.outputs_untouched());
    }
}

TEST(WindowSearch, WholeListComesInTheUnitsAskedFor) {
    WindowSearch test;
    PeakListObject list;
    const auto centroid = [&](enumPeakInfoUnits units) {
        test.parser.FindPeakListForMass(0, SpectrumWorld::start_ns, test.world.samples, list, test.baseline,
                                        test.calibration, units);
        return list->GetPeakAttributeInfo(0, true).pkCentroid;
    };
    EXPECT_EQ(centroid(enumPeakInfoUnits::ns), 20000);
    EXPECT_NEAR(centroid(enumPeakInfoUnits::amu), 400, 1e-9);
    EXPECT_EQ(test.baseline, 7.5);
}

}  // namespace
}  // namespace korvane
