#include "korvane/listing.h"

#include "frame/lazy_instrument.h"
#include "korvane/error.h"
#include "platform/automation_arithmetic.h"
#include "platform/files.h"
#include "platform/xml_document.h"

namespace korvane {

namespace {

class ListedFile {
public:
    ListedFile(const Platform& platform, std::string path) : path_(std::move(path)) {
        if (const XmlParseError fault = document_.load(*platform.files, path_))
            throw Error(error_number::file_or_element, "listing", path_ + ": " + fault.reason);
    }

    XmlElement element(const std::string& xpath) const {
        if (const auto found = document_.select(xpath)) return *found;
        throw Error(error_number::group_node, "listing", path_ + ": no element " + xpath);
    }

private:
    std::string path_;
    XmlDocument document_;
};

std::string replaced(std::string text, const std::string& old, const std::string& replacement) {
    if (const auto at = text.find(old); at != std::string::npos) text.replace(at, old.size(), replacement);
    return text;
}

}  // namespace

std::vector<ListedParameter> list_tune_parameters(const Platform& platform, const std::string& tree) {
    const ListedFile file(platform, join_path(base_folder(*platform.instrument), "TuneParams.xml"));
    std::vector<ListedParameter> parameters;
    for (const XmlElement& group : file.element("/QTOFTuneParams/TOF/" + tree).select_all("*"))
        for (const XmlElement& leaf : group.select_all("*"))
            parameters.push_back({group.name(), leaf.name(), leaf.text()});
    return parameters;
}

std::vector<ListedPreference> list_tune_preferences(const Platform& platform) {
    const ListedFile file(platform, join_path(base_folder(*platform.instrument), "TunePreferences.xml"));
    std::vector<ListedPreference> preferences;
    for (const XmlElement& leaf : file.element("/TunePreferences").select_all("*"))
        preferences.push_back({leaf.name(), leaf.text()});
    return preferences;
}

std::vector<ListedMassList> list_mass_lists(const Platform& platform) {
    const ListedFile file(platform, default_mass_list_file(platform));
    std::vector<ListedMassList> lists;
    for (const XmlElement& configuration : file.element("/QTOF_MassListConfiguration").select_all("Configuration")) {
        ListedMassList list{configuration.attribute("IonSource"), configuration.attribute("IonPolarity"), {}};
        for (const XmlElement& mass : configuration.select_all("MassList/mass"))
            list.masses.push_back({mass.attribute("Used"), mass.text()});
        lists.push_back(std::move(list));
    }
    return lists;
}

std::string stored_number(const std::string& text) {
    return replaced(text, ".", decimal_separator());
}

std::string plain_number(const std::string& text) {
    return replaced(text, decimal_separator(), ".");
}

std::string default_mass_list_file(const Platform& platform) {
    return join_path(join_path(base_folder(*platform.instrument), "MassLists"), "default_calibration_mass_list.xml");
}

}  // namespace korvane
