#include "korvane/spectrum_parser.h"

#include "abundance/setpoint_search.h"
#include "spectrum/spectrum_checks.h"

namespace korvane {

/// The session and the helpers, each on top of those above it.
struct SpectrumParser::Impl {
    explicit Impl(const Platform& platform) : session(platform) {}

    Session session;
    SpectrumAcquisition acquisition{session};
    MassTimeWindows windows{session.trace};
    PeakSearch search{session, windows};
    CalibrantPeaks calibrants{session, acquisition, windows, search};
    PeakAttributes attributes{session, search};
    SpectrumChecks checks{session, calibrants, attributes};
    SetpointSearch adjustment{session, acquisition, calibrants};
};

SpectrumParser::SpectrumParser(Platform platform) : impl_(std::make_unique<Impl>(platform)) {}
SpectrumParser::~SpectrumParser() = default;
SpectrumParser::SpectrumParser(SpectrumParser&&) noexcept = default;
SpectrumParser& SpectrumParser::operator=(SpectrumParser&&) noexcept = default;

void SpectrumParser::VerifyInstrumentIsShowingValidCalibrantSpectrum() {
    impl_->checks.VerifyInstrumentIsShowingValidCalibrantSpectrum();
}

VariantMatrix<PeakInfo> SpectrumParser::GetPeakInfoForCalibrantMasses(const OptionalMasses& varCalibrantMasses,
                                                                      double& dPeakFindTimeWindow) {
    return impl_->calibrants.GetPeakInfoForCalibrantMasses(varCalibrantMasses, dPeakFindTimeWindow);
}

VariantMatrix<PeakInfo> SpectrumParser::GetPeakInfoForCalibrantMasses(const OptionalMasses& varCalibrantMasses) {
    double configured_window = -1.0;
    return GetPeakInfoForCalibrantMasses(varCalibrantMasses, configured_window);
}

VariantArray<PeakListObject> SpectrumParser::GetPeakListsForCalibrantMasses(const OptionalMasses& varCalibrantMasses) {
    return impl_->calibrants.GetPeakListsForCalibrantMasses(varCalibrantMasses);
}

std::int32_t SpectrumParser::FindPeakForMass(std::int32_t massIndex, double dSpectrumStartTimeInNS,
                                             const VariantArray<double>& vYData, PeakInfo& peakInfoInNanoseconds,
                                             PeakInfo& peakInfoInAmu, double& baseLine,
                                             const CalibrationObject& pMTObj) {
    WindowPeak peak{peakInfoInNanoseconds, peakInfoInAmu, baseLine, {}};
    const std::int32_t found = impl_->search.FindPeakForMass(massIndex, dSpectrumStartTimeInNS, vYData, pMTObj, peak);
    peakInfoInNanoseconds = peak.nanoseconds;
    peakInfoInAmu = peak.amu;
    baseLine = peak.baseline;
    return found;
}

std::int32_t SpectrumParser::FindPeakListForMass(std::int32_t massIndex, double dSpectrumStartTimeInNS,
                                                 const VariantArray<double>& vYData, PeakListObject& peakList,
                                                 double& baseLine, const CalibrationObject& pMTObj,
                                                 enumPeakInfoUnits PeakInfoUnits) {
    return impl_->search.FindPeakListForMass(massIndex, dSpectrumStartTimeInNS, vYData, peakList, baseLine, pMTObj,
                                             PeakInfoUnits);
}

void SpectrumParser::GetNewSpectrumAndVerifyDataIsPopulated(VariantArray<double>& vMassData,
                                                            VariantArray<double>& vYData,
                                                            VariantArray<InstrumentValue>& vMetaData,
                                                            double& dSpectrumStartTimeInNS,
                                                            bool& bUserHasCancelledRampInGUI) {
    impl_->acquisition.GetNewSpectrumAndVerifyDataIsPopulated({vMassData, vYData, vMetaData, dSpectrumStartTimeInNS},
                                                              bUserHasCancelledRampInGUI);
}

void SpectrumParser::CalculateTimeIndex(const VariantArray<double>& vMassData, const CalibrationObject& mtDLL,
                                        const VariantArray<double>& mList, double deltaMass, float percentT) {
    impl_->windows.CalculateTimeIndex(vMassData, mtDLL, mList, deltaMass, percentT);
}

std::int32_t SpectrumParser::GetMassArrayIndexForThisMass(const VariantArray<double>& vMassData, double mass) {
    return impl_->windows.GetMassArrayIndexForThisMass(vMassData, mass);
}

double SpectrumParser::GetPeakAttribute(PeakCalcType CalcType, double targetMass, double dMassWindow,
                                        bool bOKToReturnZero, bool bThrowErrorOnNoPeaksFound) {
    return impl_->attributes.GetPeakAttribute(CalcType, targetMass, dMassWindow, bOKToReturnZero,
                                              bThrowErrorOnNoPeaksFound);
}

PeakInfo SpectrumParser::GetPeakAttributes(double targetMass, double dMassWindow, enumPeakInfoUnits PeakInfoUnits,
                                           bool bThrowErrorOnNoPeaksFound) {
    return impl_->attributes.GetPeakAttributes(targetMass, dMassWindow, PeakInfoUnits, bThrowErrorOnNoPeaksFound);
}

PeakListObject SpectrumParser::GetPeakListOfOnlyThisOneMass(double targetMass, double dMassWindow,
                                                            enumPeakInfoUnits PeakInfoUnits) {
    return impl_->attributes.GetPeakListOfOnlyThisOneMass(targetMass, dMassWindow, PeakInfoUnits);
}

PeakListObject SpectrumParser::GetPeakList(double dTimeToStartSearchInNS, double dTimeToEndSearchInNS,
                                           std::int32_t MaxPeaks) {
    return impl_->search.GetPeakList(dTimeToStartSearchInNS, dTimeToEndSearchInNS, MaxPeaks);
}

bool SpectrumParser::AbundancesAreBelowDualGainThreshold(const VariantArray<double>& varCalibrantMasses,
                                                         double dMassWindow) {
    return impl_->checks.AbundancesAreBelowDualGainThreshold(varCalibrantMasses, dMassWindow);
}

double SpectrumParser::BinaryAdjustAbundanceDownUsingThisSetpoint(std::int32_t IdxOfSetpointToAdjust, double mz,
                                                                  double AbTarget, double dmz,
                                                                  bool bLowerThisSPToReduceAbundance,
                                                                  double StartingMinSPValue, double StartingMaxSPValue,
                                                                  double SPResolution) {
    return impl_->adjustment.BinaryAdjustAbundanceDownUsingThisSetpoint(
        {IdxOfSetpointToAdjust, mz, AbTarget, dmz, bLowerThisSPToReduceAbundance, StartingMinSPValue,
         StartingMaxSPValue, SPResolution});
}

void SpectrumParser::on_adjust_probe(std::function<void(const AdjustProbe&)> observer) {
    impl_->adjustment.on_probe = std::move(observer);
}

const AdjustOutcome& SpectrumParser::last_adjustment() const {
    return impl_->adjustment.last_outcome();
}

void SpectrumParser::set_fast_search(std::optional<bool> fast) {
    impl_->adjustment.fast_choice = fast;
}

const std::vector<std::optional<PeakUncertainty>>& SpectrumParser::last_uncertainties() const {
    return impl_->calibrants.last_uncertainties();
}

std::string SpectrumParser::tune_log_path() const {
    return impl_->session.tune.tune_log_path();
}

}  // namespace korvane
