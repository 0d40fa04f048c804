// The parameter store, the preference store, and the abort flag that is one of its preferences, over the document
// behind a store: where it lies, how often its load and save are tried, what is said then.
#include <algorithm>
#include <array>
#include <memory>
#include <optional>

#include "frame/lazy_instrument.h"
#include "frame/routine.h"
#include "korvane/abort_helper.h"
#include "korvane/tune_params_xml.h"
#include "korvane/tune_prefs_xml.h"
#include "platform/files.h"
#include "platform/xml_document.h"

namespace korvane {

namespace {

constexpr int attempts = 3;
constexpr int retry_pause_milliseconds = 200;

constexpr std::string_view config_reader_source = "AutotuneParameterXMLConfigFileReader";

/// Reaction of the stores' routines: "name: error[number, description] doing[item]".
struct StoreLine {
    std::string_view doing, item;
    void operator()(TraceObj& record, RoutineName name, const Error& error) const {
        record.error_line(name.name, ": error[", error.number(), ", ", error.description(), "] ", doing, "[", item,
                          "]");
    }
};

/// What tells the stores' files apart.
struct ConfigFile {
    std::string_view name;
    std::string_view reader;                   ///< as the trace of a failed load calls it
    std::string_view store;                    ///< as that of a failed save does, and the description of either
    std::string_view cleared_read_only_trace;  ///< empty: nothing is traced
};

class ConfigDocument {
public:
    ConfigDocument(const Platform& platform, const ConfigFile& file) : platform_(platform), file_(file) {}

    /// Whether a load was ever tried. After a failed one the document is there, and empty.
    bool is_open() const { return opened_; }

    /// Raises what a layer says that cannot be had. To be called before a handler that would take its error for a
    /// failed opening.
    void require_layer() const { platform_.instrument->create_path_information(); }
    /// Reads the file, three times at most; then -904, caused by what the system or the parser says. Memory is kept
    /// between loads.
    void load(TraceObj& record) { load(record, path()); }
    /// The same for an edit, which is to hold the lock until its file is saved.
    std::unique_ptr<FileLock> load_to_edit(TraceObj& record) {
        const std::string file_path = path();
        auto lock = wait_for_edit_lock(*platform_.files, *platform_.clock, file_path);
        if (!lock) record.TR_PRINT("Edit without lock of ", file_path);
        load(record, file_path);
        return lock;
    }
    /// Sets an element's text and saves, three times at most; then -904. A read-only attribute is cleared first, once;
    /// where it cannot be, the system's error is raised as it is.
    void write(TraceObj& record, const XmlElement& element, const std::string& text) {
        document_.set_text(element, text);
        const std::string file_path = path();
        const FileStatus status = platform_.files->status(file_path);
        if (status.exists && status.read_only) {
            if (!file_.cleared_read_only_trace.empty()) record.TR_PRINT(file_.cleared_read_only_trace);
            platform_.files->clear_read_only(file_path);
        }
        for (int attempt = 1;; ++attempt) {
            try {
                return document_.save(*platform_.files, file_path);
            } catch (const FileError& fault) {
                if (attempt == attempts) give_up(record, file_.store, file_path, fault.what());
            }
            before_next_attempt(record);
        }
    }

    /// First element of an XPath query.
    std::optional<XmlElement> select(const std::string& xpath) const { return document_.select(xpath); }
    /// The same; error -905 of `source` where there is none.
    XmlElement required(const std::string& xpath, std::string_view source, const std::string& description) const {
        if (const auto found = select(xpath)) return *found;
        throw Error(error_number::group_node, std::string(source), description);
    }
    /// The element's number; a text that is none is an error that names item and file.
    double number(const XmlElement& element, std::string_view item) const {
        return located_number(element.text(), [&] { return text_of("Item[", item, "] of ", path()); });
    }

private:
    std::string path() const { return join_path(base_folder(*platform_.instrument), std::string(file_.name)); }

    void load(TraceObj& record, const std::string& path) {
        opened_ = true;
        for (int attempt = 1;; ++attempt) {
            parse_error_ = document_.load(*platform_.files, path);
            if (!parse_error_) return;
            if (attempt == attempts) give_up(record, file_.reader, path, parse_error_.reason);
            before_next_attempt(record);
        }
    }

    void before_next_attempt(TraceObj& record) const {
        record.TR_PRINT("XML load failed; parseError[", parse_error_.code, "]");
        platform_.clock->sleep_milliseconds(retry_pause_milliseconds);
    }

    [[noreturn]] void give_up(TraceObj& record, std::string_view word, const std::string& path,
                              const std::string& cause) const {
        record.TR_PRINT(word, ": Failed to load XML: ", path, "; parseError[", parse_error_.code, "]");
        throw Error(error_number::file_or_element, std::string(config_reader_source),
                    text_of(file_.store, ": Failed to load XML file: ", path, "; parseError[", parse_error_.code, "]"))
            .caused_by(cause);
    }

