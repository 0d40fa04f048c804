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

constexpr RoutineName opening{"OpenTuneParamsXML"};
constexpr std::string_view querying = "querying for element";

template <class Groups>
void require_permitted(const Groups& groups, const std::string& group) {
    if (std::find(groups.begin(), groups.end(), group) == groups.end())
        throw Error(error_number::group_not_permitted, "", "");
}

}  // namespace

struct clsTuneParamsXML::Impl {
    explicit Impl(const Platform& platform) : trace(platform.tracers), document(platform, parameter_file) {}

    void open() {
        routine(trace, opening, no_line, [&](TraceObj& record) { document.load(record); });
    }
    void open_if_needed(bool reload) {
        if (reload || !document.is_open()) open();
    }
    /// Callers match on this source, although not all routines have that name.
    XmlElement group(const std::string& path, const std::string& described) const {
        return document.required(path, "GetTuneParamByXMLPath", "XML Query failed for " + described);
    }
    XmlElement sought(TraceObj& record, const std::string& path, const std::string& name) const {
        record.TR_PRINT("Seeking Node[", path, "]");
        return group(path, text_of(path, ", ", name));
    }
    static XmlElement leaf(const XmlElement& node, const std::string& group, const std::string& name) {
        return required_child(node, name, text_of(group, "\\", name));
    }

    Trace trace;
    ConfigDocument document;
};

clsTuneParamsXML::clsTuneParamsXML(Platform platform) : impl_(new Impl(platform), [](Impl* state) { delete state; }) {}

double clsTuneParamsXML::GetTuneParamByXMLPath(const std::string& XMLPath, const std::string& ParamName,
                                               bool bReOpenXMLFile) {
    const auto body = [&](TraceObj& record) {
        impl_->open_if_needed(bReOpenXMLFile);
        const XmlElement node = impl_->sought(record, XMLPath, ParamName);
        const std::string place = text_of(" at path[", XMLPath, "]");
        return impl_->document.number(required_child(node, ParamName, ParamName, place), ParamName);
    };
    return routine(impl_->trace, {"GetTuneParamByXMLPath"}, StoreLine{querying, ParamName}, body);
}

double clsTuneParamsXML::GetAutotuneLimitValue(const std::string& LimitGroupType, const std::string& ParamName,
                                               bool bReOpenXMLFile) {
    const auto body = [&](TraceObj& record) {
        impl_->open_if_needed(bReOpenXMLFile);
        const XmlElement group = impl_->sought(record, autotune_path + LimitGroupType, ParamName);
        return impl_->document.number(Impl::leaf(group, LimitGroupType, ParamName), ParamName);
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
        const XmlElement group = impl_->document.required(manual_path + GroupType, "TuneParams.GetManualTuneValue",
                                                          "ChosenRootNode is nothing");
        return impl_->document.number(Impl::leaf(group, GroupType, ParamName), ParamName);
    };
    return routine(impl_->trace, {"GetManualTuneValue"}, StoreLine{querying, ParamName}, body);
}

void clsTuneParamsXML::WriteTuneParamValue(const std::string& ParamGroupName, const std::string& strParamName,
                                           const std::string& strNewParamValue, const std::string& strAltTreeNode) {
    const auto body = [&](TraceObj& record) {
        require_permitted(writable_groups, ParamGroupName);
        const auto lock = routine(impl_->trace, opening, no_line,
                                  [&](TraceObj& inner) { return impl_->document.load_to_edit(inner); });
        // The text names the usual tree even when another was asked for.
        const XmlElement group =
            impl_->group(tof_path + strAltTreeNode + "/" + ParamGroupName,
                         text_of(autotune_path, ParamGroupName, ", ", strParamName, ", ", strNewParamValue));
        impl_->document.write(record, Impl::leaf(group, ParamGroupName, strParamName), strNewParamValue);
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
        const auto allowed = required_child(*tune, "Allowed", "Allowed", text_of(" at path[", path, "]"));
        return equal_but_for_case(allowed.text(), "YES");
    };
    return routine(impl_->trace, {"IsThisSourceSupportedForAutotuning"}, StoreLine{querying, "Allowed"}, body);
}

std::string clsTuneParamsXML::GetAutotuneParameterXMLPath() {
    return std::string(parameter_file.name);
}

}  // namespace korvane
