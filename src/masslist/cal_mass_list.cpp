// The calibrant mass-list file: its configurations, the rewriting of one, and lists as text: one line a mass, joined by
// line feeds; use flag, tab, m/z.
#include "korvane/cal_mass_list.h"

#include <fmt/format.h>

#include <limits>
#include <map>
#include <ranges>

#include "frame/routine.h"
#include "platform/files.h"
#include "platform/text.h"
#include "platform/xml_document.h"
#include "platform/xml_source.h"

namespace korvane {

namespace {

/// An ion source and a polarity, as the file writes them.
struct MassListName {
    std::string source, polarity;

    std::string key() const { return source + "|" + polarity; }
    std::string xpath() const {
        return "/QTOF_MassListConfiguration/Configuration[@IonSource='" + source + "' and @IonPolarity='" + polarity +
               "']";
    }
};

template <class... Pieces>
[[noreturn]] void raise_mass_list_error(const Pieces&... description) {
    throw Error(error_number::routine_detected, "CalMassList", text_of(description...), ErrorKind::configuration);
}

constexpr const char* list_element = "MassList";

std::string not_found(const MassListName& name) {
    return text_of("Mass list for source ", name.source, " and ", name.polarity, " polarity not found");
}

bool fits_into_xml(std::string_view text) {
    while (!text.empty()) {
        const auto character = take_utf8(text);
        if (!character || !is_xml_character(*character)) return false;
    }
    return true;
}

XmlNewElement mass_element(const std::string& line, const std::string& list) {
    const std::size_t tab = line.find('\t');
    if (tab == std::string::npos || !fits_into_xml(line))
        raise_mass_list_error("Mass list for [", list, "]: line[", line, "] is not a use flag, a tab and a mass");
    return {"mass", {{"Used", line.substr(0, tab)}}, line.substr(tab + 1, line.find('\t', tab + 1) - tab - 1), {}};
}

struct MassListEntry {
    MassListName name;
    std::vector<std::string> lines = {};  ///< one a `mass` element, whatever its text holds
    bool dirty = false;
};

using MassLists = std::map<std::string, MassListEntry>;

/// A loaded file.
class MassListDocument {
public:
    /// Error -1 for a file that cannot be read or is not a mass-list file.
    MassListDocument(Files& files, const std::string& file_name) : file_name_(file_name) {
        const XmlParseError error = document_.load(files, file_name);
        if (error.code < 0) raise_mass_list_error("Failed to open mass list file: " + file_name);
        if (error) raise_mass_list_error(file_name + " is not a valid Mass List file.\r\n" + error.reason);
        if (!document_.select("/QTOF_MassListConfiguration"))
            raise_mass_list_error(file_name + " is not a valid Mass List file.");
    }

    MassLists lists() const {
        MassLists lists;
        for (const XmlElement& found : document_.select_all("/QTOF_MassListConfiguration/Configuration")) {
            MassListEntry list{{found.attribute("IonSource"), found.attribute("IonPolarity")}};
            for (const XmlElement& mass : found.select_all("MassList/mass"))
                list.lines.push_back(mass.attribute("Used") + '\t' + mass.text());
            lists[list.name.key()] = std::move(list);
        }
        return lists;
    }
    /// Error -1 where the configuration is missing or has no masses.
    std::vector<XmlElement> masses(const MassListName& name) const {
        auto masses = document_.select_all(name.xpath() + "/MassList/mass");
        if (masses.empty()) raise_mass_list_error(not_found(name));
        return masses;
    }

