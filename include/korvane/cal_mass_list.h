// The calibrant mass-list file: one list per ion source and polarity.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "korvane/platform.h"
#include "korvane/variant_array.h"

namespace korvane {

/// A list's text has one line a mass, joined by line feeds: the use flag, a tab, the m/z. Errors are -1 with a text
/// that names the file or the list, except where a member says otherwise.
class KORVANE_API CalMassList {
public:
    explicit CalMassList(Platform platform = Platform::process_default());
    ~CalMassList();
    CalMassList(CalMassList&&) noexcept;
    CalMassList& operator=(CalMassList&&) noexcept;

    /// All masses of one list straight from a file, used or not; an open file stays open.
    VariantArray<double> GetMassListArrayFromFile(const std::string& fileName, const std::string& sourceType,
                                                  const std::string& polarity);
    void OpenMassListFile(const std::string& fileName);
    void CloseMassListFile();
    /// Writes the lists marked dirty into the open document and saves it under `fileName`. Error 91 with no file open.
    void SaveMassListToFile(const std::string& fileName = {});
    VariantArray<std::string> GetMassListArray(const std::string& sourceType, const std::string& polarity);
    std::string GetMassList(const std::string& sourceType, const std::string& polarity);
    void UpdateMassList(const std::string& sourceType, const std::string& polarity, const std::string& massList);
    bool IsMassListDirty(const std::string& sourceType, const std::string& polarity);
    bool AnyMassListsDirty();

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace korvane
