// Spectrum acquisition, peak measurement and the abundance search.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "korvane/enumerations.h"
#include "korvane/mass_time.h"
#include "korvane/peak_finder.h"
#include "korvane/platform.h"
#include "korvane/records.h"

namespace korvane {

/// One probe of the abundance search, for a progress display.
struct AdjustProbe {
    std::int32_t number = 0;  ///< from 1
    double value = 0;         ///< of the setpoint, in its unit
    double abundance = 0;     ///< measured, at the reduced number of transients
    double low = 0;           ///< bracket of setpoint values after the probe
    double high = 0;
};

/// How the last abundance search ended.
struct AdjustOutcome {
    enum class End { within_tolerance, resolution_reached, target_never_reached };
    End end = End::target_never_reached;
    double value = 0;          ///< of the setpoint, as returned
    double abundance = 0;      ///< at `value`, at the reduced number of transients; 0 if never reached
    double scaled_target = 0;  ///< the target divided by the speed-up factor
    double speed_up_factor = 1;
    std::vector<AdjustProbe> probes;  ///< in their order
};

/// Masses and mass windows are in amu, flight times in ns, abundances in counts. Created without an instrument; the
/// first member that needs one raises what making it raised. Where nothing else is said, members raise the errors of
/// the instrument layer, 91 where it has no instrument control or lends no calibration, and the stores' errors where
/// configuration is read. Members that wait for a spectrum raise 1 "User aborted" and 5, of the kind `time_out`, when
/// no populated spectrum comes within 15 s; those that measure calibrants also -8 when none of the polarity set comes
/// within 45 s, and -1 where a spectrum's polarity is neither 0 nor 1.
class KORVANE_API SpectrumParser {
public:
    using OptionalMasses = std::optional<VariantArray<double>>;

    explicit SpectrumParser(Platform platform = Platform::process_default());

    /// Returns when one of three spectra shows at least 4 calibrants of the default list above the configured minimum
    /// abundance; error -821 with the operator's message otherwise. The error that the preferences
    /// "TriggerError..." configure comes before any spectrum.
    void VerifyInstrumentIsShowingValidCalibrantSpectrum();

    /// Per calibrant (row) the record in ns (column 0) and in amu (column 1), zeros where no peak was taken. Masses
    /// left out: the default list of the source and polarity. `dPeakFindTimeWindow` is to either side, in percent of
    /// flight time; -1 is replaced by the configured window. The scintillator setpoint is 0 meanwhile; an error leaves
    /// it so. Errors: 9 for a list without elements or with positions below 0.
    VariantMatrix<PeakInfo> GetPeakInfoForCalibrantMasses(const OptionalMasses& varCalibrantMasses,
                                                          double& dPeakFindTimeWindow);
    /// The same with the configured window.
    VariantMatrix<PeakInfo> GetPeakInfoForCalibrantMasses(const OptionalMasses& varCalibrantMasses = {});
    /// The same, all peaks of every window, in amu; an element is null where the peak finder returned no list.
    VariantArray<PeakListObject> GetPeakListsForCalibrantMasses(const OptionalMasses& varCalibrantMasses = {});

    /// Number of peaks in the window of a calibrant position (from 0) of the index-range table. The records and
    /// `baseLine` (counts) are those of the most abundant one, and stay where its centroid does not lie inside the
    /// window. 0, and nothing else, for empty `vYData`. Errors: 9 outside the table, 6 for a sample that no 32-bit
    /// integer holds.
    std::int32_t FindPeakForMass(std::int32_t massIndex, double dSpectrumStartTimeInNS,
                                 const VariantArray<double>& vYData, PeakInfo& peakInfoInNanoseconds,
                                 PeakInfo& peakInfoInAmu, double& baseLine, const CalibrationObject& pMTObj);
    /// The same with the whole list of the window, in the units asked for; null where the peak finder returned none.
    std::int32_t FindPeakListForMass(std::int32_t massIndex, double dSpectrumStartTimeInNS,
                                     const VariantArray<double>& vYData, PeakListObject& peakList, double& baseLine,
                                     const CalibrationObject& pMTObj,
                                     enumPeakInfoUnits PeakInfoUnits = enumPeakInfoUnits::amu);

    /// A fresh spectrum of whatever polarity: mass axis (amu), counts and metadata of its samples, flight time of the
    /// first one. The arrays are emptied before every request. The flag comes back false.
    void GetNewSpectrumAndVerifyDataIsPopulated(VariantArray<double>& vMassData, VariantArray<double>& vYData,
                                                VariantArray<InstrumentValue>& vMetaData,
                                                double& dSpectrumStartTimeInNS, bool& bUserHasCancelledRampInGUI);

