// Member tables of the objects that members take and return: PeakList and MassTimeCalibration.
// The order of the lines is the order of the vtable; numbers and order are a public contract.
#pragma once

#include "automation/member.h"
#include "korvane/mass_time.h"
#include "korvane/peak_finder.h"

namespace korvane::automation {

/// All records in the units of the list; an array of records.
Value peak_records(PeakList& peaks);
/// One value of a record by its name ("pkHeight"), whatever the case. Error 5 naming an unknown name.
double peak_value(PeakList& peaks, std::int32_t index, const std::string& name, bool current_units);

void convert_peaks(PeakList& peaks, const CalibrationObject& calibration, std::int32_t mode);

inline constexpr auto peak_list_members = member_table(
    property<&PeakList::count>(1, "Count", "Number of peaks."),
    property<&peak_records>(2, "Records", "All records in the list's units, as an array."),
    method<&PeakList::order>(
        3, "Order",
        "Orders by a record position, 0 to 7; direction 0 puts the largest value first, any other the smallest.",
        value("Position"), value("Direction", 0)),
    method<&PeakList::GetPeakAttributeInfo>(
        4, "Record of a peak, index from 0; CurrentUnits False gives nanoseconds even after a conversion.",
        value("Index"), value("CurrentUnits", true)),
    method<&peak_value>(5, "GetPeakValue", "One value of a peak's record by its name, such as pkHeight.",
                        value("Index"), value("Name"), value("CurrentUnits", true)),
    method<&convert_peaks>(6, "Convert", "Converts all records from nanoseconds to amu (mode 2).",
                           reference("Calibration"), value("Mode", convert_to_amu_mode)));

inline constexpr auto mass_time_calibration_members = member_table(
    property<&MassTimeCalibration::coefficients>(1, "Coefficients", "The coefficients, in nanoseconds."),
    property<&MassTimeCalibration::settings>(2, "Settings", "The settings."),
    property<&MassTimeCalibration::use_flags>(3, "UseFlags", "An array, indexed by term number; 1 is used."),
    method<&MassTimeCalibration::set_coefficients>(4, "SetCoefficients", "Sets the coefficients, in nanoseconds.",
                                                   reference("Coefficients")),
    method<&MassTimeCalibration::set_settings>(5, "SetSettings", "Sets the settings.", reference("Settings")),
    method<&MassTimeCalibration::mass_from_time>(6, "MassFromTime", "Mass in amu of a flight time in ns.",
                                                 value("Time")),
    method<&MassTimeCalibration::time_from_mass>(7, "TimeFromMass", "Flight time in ns of a mass in amu.",
                                                 value("Mass")),
    method<&MassTimeCalibration::masses_from_times>(8, "MassesFromTimes", "Masses of an array of flight times.",
                                                    reference("Times")),
    method<&MassTimeCalibration::times_from_masses>(9, "TimesFromMasses", "Flight times of an array of masses.",
                                                    reference("Masses")),
    method<&MassTimeCalibration::clone>(10, "Clone", "An independent calibration with the same content."));

}  // namespace korvane::automation
