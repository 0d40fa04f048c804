#include "korvane/tune_prefs_xml.h"

#include "config/config_document.h"

namespace korvane {

namespace {

constexpr ConfigFile preference_file{"TunePreferences.xml",
                                     "TunePrefsXML: Failed to load XML: ", "TunePrefsXML: Failed to load XML: ",
                                     "TunePrefsXML: Failed to load XML file: ", ""};

const std::string root_missing = "ChosenTunePreferencesRootNode is nothing";

}  // namespace

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
    return routine(impl_->trace, {"GetTunePreference"}, StoreLine{"querying for element", ParamName}, [&] {
        if (bReOpenXMLFile || !impl_->document.is_open())
            impl_->open([&](TraceObj& record) { impl_->document.load(record); });
        return impl_->preference(ParamName).text();
    });
}

void clsTunePrefsXML::WriteTunePreference(const std::string& strParamName, const std::string& strNewParameterValue) {
    routine(impl_->trace, {"WriteTunePreference"}, StoreLine{"writing element", strParamName}, [&](TraceObj& record) {
        const auto lock = impl_->open([&](TraceObj& inner) { return impl_->document.load_to_edit(inner); });
        impl_->document.write(record, impl_->preference(strParamName), strNewParameterValue);
    });
}

}  // namespace korvane