    Platform platform_;
    ConfigFile file_;
    XmlDocument document_;
    XmlParseError parse_error_;
    bool opened_ = false;
};

/// First node of a relative query; error -904 naming `item`, and `place` behind the text, where there is none or the
/// query is none, as "my pref" and "160cm" are no step of a path.
XmlElement required_child(const XmlElement& parent, const std::string& query, std::string_view item,
                          std::string_view place = {}) {
    try {
        if (const auto found = parent.select(query)) return *found;
    } catch (const Error&) {
        // Nothing can have that name.
    }
    throw Error(error_number::file_or_element, std::string(config_reader_source),
                text_of("Item[", item, "] not found in Tune XML config file", place));
}

constexpr ConfigFile parameter_file{"TuneParams.xml", "TuneParamXML", "TuneParamsXML",
                                    "XML file was set read-only; removing read-only attribute"};

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

constexpr ConfigFile preference_file{"TunePreferences.xml", "TunePrefsXML", "TunePrefsXML", ""};

const std::string root_missing = "ChosenTunePreferencesRootNode is nothing";

const std::string abort_flag = "AbortFlag";
const std::string no_abort = "0";
const std::string abort_requested = "1";

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
    return routine(impl_->trace, StoreLine{querying, ParamName}, body);
}

double clsTuneParamsXML::GetAutotuneLimitValue(const std::string& LimitGroupType, const std::string& ParamName,
                                               bool bReOpenXMLFile) {
    const auto body = [&](TraceObj& record) {
        impl_->open_if_needed(bReOpenXMLFile);
        const XmlElement group = impl_->sought(record, autotune_path + LimitGroupType, ParamName);
        return impl_->document.number(Impl::leaf(group, LimitGroupType, ParamName), ParamName);
    };
    return routine(impl_->trace, StoreLine{querying, ParamName}, body);
}

double clsTuneParamsXML::GetAutoParm(const std::string& LimitGroupType, std::int32_t LimitType, bool bReOpenXMLFile) {
    return routine(impl_->trace, no_line,
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
    return routine(impl_->trace, StoreLine{querying, ParamName}, body);
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
    routine(impl_->trace, StoreLine{"writing element", strParamName}, body);
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
    return routine(impl_->trace, StoreLine{querying, "Allowed"}, body);
}

std::string clsTuneParamsXML::GetAutotuneParameterXMLPath() {
    return std::string(parameter_file.name);
}

struct clsTunePrefsXML::Impl {
    explicit Impl(const Platform& platform) : trace(platform.tracers), document(platform, preference_file) {}

    /// Runs `load(TraceObj&)` of the document.
    template <class Load>
    auto open(const Load& load) {
        document.require_layer();
        const auto unavailable = [](TraceObj& record, RoutineName name, const Error& error) {
            ErrorLine{"OpenTunePrefsXML: error[", ", ", "] opening Tune Prefs XML"}(record, name, error);
            throw Error(error_number::preferences_unavailable, std::string(config_reader_source),
                        "TunePreferences XML file doesn't exist")
                .caused_by(error.cause().empty() ? error.description() : error.cause());
        };
        return routine(trace, {"OpenTunePrefsXML"}, unavailable, load);
    }

    XmlElement preference(const std::string& name) const {
        return required_child(document.required("/TunePreferences", config_reader_source, root_missing), name, name);
    }

    Trace trace;
    ConfigDocument document;
};

clsTunePrefsXML::clsTunePrefsXML(Platform platform) : impl_(new Impl(platform), [](Impl* state) { delete state; }) {}

std::string clsTunePrefsXML::GetTunePreference(const std::string& ParamName, bool bReOpenXMLFile) {
    return routine(impl_->trace, StoreLine{"querying for element", ParamName}, [&] {
        if (bReOpenXMLFile || !impl_->document.is_open())
            impl_->open([&](TraceObj& record) { impl_->document.load(record); });
        return impl_->preference(ParamName).text();
    });
}

void clsTunePrefsXML::WriteTunePreference(const std::string& strParamName, const std::string& strNewParameterValue) {
    routine(impl_->trace, StoreLine{"writing element", strParamName}, [&](TraceObj& record) {
        const auto lock = impl_->open([&](TraceObj& inner) { return impl_->document.load_to_edit(inner); });
        impl_->document.write(record, impl_->preference(strParamName), strNewParameterValue);
    });
}

struct AbortHelper::Impl {
    explicit Impl(const Platform& platform) : trace(platform.tracers), preferences(platform) {}

    Trace trace;
    clsTunePrefsXML preferences;
};

AbortHelper::AbortHelper(Platform platform) : impl_(new Impl(platform), [](Impl* state) { delete state; }) {}

void AbortHelper::Reset() {
    impl_->preferences.WriteTunePreference(abort_flag, no_abort);
}

void AbortHelper::TriggerAbort() {
    routine(impl_->trace, no_line, [&] { impl_->preferences.WriteTunePreference(abort_flag, abort_requested); });
}

bool AbortHelper::UserHasClickedAbort() {
    return routine(impl_->trace, ErrorLine{"Error[", "]: "}, [&](TraceObj& record) {
        const bool requested = impl_->preferences.GetTunePreference(abort_flag, true) != no_abort;
        record.TR_PRINT(requested ? "Process Aborted by XML flag" : "Abort value is set to 0");
        return requested;
    });
}

}  // namespace korvane