    /// Puts `list` in the place of the first `MassList` of the first configuration of that name, as its last child.
    /// Error -1 where there is no such configuration.
    void rewrite(const MassListName& name, const XmlNewElement& list) {
        const auto configuration = document_.select(name.xpath());
        if (!configuration) raise_mass_list_error(not_found(name), " in ", file_name_);
        document_.append_child(*configuration, list, configuration->select(list_element));
    }
    /// Error -1 naming the file when it cannot be written.
    void save(Files& files, const std::string& file_name) const {
        const std::string failed = "Failed to save mass list file: " + file_name;
        try {
            // A save puts a new file in the place of the old one, which the attribute alone would not keep from it.
            if (files.status(file_name).read_only) raise_mass_list_error(failed + "\r\nThe file is read-only");
            document_.save(files, file_name);
        } catch (const FileError& error) {
            raise_mass_list_error(failed + "\r\n" + error.what());
        }
    }

private:
    std::string file_name_;
    XmlDocument document_;
};

std::string joined_lines(const std::vector<std::string>& lines) {
    return fmt::format("{}", fmt::join(lines, "\n"));
}

/// The `MassList` element for lines; what stands behind a second tab is left out. Error 6 above 32767 lines, -1 naming
/// `list` and the first line that is not a use flag, a tab and a text.
XmlNewElement mass_list_element(const std::vector<std::string>& lines, const std::string& list) {
    // The rule's line counter has 16 bits.
    if (lines.size() > static_cast<std::size_t>(std::numeric_limits<std::int16_t>::max()))
        raise_runtime_fault(error_number::overflow, "[", lines.size(), "] lines of mass list[", list, "]");
    XmlNewElement element{list_element, {}, "", {}};
    for (const std::string& line : lines) element.children.push_back(mass_element(line, list));
    return element;
}

}  // namespace

struct CalMassList::Impl {
    explicit Impl(const Platform& platform) : files(platform.files), clock(platform.clock) {}

    struct OpenFile {
        MassListDocument document;
        MassLists lists;
    };

    OpenFile& require_open() {
        if (!open) raise_runtime_fault(error_number::object_not_set, "no mass list file is open");
        return *open;
    }
    MassListEntry& entry(const std::string& source, const std::string& polarity) {
        MassLists& lists = require_open().lists;
        const auto known = lists.find(MassListName{source, polarity}.key());
        if (known == lists.end())
            raise_runtime_fault(error_number::subscript, "no mass list for [", source, "|", polarity, "]");
        return known->second;
    }

    std::shared_ptr<Files> files;
    std::shared_ptr<Clock> clock;
    std::optional<OpenFile> open;
    bool any_dirty = false;
};

CalMassList::CalMassList(Platform platform) : impl_(new Impl(platform), [](Impl* state) { delete state; }) {}

VariantArray<double> CalMassList::GetMassListArrayFromFile(const std::string& fileName, const std::string& sourceType,
                                                           const std::string& polarity) {
    const MassListDocument document(*impl_->files, fileName);
    std::vector<double> masses;
    for (const XmlElement& mass : document.masses({sourceType, polarity}))
        masses.push_back(located_number(mass.text(), [&] {
            return text_of("Mass list for source ", sourceType, " and ", polarity, " polarity of ", fileName);
        }));
    return masses;
}

void CalMassList::OpenMassListFile(const std::string& fileName) {
    impl_->open.reset();
    MassListDocument document(*impl_->files, fileName);
    MassLists lists = document.lists();
    impl_->open.emplace(Impl::OpenFile{std::move(document), std::move(lists)});
}

void CalMassList::CloseMassListFile() {
    impl_->open.reset();
}

void CalMassList::SaveMassListToFile(const std::string& fileName) {
    if (fileName.empty())
        raise_mass_list_error("Save mass list file: A file name other than the default was not specified");
    auto& [document, lists] = impl_->require_open();
    for (auto& [key, entry] : lists) {
        if (!entry.dirty) continue;
        document.rewrite(entry.name, mass_list_element(entry.lines, key));
        entry.dirty = false;
    }
    const auto lock = wait_for_edit_lock(*impl_->files, *impl_->clock, fileName);
    document.save(*impl_->files, fileName);
    impl_->any_dirty = false;
}

VariantArray<std::string> CalMassList::GetMassListArray(const std::string& sourceType, const std::string& polarity) {
    return impl_->entry(sourceType, polarity).lines;
}

std::string CalMassList::GetMassList(const std::string& sourceType, const std::string& polarity) {
    return joined_lines(impl_->entry(sourceType, polarity).lines);
}

void CalMassList::UpdateMassList(const std::string& sourceType, const std::string& polarity,
                                 const std::string& massList) {
    MassListEntry& entry = impl_->entry(sourceType, polarity);
    if (joined_lines(entry.lines) == massList) return;
    entry.lines.clear();  // no line for an empty text
    for (const auto line : std::views::split(massList, '\n')) entry.lines.emplace_back(line.begin(), line.end());
    entry.dirty = true;
    impl_->any_dirty = true;
}

bool CalMassList::IsMassListDirty(const std::string& sourceType, const std::string& polarity) {
    return impl_->entry(sourceType, polarity).dirty;
}

bool CalMassList::AnyMassListsDirty() {
    return impl_->any_dirty;
}

}  // namespace korvane
