// The calibrant mass-list file: one list per ion source and polarity.
#pragma once

#include <optional>
#include <string>

#include "korvane/platform.h"
#include "korvane/records.h"

namespace korvane {

/// A list's text has one line a mass, joined by line feeds: the use flag, a tab, the m/z. Errors are -1 with a text
/// that names the file or the list, except where a member says otherwise: 91 with no file open, 9 for a list that the
/// open file does not have.
class KORVANE_API CalMassList {
public:
    explicit CalMassList(Platform platform = Platform::process_default());

    /// All m/z of one list straight from a file, used or not, from index 0; an open file stays open. Error 13 naming a
    /// text that is not a number by the current locale, -2147467259 for a name with an apostrophe.
    VariantArray<double> GetMassListArrayFromFile(const std::string& fileName, const std::string& sourceType,
                                                  const std::string& polarity);
    /// Takes the lists of a file; after a failure the file that was open stays open, with its edits.
    void OpenMassListFile(const std::string& fileName);
    /// Forgets the open file and its edits.
    void CloseMassListFile();
    /// Writes the lists marked dirty into the open document and saves it under `fileName`; nothing is written where one
    /// of them cannot be. Error 6 for a list of more than 32767 lines.
    void SaveMassListToFile(const std::string& fileName = {});
    /// The lines of a list, from index 0.
    VariantArray<std::string> GetMassListArray(const std::string& sourceType, const std::string& polarity);
    /// The text of a list; empty for one without masses.
    std::string GetMassList(const std::string& sourceType, const std::string& polarity);
    /// Replaces the text of a list, which is dirty from then on unless the text is the same. It is checked by the save.
    void UpdateMassList(const std::string& sourceType, const std::string& polarity, const std::string& massList);
    /// Whether a list was changed since it was read or saved.
    bool IsMassListDirty(const std::string& sourceType, const std::string& polarity);
    /// Whether any list was changed; false with no file open.
    bool AnyMassListsDirty();

private:
    struct Impl;
    PrivateState<Impl> impl_;
};

}  // namespace korvane
