// What one calibrant measurement leaves in the trace and in the tune log, complete: a calibrant with two peaks, and one
// with none, the scintillator setpoint at 5 on entry.
#pragma once

#include <string_view>

namespace korvane {

inline constexpr std::string_view calibrant_measurement_trace = R"(
> GetPeakInfoForCalibrantMasses
GetPeakInfoForCalibrantMasses: Scint NOT TTI mode; setting scint=0
> WaitForSpectrumWithProperPolarityAndExperimentIndex
> WriteLineToTuneLogFile
< WriteLineToTuneLogFile
WaitForSpectrumWithProperPolarityAndExperimentIndex: Received metadescription
> GetMetaDataIndexesForExperimentIdxAndPolarity
GetMetaDataIndexesForExperimentIdxAndPolarity: Number of elements in vMetaDesc = 1
GetMetaDataIndexesForExperimentIdxAndPolarity: Exp MetaDataParameterIndex located
< GetMetaDataIndexesForExperimentIdxAndPolarity
> GetNewSpectrumAndVerifyDataIsPopulated
> UserHasClickedAbort
> GetTunePreference
> OpenTunePrefsXML
< OpenTunePrefsXML
< GetTunePreference
UserHasClickedAbort: Abort value is set to 0
< UserHasClickedAbort
GetNewSpectrumAndVerifyDataIsPopulated: Setting up to retrieve next spectrum
GetNewSpectrumAndVerifyDataIsPopulated: Getting next spectrum
> WriteLineToTuneLogFile
< WriteLineToTuneLogFile
> IsDataReturnedFromGetNextSpectrumPopulated
< IsDataReturnedFromGetNextSpectrumPopulated
GetNewSpectrumAndVerifyDataIsPopulated: recieved a spectrum
< GetNewSpectrumAndVerifyDataIsPopulated
> ReturnedSpectrumIsOfSoughtPolarity
> WriteLineToTuneLogFile
< WriteLineToTuneLogFile
< ReturnedSpectrumIsOfSoughtPolarity
< WaitForSpectrumWithProperPolarityAndExperimentIndex
> GetAutotuneLimitValue
> OpenTuneParamsXML
< OpenTuneParamsXML
GetAutotuneLimitValue: Seeking Node[/QTOFTuneParams/TOF/AutotuneParameters/PeakHandling]
< GetAutotuneLimitValue
GetPeakInfoForCalibrantMasses: dPeakFindTimeWindow = 0.5
> CalculateTimeIndex
CalculateTimeIndex: Using %T window
CalculateTimeIndex: Masses(0) = 400; Times(0) = 20000
CalculateTimeIndex: timeRangeList(0); mList(0); times(0) = 19900
CalculateTimeIndex: timeRangeList(1); mList(0); times(0) = 20100
CalculateTimeIndex: Masses(1) = 1600; Times(1) = 40000
CalculateTimeIndex: timeRangeList(2); mList(1); times(1) = 39800
CalculateTimeIndex: timeRangeList(3); mList(1); times(1) = 40200
CalculateTimeIndex: TimeWindow(0) = [19900, 20100]
CalculateTimeIndex: MassWindow(0) = [396.0100000000001, 404.01000000000005]
CalculateTimeIndex: TimeWindow(1) = [39800, 40200]
CalculateTimeIndex: MassWindow(1) = [1584.0400000000004, 1616.0400000000002]
> GetMassArrayIndexForThisMass
GetMassArrayIndexForThisMass: ---------------------------------------------
GetMassArrayIndexForThisMass: searching mass index for mass 396.0100000000001
GetMassArrayIndexForThisMass: mass index for mass 396.0100000000001Is 1490
GetMassArrayIndexForThisMass: ---------------------------------------------
< GetMassArrayIndexForThisMass
> GetMassArrayIndexForThisMass
GetMassArrayIndexForThisMass: ---------------------------------------------
GetMassArrayIndexForThisMass: searching mass index for mass 404.01000000000005
GetMassArrayIndexForThisMass: mass index for mass 404.01000000000005Is 1510
GetMassArrayIndexForThisMass: ---------------------------------------------
< GetMassArrayIndexForThisMass
> GetMassArrayIndexForThisMass
GetMassArrayIndexForThisMass: ---------------------------------------------
GetMassArrayIndexForThisMass: searching mass index for mass 1584.0400000000004
GetMassArrayIndexForThisMass: mass index for mass 1584.0400000000004Is 3480
GetMassArrayIndexForThisMass: ---------------------------------------------
< GetMassArrayIndexForThisMass
> GetMassArrayIndexForThisMass
GetMassArrayIndexForThisMass: ---------------------------------------------
GetMassArrayIndexForThisMass: searching mass index for mass 1616.0400000000002
GetMassArrayIndexForThisMass: mass index for mass 1616.0400000000002Is 3520
GetMassArrayIndexForThisMass: ---------------------------------------------
< GetMassArrayIndexForThisMass
< CalculateTimeIndex
> FindPeakForMass
FindPeakForMass: Copy Data - actually the whole YData, after fixing problem with pre-amp offset
FindPeakForMass: Before masstime creation
> WriteLineToTuneLogFile
< WriteLineToTuneLogFile
FindPeakForMass: Before PeakFinder Call
FindPeakForMass: XStartNS is : 19903
FindPeakForMass: EndNS is : 20103
FindPeakForMass: starttime is : 5003
FindPeakForMass: PeakFinder Call succeeded
> WriteLineToTuneLogFile
< WriteLineToTuneLogFile
FindPeakForMass: Found Peaks
FindPeakForMass: SpectrumMax, #pts, #peaks, PeakAb = [100, 5499, 2, 7000]
FindPeakForMass: Baseline is7.5
> WriteLineToTuneLogFile
< WriteLineToTuneLogFile
< FindPeakForMass
> WriteLineToTuneLogFile
< WriteLineToTuneLogFile
> GetAutotuneLimitValue
GetAutotuneLimitValue: Seeking Node[/QTOFTuneParams/TOF/AutotuneParameters/RampParams]
< GetAutotuneLimitValue
> WriteLineToTuneLogFile
< WriteLineToTuneLogFile
> FindPeakForMass
FindPeakForMass: Copy Data - actually the whole YData, after fixing problem with pre-amp offset
FindPeakForMass: Before masstime creation
> WriteLineToTuneLogFile
< WriteLineToTuneLogFile
FindPeakForMass: Before PeakFinder Call
FindPeakForMass: XStartNS is : 39803
FindPeakForMass: EndNS is : 40203
FindPeakForMass: starttime is : 5003
FindPeakForMass: PeakFinder Call succeeded
> WriteLineToTuneLogFile
< WriteLineToTuneLogFile
FindPeakForMass: NO Peaks Found IN the requested time range
FindPeakForMass: NO Peaks Found
FindPeakForMass: Baseline is4
> WriteLineToTuneLogFile
< WriteLineToTuneLogFile
< FindPeakForMass
> WriteLineToTuneLogFile
< WriteLineToTuneLogFile
> GetAutotuneLimitValue
GetAutotuneLimitValue: Seeking Node[/QTOFTuneParams/TOF/AutotuneParameters/RampParams]
< GetAutotuneLimitValue
> WriteLineToTuneLogFile
< WriteLineToTuneLogFile
< GetPeakInfoForCalibrantMasses
)";

