// Member table of SpectrumParser. The order of the lines is the order of the vtable; numbers and order are a public
// contract.
#pragma once

#include "automation/member.h"
#include "korvane/spectrum_parser.h"

namespace korvane::automation {

/// The member with both arguments, out of the overloads.
inline constexpr auto peak_info_for_calibrant_masses =
    static_cast<VariantMatrix<PeakInfo> (SpectrumParser::*)(const SpectrumParser::OptionalMasses&, double&)>(
        &SpectrumParser::GetPeakInfoForCalibrantMasses);

inline constexpr auto spectrum_parser_members = member_table(
    method<&SpectrumParser::VerifyInstrumentIsShowingValidCalibrantSpectrum>(
        1, "Returns when at least 4 calibrants show; raises -821 otherwise."),
    method<peak_info_for_calibrant_masses>(
        2,
        "Per calibrant (row) the peak record in ns (column 0) and in amu (column 1). The window is in percent of "
        "flight time; -1 is replaced by the configured one.",
        reference("varCalibrantMasses").may_be_missing(), reference("dPeakFindTimeWindow", -1.0)),
    method<&SpectrumParser::GetPeakListsForCalibrantMasses>(3, "Per calibrant the list of the peaks in its window.",
                                                            reference("varCalibrantMasses").may_be_missing()),
    method<&SpectrumParser::FindPeakForMass>(
        4, "Number of peaks in the window of a calibrant position; the records are those of the most abundant one.",
        reference("massIndex"), reference("dSpectrumStartTimeInNS"), reference("vYData"),
        reference("peakInfoInNanoseconds"), reference("peakInfoInAmu"), reference("baseLine"), reference("pMTObj")),
    method<&SpectrumParser::FindPeakListForMass>(
        5, "Number of peaks in the window of a calibrant position, and their list.", reference("massIndex"),
        reference("dSpectrumStartTimeInNS"), reference("vYData"), reference("peakList"), reference("baseLine"),
        reference("pMTObj"), reference("PeakInfoUnits", 1)),
    method<&SpectrumParser::GetNewSpectrumAndVerifyDataIsPopulated>(
        6, "A fresh, populated spectrum: masses in amu, abundances, metadata, flight time of the first sample.",
        result("vMassData"), result("vYData"), result("vMetaData"), result("dSpectrumStartTimeInNS"),
        result("bUserHasCancelledRampInGUI")),
    method<&SpectrumParser::CalculateTimeIndex>(7,
                                                "Fills the table of sample windows: percentT percent of flight time "
                                                "either way or, where it is not above 0, deltaMass amu.",
                                                reference("vMassData"), reference("mtDLL"),
                                                reference("mList").declared(TypeKind::real_array),
                                                reference("deltaMass"), reference("percentT")),
    method<&SpectrumParser::GetMassArrayIndexForThisMass>(8, "Sample nearest to a mass, or -1.", reference("vMassData"),
                                                          value("mass")),
    method<&SpectrumParser::GetPeakAttribute>(
        9, "One value of the most abundant peak about a mass in a fresh spectrum.", reference("CalcType"),
        reference("targetMass"), reference("dMassWindow", 0.2), reference("bOKToReturnZero", false),
        reference("bThrowErrorOnNoPeaksFound", true)),
    method<&SpectrumParser::GetPeakAttributes>(
        10, "Record of the most abundant peak about a mass in a fresh spectrum.", reference("targetMass"),
        reference("dMassWindow", 0.2), reference("PeakInfoUnits", 1), reference("bThrowErrorOnNoPeaksFound", true)),
    method<&SpectrumParser::GetPeakListOfOnlyThisOneMass>(11, "The peaks about a mass in a fresh spectrum.",
                                                          reference("targetMass"), reference("dMassWindow", 0.2),
                                                          reference("PeakInfoUnits", 1)),
    method<&SpectrumParser::GetPeakList>(
        12, "The peaks of a fresh spectrum between two flight times; MaxPeaks above 0 keeps the most abundant ones.",
        value("dTimeToStartSearchInNS"), value("dTimeToEndSearchInNS"), reference("MaxPeaks", 0)),
    method<&SpectrumParser::AbundancesAreBelowDualGainThreshold>(
        13, "Whether the lowest, the most abundant and the highest calibrant stay below the detector's limit.",
        reference("varCalibrantMasses"), reference("dMassWindow", 10.0)),
    method<&SpectrumParser::BinaryAdjustAbundanceDownUsingThisSetpoint>(
        14, "Setpoint value at which the abundance at mz comes down to AbTarget.", value("IdxOfSetpointToAdjust"),
        value("mz"), value("AbTarget"), value("dmz", 30.0),
        value("bLowerThisSPToReduceAbundance", true).declared(TypeKind::variant),
        value("StartingMinSPValue", search_value_not_given), value("StartingMaxSPValue", search_value_not_given),
        value("SPResolution", search_value_not_given)));

}  // namespace korvane::automation
