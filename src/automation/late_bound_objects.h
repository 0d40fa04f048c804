// Foreign automation objects in the place of native ones: a calibration or a peak list that somebody else implements,
// with the members of "MassTimeCalibration" and "PeakList".
#pragma once

#include <memory>

#include "korvane/automation.h"
#include "korvane/mass_time.h"
#include "korvane/peak_finder.h"

namespace korvane::automation {

/// Error 13 naming the object's class where it lacks the members.
std::shared_ptr<MassTimeCalibration> adapt_calibration(const Object& object);
std::shared_ptr<PeakList> adapt_peak_list(const Object& object);

/// The object behind an adapter; null for a native implementation.
Object object_behind(const MassTimeCalibration& calibration);
Object object_behind(const PeakList& peaks);

/// The object behind an adapter, or one of a copy of the calibration.
Object object_of(const MassTimeCalibration& calibration);

}  // namespace korvane::automation
