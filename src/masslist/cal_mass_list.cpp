#include "korvane/cal_mass_list.h"

#include <map>

#include "frame/routine.h"
#include "masslist/mass_list_document.h"
#include "platform/safe_save.h"
#include "platform/text.h"

namespace korvane {

namespace {

struct MassListEntry {
    MassListName name;
    std::vector<std::string> lines;  ///< one a mass
    bool dirty = false;
};

using MassLists = std::map<std::string, MassListEntry>;

MassLists lists_of(const MassListDocument& document) {
    MassLists lists;
    for (const XmlElement& configuration : document.configurations()) {
        const MassListName name{configuration.attribute("IonSource"), configuration.attribute("IonPolarity")};
        lists[name.key()] = {name, mass_list_lines(configuration.select_all("MassList/mass"))};
    }
    return lists;
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
            raise_runtime_fault(error_number::subscript, text_of("no mass list for [", source, "|", polarity, "]"));
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
    MassLists lists = lists_of(document);
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
    entry.lines = split_lines(massList);
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
