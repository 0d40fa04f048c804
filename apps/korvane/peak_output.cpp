#include "peak_output.h"

#include <fmt/format.h>

#include <vector>

namespace korvane::program {

Json peak_json(const PeakInfo& record) {
    Json object = Json::object();
    for (std::size_t i = 0; i < peak_info_names.size(); ++i)
        object[peak_info_names[i]] = record.value(static_cast<std::int32_t>(i));
    return object;
}

std::string quality_text(const std::optional<PeakQuality>& quality) {
    if (!quality) return "-";
    std::vector<std::string> words;
    if (quality->clipped) words.emplace_back("clipped");
    if (quality->overlapped) words.emplace_back("overlapped");
    if (quality->few_ions) words.emplace_back("few ions");
    if (quality->misfit > 1) words.push_back(fmt::format("misfit {:.2g}", quality->misfit));
    return words.empty() ? "ok" : fmt::format("{}", fmt::join(words, ", "));
}

Json quality_json(const std::optional<PeakQuality>& quality) {
    if (!quality) return nullptr;
    return {{"clipped", quality->clipped},
            {"overlapped", quality->overlapped},
            {"few_ions", quality->few_ions},
            {"misfit", quality->misfit}};
}

Json verdict_json(const CalibrantVerdict& verdict) {
    const bool has_limit = verdict.limit > 0;
    return {{"state", name_of(verdict.state)},
            {"value", has_limit ? Json(verdict.value) : Json()},
            {"limit", has_limit ? Json(verdict.limit) : Json()},
            {"text", verdict.text}};
}

}  // namespace korvane::program
