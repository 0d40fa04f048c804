#include <cstdlib>

#include "fuzz/targets.h"
#include "korvane/cal_mass_list.h"
#include "korvane/tune_params_xml.h"
#include "korvane/tune_prefs_xml.h"
#include "platform/xml_document.h"
#include "support/test_platform.h"

namespace korvane::fuzz {

namespace {

/// The first line, and what follows it.
std::pair<std::string, std::string> split_line(std::string_view input) {
    const auto end = std::min(input.find('\n'), input.size());
    return {std::string(input.substr(0, end)), std::string(input.substr(std::min(end + 1, input.size())))};
}

}  // namespace

void parameters(std::string_view input) {
    const auto [query, file] = split_line(input);
    const MemoryPlatform world;
    world.disk->put("/base/TuneParams.xml", file);
    clsTuneParamsXML store(world.platform());
    passes([&] { store.GetTuneParamByXMLPath(query, "Value", true); });
    passes([&] { store.GetTuneParamByXMLPath("/QTOFTuneParams", query); });
    passes([&] { store.GetAutotuneLimitValue("Calibration", query); });
    passes([&] { store.GetManualTuneValue("Calibration", query); });
    passes([&] { store.IsThisSourceSupportedForAutotuning("pos", query); });
    passes([&] { store.WriteTuneParamValue("Calibration", "Value", query); });
    if (!passes([&] { store.WriteTuneParamValue("Calibration", "Value", "12.5"); })) return;
    if (store.GetAutotuneLimitValue("Calibration", "Value", true) != 12.5) std::abort();
}

void preferences(std::string_view input) {
    const auto [query, file] = split_line(input);
    const MemoryPlatform world;
    world.disk->put("/base/TunePreferences.xml", file);
    clsTunePrefsXML store(world.platform());
    passes([&] { store.GetTunePreference(query, true); });
    passes([&] { store.GetTunePreference("AbortFlag"); });
    const std::string text = "a < b & \"c\"";
    if (!passes([&] { store.WriteTunePreference("AbortFlag", text); })) return;
    if (store.GetTunePreference("AbortFlag", true) != text) std::abort();
    const std::string once = *world.disk->content("/base/TunePreferences.xml");
    store.WriteTunePreference("AbortFlag", text);
    if (*world.disk->content("/base/TunePreferences.xml") != once) std::abort();
}

void masslist(std::string_view input) {
    const MemoryPlatform world;
    const std::string first = "/base/first.xml", second = "/base/second.xml";
    world.disk->put(first, std::string(input));
    CalMassList list(world.platform());
    passes([&] { list.GetMassListArrayFromFile(first, "ESI", "Positive"); });
    if (!passes([&] { list.OpenMassListFile(first); })) return;
    const std::string edited = "1\t118.0863\n0\t322.0481";
    if (!passes([&] { list.UpdateMassList("ESI", "Positive", edited); })) return;
    const bool changed = list.IsMassListDirty("ESI", "Positive");
    if (!passes([&] { list.SaveMassListToFile(second); })) return;
    CalMassList again(world.platform());
    again.OpenMassListFile(second);
    // Of lists given twice the first is rewritten.
    XmlDocument written;
    if (written.parse(*world.disk->content(second))) std::abort();
    const auto masses = written.select_all(
        "/QTOF_MassListConfiguration/Configuration[@IonSource='ESI' and "
        "@IonPolarity='Positive'][1]/MassList[last()]/mass");
    if (changed && (masses.size() != 2 || masses.back().text() != "322.0481")) std::abort();
    again.SaveMassListToFile(first);
    if (*world.disk->content(first) != *world.disk->content(second)) std::abort();
}

}  // namespace korvane::fuzz
