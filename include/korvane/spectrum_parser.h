// Spectrum acquisition, peak measurement and the abundance search.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
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
    double value = 0;         ///< of the setpoint
    double abundance = 0;     ///< measured, at the reduced number of transients
    double low = 0;           ///< bracket after the probe
    double high = 0;
};

/// How the last abundance search ended.
struct AdjustOutcome {
    enum class End { within_tolerance, resolution_reached, target_never_reached };
    End end = End::target_never_reached;
    double value = 0;
    double abundance = 0;      ///< at `value`, at the reduced number of transients; 0 if never reached
    double scaled_target = 0;  ///< the target divided by the speed-up factor
    double speed_up_factor = 1;
    std::vector<AdjustProbe> probes;
};

/// Errors: 1 "User aborted"; 5 no populated spectrum within 15 s; -8 no spectrum of the sought polarity within 45 s;
/// -1 conditions the routines detect; the stores' errors where configuration is read.
class KORVANE_API SpectrumParser {
public:
    using OptionalMasses = std::optional<VariantArray<double>>;

    explicit SpectrumParser(Platform platform = Platform::process_default());
    ~SpectrumParser();
    SpectrumParser(SpectrumParser&&) noexcept;
    SpectrumParser& operator=(SpectrumParser&&) noexcept;

    /// Returns when the instrument shows at least 4 calibrants; error -821 with the operator's message otherwise.
    void VerifyInstrumentIsShowingValidCalibrantSpectrum();

    /// Per calibrant (row) the record in ns (column 0) and in amu (column 1). Masses left out: the default list.
    /// `dPeakFindTimeWindow` is in percent of flight time; -1 is replaced by the configured window.
    VariantMatrix<PeakInfo> GetPeakInfoForCalibrantMasses(const OptionalMasses& varCalibrantMasses,
                                                          double& dPeakFindTimeWindow);
    VariantMatrix<PeakInfo> GetPeakInfoForCalibrantMasses(const OptionalMasses& varCalibrantMasses = {});
    VariantArray<PeakListObject> GetPeakListsForCalibrantMasses(const OptionalMasses& varCalibrantMasses = {});

    /// Number of peaks in the window of a calibrant position; the records are those of the most abundant one.
    std::int32_t FindPeakForMass(std::int32_t massIndex, double dSpectrumStartTimeInNS,
                                 const VariantArray<double>& vYData, PeakInfo& peakInfoInNanoseconds,
                                 PeakInfo& peakInfoInAmu, double& baseLine, const CalibrationObject& pMTObj);
    std::int32_t FindPeakListForMass(std::int32_t massIndex, double dSpectrumStartTimeInNS,
                                     const VariantArray<double>& vYData, PeakListObject& peakList, double& baseLine,
                                     const CalibrationObject& pMTObj,
                                     enumPeakInfoUnits PeakInfoUnits = enumPeakInfoUnits::amu);

    void GetNewSpectrumAndVerifyDataIsPopulated(VariantArray<double>& vMassData, VariantArray<double>& vYData,
                                                VariantArray<InstrumentValue>& vMetaData,
                                                double& dSpectrumStartTimeInNS, bool& bUserHasCancelledRampInGUI);

    /// Fills the index-range table: windows of +-`percentT` percent of flight time, or of +-`deltaMass` amu where
    /// `percentT` is not above 0.
    void CalculateTimeIndex(const VariantArray<double>& vMassData, const CalibrationObject& mtDLL,
                            const VariantArray<double>& mList, double deltaMass, float percentT);
    /// Nearest sample of a mass by bisection; -1 where the mass is neither bracketed nor hit.
    std::int32_t GetMassArrayIndexForThisMass(const VariantArray<double>& vMassData, double mass);

    double GetPeakAttribute(PeakCalcType CalcType, double targetMass, double dMassWindow = 0.2,
                            bool bOKToReturnZero = false, bool bThrowErrorOnNoPeaksFound = true);
    PeakInfo GetPeakAttributes(double targetMass, double dMassWindow = 0.2,
                               enumPeakInfoUnits PeakInfoUnits = enumPeakInfoUnits::amu,
                               bool bThrowErrorOnNoPeaksFound = true);
    PeakListObject GetPeakListOfOnlyThisOneMass(double targetMass, double dMassWindow = 0.2,
                                                enumPeakInfoUnits PeakInfoUnits = enumPeakInfoUnits::amu);
    /// Peaks of a fresh spectrum between two flight times; `MaxPeaks` above 0 keeps the most abundant ones only.
    PeakListObject GetPeakList(double dTimeToStartSearchInNS, double dTimeToEndSearchInNS, std::int32_t MaxPeaks = 0);

    bool AbundancesAreBelowDualGainThreshold(const VariantArray<double>& varCalibrantMasses, double dMassWindow = 10.0);

    /// Setpoint value at which the abundance at `mz` comes down to `AbTarget`. The setpoint keeps the last probe.
    double BinaryAdjustAbundanceDownUsingThisSetpoint(std::int32_t IdxOfSetpointToAdjust, double mz, double AbTarget,
                                                      double dmz = 30.0, bool bLowerThisSPToReduceAbundance = true,
                                                      double StartingMinSPValue = search_value_not_given,
                                                      double StartingMaxSPValue = search_value_not_given,
                                                      double SPResolution = search_value_not_given);

    // For programs that show what happens.
    /// Called after every probe of an abundance search.
    void on_adjust_probe(std::function<void(const AdjustProbe&)> observer);
    const AdjustOutcome& last_adjustment() const;
    /// Chooses between the fast (true) and the normal search in the place of the preference "AIC_RunFastVersion";
    /// nothing gives the choice back to the preference.
    void set_fast_search(std::optional<bool> fast);
    /// Standard errors of the last `GetPeakInfoForCalibrantMasses`, one a calibrant, in ns; nothing where no peak was
    /// taken or the peak finder states none.
    const std::vector<std::optional<PeakUncertainty>>& last_uncertainties() const;
    /// Path of the tune log that the parser wrote last; empty before the first line.
    std::string tune_log_path() const;

    struct Impl;  // complete inside the library only

private:
    std::unique_ptr<Impl> impl_;
};

}  // namespace korvane
