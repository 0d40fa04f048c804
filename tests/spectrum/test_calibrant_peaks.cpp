// The calibrant peaks of one spectrum, and the search of a single window.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "support/spectrum_world.h"

namespace korvane {
namespace {

using testing::Contains;
using testing::Each;
using testing::HasSubstr;
using testing::StartsWith;
using Masses = std::vector<double>;

struct Calibrants : ParserWorld {
    VariantMatrix<PeakInfo> peaks_of(const VariantArray<double>& list) {
        return parser.GetPeakInfoForCalibrantMasses(list);
    }
};

// A calibrant with two peaks, the scintillator setpoint at 5 on entry.
constexpr std::string_view measurement = R"(
> GetPeakInfoForCalibrantMasses
  Scint NOT TTI mode; setting scint=0
  > WaitForSpectrumWithProperPolarityAndExperimentIndex
    log: ===TUNE 11/21/2026 10:00:00 AM===
    log: AUTOTUNE LOG: STATUS: Waiting for spectrum with proper polarity and Experiment Index
    Received metadescription
    > GetMetaDataIndexesForExperimentIdxAndPolarity
      Number of elements in vMetaDesc = 1
      Exp MetaDataParameterIndex located
    > GetNewSpectrumAndVerifyDataIsPopulated
      > UserHasClickedAbort
        > GetTunePreference
          > OpenTunePrefsXML
        Abort value is set to 0
      Setting up to retrieve next spectrum
      Getting next spectrum
      log: AUTOTUNE LOG: STATUS: spectrum (with Experiment[3], dRetentionTime[1.5]) gotten from GetNextSpectrum()
      > IsDataReturnedFromGetNextSpectrumPopulated
      recieved a spectrum
    > ReturnedSpectrumIsOfSoughtPolarity
      log: AUTOTUNE LOG: STATUS: Spectrum of proper polarity and experiment index was returned
  > GetAutotuneLimitValue
    > OpenTuneParamsXML
    Seeking Node[/QTOFTuneParams/TOF/AutotuneParameters/PeakHandling]
  dPeakFindTimeWindow = 0.3
  > CalculateTimeIndex
    Using %T window
    Masses(0) = 400; Times(0) = 20000
    timeRangeList(0); mList(0); times(0) = 19939.999997615814
    timeRangeList(1); mList(0); times(0) = 20060.000002384186
    TimeWindow(0) = [19939.999997615814, 20060.000002384186]
    MassWindow(0) = [397.60359990491867, 402.40360009565353]
    > GetMassArrayIndexForThisMass
      ---------------------------------------------
      searching mass index for mass 397.60359990491867
      mass index for mass 397.60359990491867Is 1494
      ---------------------------------------------
    > GetMassArrayIndexForThisMass
      ---------------------------------------------
      searching mass index for mass 402.40360009565353
      mass index for mass 402.40360009565353Is 1506
      ---------------------------------------------
  > FindPeakForMass
    Copy Data - actually the whole YData, after fixing problem with pre-amp offset
    Before masstime creation
    > ConvertIndexToTimeInNS
    > ConvertIndexToTimeInNS
    log: AUTOTUNE LOG: PeakFind: STATUS: dSpectrumStartTimeinNS[5003], dStartIndex[1494], EndTimeRange[1506], dStartTimeToSearch[19943], dEndTimeToSearch[20063]
    Before PeakFinder Call
    XStartNS is : 19943
    EndNS is : 20063
    starttime is : 5003
    PeakFinder Call succeeded
    log: AUTOTUNE LOG: PeakFind: STATUS: Number of Peaks found in range: 2
    Found Peaks
    SpectrumMax, #pts, #peaks, PeakAb = [100, 5499, 2, 7000]
    Baseline is7.5
    log: AUTOTUNE LOG: PeakFind: STATUS: Abundance of most abundant peak: 7000
  log: AUTOTUNE LOG: STATUS: FindPeakForMass: FindPeakForMass() returned = 2
  > GetAutotuneLimitValue
    Seeking Node[/QTOFTuneParams/TOF/AutotuneParameters/RampParams]
  log: AUTOTUNE LOG: INFO: FindPeakForMass: right after FindPeakForMass(),  massIndex/mass[0/400], peakInfoInNanoseconds.pkHeight = 7000
)";

TEST(CalibrantPeaks, WholeTraceAndTuneLogOfOneMeasurement) {
    Calibrants test;
    test.test.limit("PeakHandling", "PeakFindWindowInPercentT", "0.3");  // widened from single precision
    test.instrument().setpoint(69).value = 5;
    test.set_peak(400.5, 7000);
    const auto peaks = test.peaks_of(Masses{400});
    EXPECT_EQ(test.transcript(), measurement);
    EXPECT_EQ(test.journal_of("write"), (Lines{"write 69 = 0 (double)", "write 69 = 5 (double)"}));
    ASSERT_EQ(peaks.rows(), 1);
    ASSERT_EQ(peaks.columns(), 2);
    EXPECT_EQ(peaks.at(0, 0).pkHeight, 7000);
    EXPECT_NEAR(peaks.at(0, 1).pkCentroid, 400.5, 1e-9);
    EXPECT_EQ(test.peaks.journal, (Lines{"interval 10", "minimum samples 3", "baseline removal 1", "start 19943",
                                         "end 20063", "samples 5500", "run 5003"}));
}

TEST(CalibrantPeaks, WindowIsTheGivenOneOrTheConfiguredOneWhichIsTheMassWindowToo) {
    for (const auto& [given, configured, windows, used] :
         {std::tuple{5.0, "0.5", "TimeWindow(0) = [19000, 21000]", 5.0},
          {0.0, "7", "MassWindow(0) = [400, 400]", 0.0},
          {-1.0, "-0.5", "Error[-1] in CalculateTimeIndex(): Invalid delta mass or percentage time", -0.5}}) {
        Calibrants test;
        test.test.limit("PeakHandling", "PeakFindWindowInPercentT", configured);
        double window = given;
        raised([&] { test.parser.GetPeakInfoForCalibrantMasses(VariantArray<double>(Masses{400}), window); });
        EXPECT_EQ(window, used) << "the caller's window is replaced by the configured one";
        EXPECT_THAT(test.traced_by("CalculateTimeIndex"), Contains(windows));
    }
}

TEST(CalibrantPeaks, ListKeepsItsPositionsFromZeroOn) {
    Calibrants test;
    const auto peaks = test.peaks_of(VariantArray<double>(Masses{400, 900}, 2));
    ASSERT_EQ(peaks.rows(), 4);
    for (std::size_t i = 0; i < 4; ++i) EXPECT_EQ(peaks.at(i, 0).pkCentroid, i < 2 ? 0 : 10000.0 * i);
    const auto error_of_list = [&](const VariantArray<double>& list) { return raised([&] { test.peaks_of(list); }); };
    for (const VariantArray<double>& list : {VariantArray<double>(Masses{}), VariantArray<double>(Masses{400}, -1)})
        EXPECT_EQ(error_of_list(list), "9|Korvane|Subscript out of range: calibrant masses");
    EXPECT_EQ(error_of_list(VariantArray<double>()), "13|Korvane|Type mismatch");
    test.instrument().setpoint(128).value = 0;
    EXPECT_EQ(test.parser.GetPeakInfoForCalibrantMasses().rows(), 4) << "the default list ends with the mass range";
    EXPECT_THAT(test.journal_of("write"), Each("write 69 = 0 (double)")) << "a value of 0 is written back, too";
}

TEST(CalibrantPeaks, HeightAtTheMinimumIsInformationAndBelowAWarning) {
    Calibrants test;
    for (const double height : {1000.0, std::nextafter(1000, 0), 0.0}) {
        const std::string start = height < 1000
                                      ? "AUTOTUNE LOG: WARNING: FindPeakForMass: right after FindPeakForMass() "
                                      : "AUTOTUNE LOG: INFO: FindPeakForMass: right after FindPeakForMass(),  ";
        test.set_peak(900, height);
        test.peaks_of(Masses{400, 900});
        EXPECT_EQ(test.tune_log().back(),
                  start + "massIndex/mass[1/900], peakInfoInNanoseconds.pkHeight = " + number_text(height));
        EXPECT_EQ(test.parser.last_uncertainties().at(0)->centroid, 0.25);
        EXPECT_EQ(test.parser.last_uncertainties().at(1).has_value(), height > 0);
        const auto lists = test.parser.GetPeakListsForCalibrantMasses(VariantArray<double>(Masses{400, 900}));
        EXPECT_EQ(
            test.tune_log().back(),
            start + "massIdx/mass[1/900], peakList.GetPeakAttributeInfo(0, True).pkHeight = " + number_text(height));
        EXPECT_NEAR(lists.at(0)->GetPeakAttributeInfo(0, true).pkCentroid, 400, 1e-9);
        EXPECT_EQ(lists.at(1)->count(), height > 0);
    }
    test.instrument().has_control = false;
    EXPECT_THROW(test.peaks_of(Masses{400}), Error);
    EXPECT_TRUE(test.parser.last_uncertainties().empty());
}

// Single windows, through the public members.

struct WindowSearch : Calibrants {
    WindowSearch() { set_window(400, 1.0F); }
    void set_window(double mass, float percent) {
        parser.CalculateTimeIndex(axis, instrument().calibrations[0], Masses{mass}, 0, percent);
    }
    std::string find() {
        return raised([&] {
            found = parser.FindPeakForMass(0, SpectrumWorld::start_ns, samples, ns, amu, baseline, calibration);
        });
    }
    bool outputs_untouched() const { return ns == PeakInfo{1, 1, 1, 1, 1, 1, 1, 1} && amu == ns && baseline == -3; }

