// Peak records as JSON objects.
#pragma once

#include "korvane/records.h"
#include "session.h"

namespace korvane::program {

/// The eight values by their names.
inline Json peak_json(const PeakInfo& record) {
    Json object = Json::object();
    for (std::size_t i = 0; i < peak_info_names.size(); ++i)
        object[peak_info_names[i]] = record.value(static_cast<std::int32_t>(i));
    return object;
}

}  // namespace korvane::program
