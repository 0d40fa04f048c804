// Files of pictures and pages.
#pragma once

#include <string>

#include "korvane/control_chart.h"
#include "korvane/report.h"
#include "korvane/tune_record.h"
#include "session.h"

namespace korvane::program {

/// The page of a record of the history, with the charts that all calibrants share, and those out of control.
std::string report_page(TuneHistory& history, const TuneRecord& record);
/// Where it is written when nobody says: beside the tune logs.
std::string report_name(Session& session, const TuneRecord& record);

/// A control chart as a picture shows it: three sigma to either side, marked where a rule of `korvane trend` alarms.
TrendChart trend_chart(const ControlChart& chart);

}  // namespace korvane::program