    CalibrationObject calibration = instrument().calibrations[0];
    std::int32_t found = -1;
    PeakInfo ns{1, 1, 1, 1, 1, 1, 1, 1}, amu = ns;
    double baseline = -3;
};

TEST(WindowSearch, WhatItDoesNotTakeLeavesTheRecordsAsTheyWere) {
    constexpr const char* taken_aside = "SpectrumMax, #pts, #peaks, PeakAb = [100, 5499, 1, 5000]";
    const auto peak_at = [](double time_ns) {
        return [=](WindowSearch& test) {
            test.peaks.peaks.resize(1);
            test.peaks.peaks[0].pkCentroid = time_ns;
        };
    };
    const std::string overflow = "Error[6] in FindPeakForMass(): Overflow: ";
    const std::pair<std::function<void(WindowSearch&)>, std::string> cases[] = {
        {[](auto& test) { test.samples = {}; }, "Error : Empty Y Data"},
        {[](auto& test) { test.peaks.returns_no_list = true; }, "PeakList is not set by PeakFinder"},
        {[](auto& test) { test.peaks.peaks.clear(); }, "NO Peaks Found"},
        // The window's edges themselves.
        {peak_at(19803), taken_aside},
        {peak_at(20203), taken_aside},
        {[](auto& test) { test.instrument().sampling_interval_seconds = 1e300; }, overflow + "sampling interval"},
        {[](auto& test) { test.samples = Masses(5500, 3e9); }, overflow + "[3000000000]"},
    };
    for (const auto& [prepare, traced] : cases) {
        WindowSearch test;
        prepare(test);
        const bool succeeds = !traced.starts_with(overflow);
        EXPECT_EQ(test.find(), succeeds ? "no error" : "6|Korvane|Overflow: " + traced.substr(overflow.size()));
        EXPECT_EQ(test.found, succeeds ? traced == taken_aside : -1);
        EXPECT_TRUE(test.outputs_untouched());
        EXPECT_THAT(test.traced_by("FindPeakForMass"), Contains(traced));
        if (test.samples.is_empty() || !succeeds) continue;
        EXPECT_EQ(test.traced_by("FindPeakForMass").back(), "Baseline is-3");
        EXPECT_EQ(test.tune_log().back(), "AUTOTUNE LOG: PeakFind: STATUS: Abundance of most abundant peak: 1");
    }
    // What was set before a conversion that fails stays.
    WindowSearch test;
    test.calibration = nullptr;
    EXPECT_EQ(test.find(), "91|Korvane|Object variable or With block variable not set: mass-time calibration");
    EXPECT_THAT(test.traced_by("FindPeakForMass").back(), HasSubstr("] in FindPeakForMass(): "));
    EXPECT_EQ(test.ns.pkHeight, 5000);
    EXPECT_EQ(test.amu.pkHeight, 1);
    EXPECT_EQ(test.baseline, 7.5);
}

TEST(WindowSearch, WindowOverAnEndOfTheAxisIsSearchedToTheLastSample) {
    // The axis is from 25.03 (5003 ns) to 3599.3 amu (59993 ns).
    for (const auto& [mass, range, start, end] : {std::tuple{25.5, "dStartIndex[-1], EndTimeRange[15]", 5003.0, 5153.0},
                                                  {3590.0, "dStartIndex[5372], EndTimeRange[-1]", 58723.0, 59993.0},
                                                  {4500.0, "dStartIndex[-1], EndTimeRange[-1]", 59993.0, 59993.0}}) {
        WindowSearch test;
        test.set_window(mass, 2.0F);
        EXPECT_EQ(test.find(), "no error");
        EXPECT_THAT(test.tune_log(), Contains(HasSubstr(range)));
        EXPECT_THAT(test.peaks.journal, Contains("start " + number_text(start)));
        EXPECT_THAT(test.peaks.journal, Contains("end " + number_text(end)));
    }
    for (const std::size_t samples : {1500U, 1520U, 1521U}) {
        WindowSearch test;
        test.samples = Masses(samples, 100.0);
        test.find();
        EXPECT_THAT(test.peaks.journal, Contains(text_of("end ", std::min(5003 + 10.0 * (samples - 1), 20203.0))));
    }
}

TEST(WindowSearch, WholeListComesInTheUnitsAskedFor) {
    WindowSearch test;
    for (const auto& [units, centroid] : {std::pair{enumPeakInfoUnits::ns, 20000.0}, {enumPeakInfoUnits::amu, 400.0}}) {
        PeakListObject list;
        EXPECT_EQ(test.parser.FindPeakListForMass(0, SpectrumWorld::start_ns, test.samples, list, test.baseline,
                                                  test.calibration, units),
                  1);
        EXPECT_NEAR(list->GetPeakAttributeInfo(0, true).pkCentroid, centroid, 1e-9);
        EXPECT_EQ(test.baseline, 7.5);
    }
}

}  // namespace
}  // namespace korvane
