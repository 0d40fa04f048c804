// The operations that save a file, as data, so that every promise about saving is tried on each of them.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "korvane/abort_helper.h"
#include "korvane/cal_mass_list.h"
#include "korvane/tune_params_xml.h"
#include "korvane/tune_prefs_xml.h"
#include "support/memory_platform.h"

namespace korvane {

/// A store ready to save: `save` performs the one saving call.
struct StoreOperation {
    std::string name;
    std::string file;     // below the base folder
    std::string content;  // before the save
    /// Makes the object on the platform and whatever has to come before the save; returns the save.
    std::function<std::function<void()>(const Platform&, const std::string& path)> prepare;
    /// Number and description that a save failing for good is reported with ("%path" stands for the path).
    std::int32_t number;
};

inline std::string parameters_text() {
    return "<?xml version=\"1.0\"?>\r\n<QTOFTuneParams>\r\n\t<!-- Limits & gains -->\r\n <TOF><AutotuneParameters>"
           "<Calibration><A>1.5</A><B/></Calibration></AutotuneParameters></TOF>\r\n</QTOFTuneParams>";
}

inline std::string mass_list_text() {
    return "<QTOF_MassListConfiguration>\n  <Configuration IonSource='ESI' IonPolarity='Positive'>\n    <MassList>\n"
           "      <mass Used='1'>158.9640</mass>\n    </MassList>\n  </Configuration>\n</QTOF_MassListConfiguration>\n";
}

inline std::vector<StoreOperation> store_operations() {
    const std::string preferences = "<TunePreferences><AbortFlag>0</AbortFlag><Name>old</Name></TunePreferences>";
    return {
        {"write parameter", "TuneParams.xml", parameters_text(),
         [](const Platform& platform, const std::string&) -> std::function<void()> {
             auto store = std::make_shared<clsTuneParamsXML>(platform);
             return [store] { store->WriteTuneParamValue("Calibration", "A", "27182.8"); };
         },
         error_number::file_or_element},
        {"write preference", "TunePreferences.xml", preferences,
         [](const Platform& platform, const std::string&) -> std::function<void()> {
             auto store = std::make_shared<clsTunePrefsXML>(platform);
             return [store] { store->WriteTunePreference("Name", "new & longer"); };
         },
         error_number::file_or_element},
        {"trigger abort", "TunePreferences.xml", preferences,
         [](const Platform& platform, const std::string&) -> std::function<void()> {
             auto helper = std::make_shared<AbortHelper>(platform);
             return [helper] { helper->TriggerAbort(); };
         },
         error_number::file_or_element},
        {"save mass list", "masses.xml", mass_list_text(),
         [](const Platform& platform, const std::string& path) -> std::function<void()> {
             auto list = std::make_shared<CalMassList>(platform);
             list->OpenMassListFile(path);
             list->UpdateMassList("ESI", "Positive", "1\t118.0863\n0\t322.0481");
             return [list, path] { list->SaveMassListToFile(path); };
         },
         error_number::routine_detected},
    };
}

/// One try of an operation on a disk of its own. Every try has a folder of its own, because leftovers are looked for
/// once a process and target.
struct StoreTry {
    explicit StoreTry(const StoreOperation& operation)
        : folder("/base" + std::to_string(++tries) + "/"), world(folder), path(folder + operation.file) {
        world.disk->put(path, operation.content);
        save = operation.prepare(world.platform(), path);
        world.disk->operations = 0;
    }

    static inline int tries = 0;
    std::string folder;
    MemoryPlatform world;
    std::string path;
    std::function<void()> save;
};

}  // namespace korvane
