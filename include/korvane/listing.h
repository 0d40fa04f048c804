// What the configuration files of a base folder hold, for programs that show it. The classes only answer for names they
// are given.
#pragma once

#include <string>
#include <vector>

#include "korvane/platform.h"

namespace korvane {

/// A leaf of the tune parameter file.
struct ListedParameter {
    std::string group;
    std::string name;
    std::string text;
};

/// A preference of the tune preference file.
struct ListedPreference {
    std::string name;
    std::string text;
};

/// A list of a mass-list file, with the texts as they stand there.
struct ListedMassList {
    struct Mass {
        std::string used;
        std::string text;
    };
    std::string source;
    std::string polarity;
    std::vector<Mass> masses;
};

/// Leaves of one tree below /QTOFTuneParams/TOF, in file order. Error -904 naming the file that cannot be read, -905
/// naming the tree that it lacks.
KORVANE_API std::vector<ListedParameter> list_tune_parameters(const Platform& platform,
                                                              const std::string& tree = "AutotuneParameters");
/// Errors: -904 and -905 likewise.
KORVANE_API std::vector<ListedPreference> list_tune_preferences(const Platform& platform);
/// Errors: -904 and -905 likewise.
KORVANE_API std::vector<ListedMassList> list_mass_lists(const Platform& platform);

/// A number as the configuration files hold it, by the decimal separator of the process's locale ("0,5"), of one with a
/// point ("0.5"), and back. Texts that are no numbers stay as they are but for that.
KORVANE_API std::string stored_number(const std::string& text);
KORVANE_API std::string plain_number(const std::string& text);

/// Path of the mass-list file from which the default lists come.
KORVANE_API std::string default_mass_list_file(const Platform& platform);

}  // namespace korvane
