#include "masslist/mass_list_document.h"

#include "korvane/error.h"
#include "platform/text.h"

namespace korvane {

namespace {

constexpr const char* list_element = "MassList";

std::string not_found(const MassListName& name) {
    return text_of("Mass list for source ", name.source, " and ", name.polarity, " polarity not found");
}

}  // namespace

void raise_mass_list_error(const std::string& description) {
    throw Error(error_number::routine_detected, "CalMassList", description);
}

MassListDocument::MassListDocument(Files& files, const std::string& file_name) : file_name_(file_name) {
    const XmlParseError error = document_.load(files, file_name);
    const bool unreadable = error.code < 0;
    if (unreadable) raise_mass_list_error("Failed to open mass list file: " + file_name);
    if (error) raise_mass_list_error(file_name + " is not a valid Mass List file.\r\n" + error.reason);
    if (!document_.select("/QTOF_MassListConfiguration"))
        raise_mass_list_error(file_name + " is not a valid Mass List file.");
}

std::vector<XmlElement> MassListDocument::configurations() const {
    return document_.select_all("/QTOF_MassListConfiguration/Configuration");
}

std::vector<XmlElement> MassListDocument::masses(const MassListName& name) const {
    auto masses = document_.select_all(name.xpath() + "/MassList/mass");
    if (masses.empty()) raise_mass_list_error(not_found(name));
    return masses;
}

void MassListDocument::require_rewritable(const MassListName& name) const {
    const auto found = document_.select_all(name.xpath());
    if (found.empty()) raise_mass_list_error(text_of(not_found(name), " in ", file_name_));
    const bool one_place = found.size() == 1 && found.front().select_all(list_element).size() <= 1;
    if (!one_place)
        raise_mass_list_error(text_of("Mass list for source ", name.source, " and ", name.polarity,
                                      " polarity is given more than once in ", file_name_));
}

void MassListDocument::rewrite(const MassListName& name, const XmlNewElement& list) {
    const XmlElement configuration = document_.select(name.xpath()).value();
    if (const auto old = configuration.child(list_element))
        document_.replace_child(configuration, *old, list);
    else
        document_.append_child(configuration, list);
}

void MassListDocument::save(Files& files, const std::string& file_name) const {
    const std::string failed = "Failed to save mass list file: " + file_name;
    try {
        // A save puts a new file in the place of the old one, which the attribute alone would not keep from it.
        if (files.status(file_name).read_only) raise_mass_list_error(failed + "\r\nThe file is read-only");
        document_.save(files, file_name);
    } catch (const FileError& error) {
        raise_mass_list_error(failed + "\r\n" + error.what());
    }
}

}  // namespace korvane
