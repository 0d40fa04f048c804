#include "korvane/tune_params_xml.h"

#include <algorithm>
#include <array>

#include "config/config_document.h"

namespace korvane {

namespace {

constexpr ConfigFile parameter_file{
    "TuneParams.xml", "TuneParamXML: Failed to load XML: ", "TuneParamsXML: Failed to load XML: ",
    "TuneParamsXML: Failed to load XML file: ", "XML file was set read-only; removing read-only attribute"};

const std::string tof_path = "/QTOFTuneParams/TOF/";
const std::string autotune_path = tof_path + "AutotuneParameters/";
const std::string manual_path = tof_path + "ManualTuneParameters/";

constexpr std::array<std::string_view, 3> manual_groups{"IndexedSlicer", "Calibration", "SetpointUI"};
constexpr std::array<std::string_view, 9> writable_groups{"gainParams",  "checkAbundParams", "resolutionParams",
                                                          "RampParams",  "PeakHandling",     "Misc",
                                                          "Calibration", "IndexedSlicer",    "SetpointUI"};

constexpr std::string_view querying = "querying for element";

template <class Groups>
void require_permitted(const Groups& groups, const std::string& group) {
    if (std::find(groups.begin(), groups.end(), group) == groups.end())
        throw Error(error_number::group_not_permitted, "", "");
}

template <class... Pieces>
[[noreturn]] void raise_item_not_found(const Pieces&... pieces) {
    throw Error(error_number::file_or_element, std::string(config_reader_source), text_of("Item[", pieces...));
}

constexpr std::string_view not_found = "] not found in Tune XML config file";

}  // namespace

struct clsTuneParamsXML::Impl {
    explicit Impl(const Platform& platform) : trace(platform.tracers), document(platform, parameter_file) {}

    void open() {
        routine(trace, {"OpenTuneParamsXML"}, no_line, [&](TraceObj& record) { document.load(record); });
    }
    void open_if_needed(bool reload) {
        if (reload || !document.is_open()) open();
    }
    double leaf_number(const XmlElement& group_node, const std::string& group, const std::string& name) const {
        const std::optional<XmlElement> leaf = select_child(group_node, name);
        if (!leaf) raise_item_not_found(group, "\\", name, not_found);
        return document.number(*leaf, name);
    }

    Trace trace;
    ConfigDocument document;
};

clsTuneParamsXML::clsTuneParamsXML(Platform platform) : impl_(std::make_unique<Impl>(platform)) {}
clsTuneParamsXML::~clsTuneParamsXML() = default;
clsTuneParamsXML::clsTuneParamsXML(clsTuneParamsXML&&) noexcept = default;
clsTuneParamsXML& clsTuneParamsXML::operator=(clsTuneParamsXML&&) noexcept = default;

double clsTuneParamsXML::GetTuneParamByXMLPath(const std::string& XMLPath, const std::string& ParamName,
                                               bool bReOpenXMLFile) {
    const auto body = [&](TraceObj& record) {
        impl_->open_if_needed(bReOpenXMLFile);
        record.TR_PRINT("Seeking Node[", XMLPath, "]");
        const auto node = impl_->document.select(XMLPath);
        if (!node)
            throw Error(error_number::group_node, "GetTuneParamByXMLPath",
                        text_of("XML Query failed for ", XMLPath, ", ", ParamName));
        const auto leaf = select_child(*node, ParamName);
        if (!leaf) raise_item_not_found(ParamName, not_found, " at path[", XMLPath, "]");
        return impl_->document.number(*leaf, ParamName);
    };
    return routine(impl_->trace, {"GetTuneParamByXMLPath"}, StoreLine{querying, ParamName}, body);
}

double clsTuneParamsXML::GetAutotuneLimitValue(const std::string& LimitGroupType, const std::string& ParamName,
                                               bool bReOpenXMLFile) {
    const auto body = [&](TraceObj& record) {
        impl_->open_if_needed(bReOpenXMLFile);
        const std::string path = autotune_path + LimitGroupType;
        record.TR_PRINT("Seeking Node[", path, "]");
        const auto group = impl_->document.select(path);
        // Callers match on this source, although the routine has another name.
        if (!group)
            throw Error(error_number::group_node, "GetTuneParamByXMLPath",
                        text_of("XML Query failed for ", path, ", ", ParamName));
        return impl_->leaf_number(*group, LimitGroupType, ParamName);
    };
    return routine(impl_->trace, {"GetAutotuneLimitValue"}, StoreLine{querying, ParamName}, body);
}

double clsTuneParamsXML::GetAutoParm(const std::string& LimitGroupType, std::int32_t LimitType, bool bReOpenXMLFile) {
    return routine(impl_->trace, {"GetAutoParm"}, no_line,
                   [&] { return GetAutotuneLimitValue(LimitGroupType, std::to_string(LimitType), bReOpenXMLFile); });
}

double clsTuneParamsXML::GetManualTuneValue(const std::string& GroupType, const std::string& ParamName,
                                            bool bReOpenXMLFile) {
    const auto body = [&] {
        impl_->open_if_needed(bReOpenXMLFile);
        require_permitted(manual_groups, GroupType);
        const auto group = impl_->document.select(manual_path + GroupType);
        if (!group) throw Error(error_number::group_node, "TuneParams.GetManualTuneValue", "ChosenRootNode is nothing");
        return impl_->leaf_number(*group, GroupType, ParamName);
    };
    return routine(impl_->trace, {"GetManualTuneValue"}, StoreLine{querying, ParamName}, body);
}

void clsTuneParamsXML::WriteTuneParamValue(const std::string& ParamGroupName, const std::string& strParamName,
                                           const std::string& strNewParamValue, const std::string& strAltTreeNode) {
    const auto body = [&](TraceObj& record) {
        require_permitted(writable_groups, ParamGroupName);
        impl_->open();
        const auto group = impl_->document.select(tof_path + strAltTreeNode + "/" + ParamGroupName);
        // The text names the usual tree even when another was asked for.
        if (!group)
            throw Error(error_number::group_node, "GetTuneParamByXMLPath",
                        text_of("XML Query failed for ", autotune_path, ParamGroupName, ", ", strParamName, ", ",
                                strNewParamValue));
        const auto leaf = select_child(*group, strParamName);
        if (!leaf) raise_item_not_found(ParamGroupName, "\\", strParamName, not_found);
        impl_->document.write(record, *leaf, strNewParamValue);
    };
    routine(impl_->trace, {"WriteTuneParamValue"}, StoreLine{"writing element", strParamName}, body);
}

bool clsTuneParamsXML::IsThisSourceSupportedForAutotuning(const std::string& strPolarity,
                                                          const std::string& StrSourceType) {
    const auto body = [&] {
        impl_->open();
        const std::string path =
            text_of("/QTOFTuneParams/Mode/Tune[@polarity=\"", strPolarity, "\" and @source=\"", StrSourceType, "\"]");
        const auto tune = impl_->document.select(path);
        if (!tune) return false;
        const auto allowed = tune->child("Allowed");
        if (!allowed) raise_item_not_found("Allowed", not_found, " at path[", path, "]");
        return equal_but_for_case(allowed->text(), "YES");
    };
    return routine(impl_->trace, {"IsThisSourceSupportedForAutotuning"}, StoreLine{querying, "Allowed"}, body);
}

std::string clsTuneParamsXML::GetAutotuneParameterXMLPath() {
    return std::string(parameter_file.name);
}

}  // namespace korvane