    /// Fills the index-range table: windows of +-`percentT` percent of flight time, or of +-`deltaMass` amu where
    /// `percentT` is not above 0. Error -1, with the table as it was, where neither is usable.
    void CalculateTimeIndex(const VariantArray<double>& vMassData, const CalibrationObject& mtDLL,
                            const VariantArray<double>& mList, double deltaMass, float percentT);
    /// Nearest sample of a mass (the lower one of a tie) by bisection; -1 where the mass is neither bracketed by two
    /// samples looked at nor equal to the last one. Error 9 for an axis of one sample.
    std::int32_t GetMassArrayIndexForThisMass(const VariantArray<double>& vMassData, double mass);

    /// One value of the record of `GetPeakAttributes`: the time centroid in ns, the width in amu, the height in counts,
    /// the area in counts x samples. `bOKToReturnZero`: 0 in the place of error -1.
    double GetPeakAttribute(PeakCalcType CalcType, double targetMass, double dMassWindow = 0.2,
                            bool bOKToReturnZero = false, bool bThrowErrorOnNoPeaksFound = true);
    /// Record of the most abundant peak up to `dMassWindow` to either side, in the next spectrum or the one after it.
    /// Without a peak: error -1 "No peaks returned by peakfinder", or a record of zeros.
    PeakInfo GetPeakAttributes(double targetMass, double dMassWindow = 0.2,
                               enumPeakInfoUnits PeakInfoUnits = enumPeakInfoUnits::amu,
                               bool bThrowErrorOnNoPeaksFound = true);
    /// All peaks of that window; error -1 without one.
    PeakListObject GetPeakListOfOnlyThisOneMass(double targetMass, double dMassWindow = 0.2,
                                                enumPeakInfoUnits PeakInfoUnits = enumPeakInfoUnits::amu);
    /// Peaks of the next spectrum between two flight times, in ns; `MaxPeaks` above 0 keeps the most abundant ones
    /// only. Errors: 13 for a spectrum without samples, 91 where the peak finder returns no list.
    PeakListObject GetPeakList(double dTimeToStartSearchInNS, double dTimeToEndSearchInNS, std::int32_t MaxPeaks = 0);

    /// Whether the lowest, the highest and the most abundant of the masses (ascending) are all below the saturation
    /// limit. Error -1 where one of the three has no peak.
    bool AbundancesAreBelowDualGainThreshold(const VariantArray<double>& varCalibrantMasses, double dMassWindow = 10.0);

    /// Setpoint value (in the setpoint's unit) at which the abundance at `mz` comes down to `AbTarget`, by bisection:
    /// the probe that came within tolerance, else the best one at or under the target, else the value on entry. The
    /// setpoint keeps the last probe; an error leaves the number of transients reduced. `dmz` is only logged. A probe
    /// whose measurement failed still succeeds where the abundance held before lies within tolerance; an abort never
    /// does. Errors: 11 for a speed-up factor of 0, 6 for an abundance that no 32-bit integer holds.
    double BinaryAdjustAbundanceDownUsingThisSetpoint(std::int32_t IdxOfSetpointToAdjust, double mz, double AbTarget,
                                                      double dmz = 30.0, bool bLowerThisSPToReduceAbundance = true,
                                                      double StartingMinSPValue = search_value_not_given,
                                                      double StartingMaxSPValue = search_value_not_given,
                                                      double SPResolution = search_value_not_given);

    // For programs that show what happens. None of these raises.
    /// Called after every probe of an abundance search.
    void on_adjust_probe(std::function<void(const AdjustProbe&)> observer);
    /// How the last abundance search ended, also one that an error ended: its probes so far.
    const AdjustOutcome& last_adjustment() const;
    /// Chooses between the fast (true) and the normal search in the place of the preference "AIC_RunFastVersion";
    /// nothing gives the choice back to the preference.
    void set_fast_search(std::optional<bool> fast);
    /// Standard errors of the last `GetPeakInfoForCalibrantMasses`, one a calibrant, in ns; nothing where no peak was
    /// taken or the peak finder states none.
    const std::vector<std::optional<PeakUncertainty>>& last_uncertainties() const;
    /// What the peak finder told about those peaks besides, in the same way.
    const std::vector<std::optional<PeakQuality>>& last_qualities() const;
    /// Path of the tune log that the parser wrote last; empty before the first line.
    std::string tune_log_path() const;

    struct Impl;  // complete inside the library only

private:
    PrivateState<Impl> impl_;
};

}  // namespace korvane