inline constexpr std::string_view calibrant_measurement_log = R"(
===TUNE 11/21/2026 10:00:00 AM===
AUTOTUNE LOG: STATUS: Waiting for spectrum with proper polarity and Experiment Index
AUTOTUNE LOG: STATUS: spectrum (with Experiment[3], dRetentionTime[1.5]) gotten from GetNextSpectrum()
AUTOTUNE LOG: STATUS: Spectrum of proper polarity and experiment index was returned
AUTOTUNE LOG: PeakFind: STATUS: dSpectrumStartTimeinNS[5003], dStartIndex[1490], EndTimeRange[1510], dStartTimeToSearch[19903], dEndTimeToSearch[20103]
AUTOTUNE LOG: PeakFind: STATUS: Number of Peaks found in range: 2
AUTOTUNE LOG: PeakFind: STATUS: Abundance of most abundant peak: 7000
AUTOTUNE LOG: STATUS: FindPeakForMass: FindPeakForMass() returned = 2
AUTOTUNE LOG: INFO: FindPeakForMass: right after FindPeakForMass(),  massIndex/mass[0/400], peakInfoInNanoseconds.pkHeight = 7000
AUTOTUNE LOG: PeakFind: STATUS: dSpectrumStartTimeinNS[5003], dStartIndex[3480], EndTimeRange[3520], dStartTimeToSearch[39803], dEndTimeToSearch[40203]
AUTOTUNE LOG: PeakFind: STATUS: Number of Peaks found in range: 0
AUTOTUNE LOG: PeakFind: STATUS: Abundance of most abundant peak: 0
AUTOTUNE LOG: STATUS: FindPeakForMass: FindPeakForMass() returned = 0
AUTOTUNE LOG: WARNING: FindPeakForMass: right after FindPeakForMass() massIndex/mass[1/1600], peakInfoInNanoseconds.pkHeight = 0
)";

}  // namespace korvane
