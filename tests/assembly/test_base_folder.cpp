// Making, finding and refusing base folders.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <set>

#include "korvane/korvane.h"
#include "support/environment.h"
#include "support/test_platform.h"

namespace korvane {
namespace {

namespace fs = std::filesystem;

std::set<std::string> names_in(const fs::path& folder) {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder)) names.insert(entry.path().filename().string());
    return names;
}

const std::set<std::string> base_names{"Logfiles", "MassLists", "TuneParams.xml", "TunePreferences.xml"};

/// The error that `act` raises; a failed test when it raises none.
template <class Act>
Error error_of(Act act) {
    try {
        act();
    } catch (const Error& error) {
        return error;
    }
    ADD_FAILURE() << "no error";
    return Error(0, "", "");
}

TEST(BaseFolder, IsCompleteAndLeavesNothingBeside) {
    const TemporaryFolder temporary;
    const fs::path folder = temporary.path() / "not yet" / "there";
    create_base_folder(folder);
    EXPECT_EQ(names_in(folder), base_names);
    EXPECT_EQ(names_in(folder.parent_path()), std::set<std::string>{"there"});
    for (const char* name : {"TuneParams.xml", "TunePreferences.xml", "MassLists/default_calibration_mass_list.xml"})
        EXPECT_EQ(read_text(folder / name), read_text(fs::path(KORVANE_SOURCE_DIR) / "data/base" / name)) << name;
}

TEST(BaseFolder, AnEmptyFolderIsFilledAndStaysTheSameFolder) {
    const TemporaryFolder temporary;
    const fs::path folder = temporary.path() / "empty";
    fs::create_directory(folder);
    const fs::path working_folder = fs::current_path();
    fs::current_path(folder);
    create_base_folder(".");
    EXPECT_EQ(names_in("."), base_names) << "somebody who works in the folder must see the files";
    fs::current_path(working_folder);
}

TEST(BaseFolder, WhatExistsIsNotOverwritten) {
    const TemporaryFolder temporary;
    const fs::path folder = temporary.path() / "mine", file = temporary.path() / "file";
    fs::create_directory(folder);
    write_text(folder / "notes.txt", "keep");
    write_text(file, "keep");
    for (const fs::path& taken : {folder, file}) {
        const Error error = error_of([&] { create_base_folder(taken); });
        EXPECT_EQ(error.number(), -904);
        EXPECT_NE(error.description().find(taken.filename().string()), std::string::npos) << error.description();
    }
    EXPECT_EQ(names_in(folder), std::set<std::string>{"notes.txt"});
    EXPECT_EQ(read_text(file), "keep");
    EXPECT_EQ(names_in(temporary.path()), (std::set<std::string>{"file", "mine"}));
}

TEST(BaseFolder, AFileOnTheWayIsNamed) {
    const TemporaryFolder temporary;
    write_text(temporary.path() / "file", "keep");
    const Error error = error_of([&] { create_base_folder(temporary.path() / "file" / "below"); });
    EXPECT_EQ(error.number(), -904);
    EXPECT_NE(error.description().find("below"), std::string::npos) << error.description();
}

TEST(BaseFolder, WhatIsNoneIsNamedBeforeAnythingElseHappens) {
    const TemporaryFolder temporary;
    const fs::path file = temporary.path() / "file";
    write_text(file, "");
    const std::vector<std::pair<fs::path, std::string>> cases{{file, "not a folder"},
                                                              {temporary.path() / "nowhere", "does not exist"}};
    for (const auto& [path, fault] : cases) {
        const Error error = error_of([&, &wanted = path] { make_embedded_platform({.base_folder = wanted}); });
        EXPECT_EQ(error.number(), -904);
        EXPECT_NE(error.description().find(path.string()), std::string::npos) << error.description();
        EXPECT_NE(error.description().find(fault), std::string::npos) << error.description();
    }
}

TEST(BaseFolder, TheUsersOwnIsMadeOnFirstUseAndANamedOneIsNot) {
    const TemporaryFolder temporary;
#ifdef _WIN32
    const char* const place = "LOCALAPPDATA";
    const char* const own_folder = "Korvane";
#else
    const char* const place = "XDG_DATA_HOME";
    const char* const own_folder = "korvane";
#endif
    const EnvironmentVariable data(place, temporary.path().string());
    {
        const EnvironmentVariable named("KORVANE_BASE", temporary.file("named"));
        EXPECT_EQ(default_base_folder(), temporary.path() / "named");
        EXPECT_EQ(error_of([] { make_embedded_platform({}); }).number(), -904);
        EXPECT_TRUE(names_in(temporary.path()).empty());
    }
    const EnvironmentVariable unnamed("KORVANE_BASE", "");
    EXPECT_EQ(default_base_folder(), temporary.path() / own_folder);
    clsTunePrefsXML(make_embedded_platform({})).WriteTunePreference("LogSetpointTraffic", "Yes");
    EXPECT_EQ(clsTunePrefsXML(make_embedded_platform({})).GetTunePreference("LogSetpointTraffic"), "Yes")
        << "the second use made the folder anew";
}

// With no instrument to be had: what does not need it works, and the first that does says why there is none.
TEST(LazyPlatform, StoresMassListAndAbortFlagWorkWhateverTheInstrumentIsMadeOf) {
    const TemporaryFolder temporary;
    const fs::path base = temporary.path() / "base", spoilt = temporary.path() / "spoilt";
    create_base_folder(base);
    fs::copy(base, spoilt, fs::copy_options::recursive);
    write_text(spoilt / "instrument.json", "[]");
    const std::vector<std::pair<EmbeddedOptions, std::string>> cases{
        {{.base_folder = base, .scene = base / "none.json"}, "none.json"},
        {{.base_folder = base, .replay = base / "none.mzML"}, "none.mzML"},
        {{.base_folder = spoilt}, "instrument.json"}};
    for (const auto& [options, named] : cases) {
        const Platform platform = make_embedded_platform(options);
        clsTunePrefsXML(platform).WriteTunePreference("LogSetpointTraffic", "Yes");
        EXPECT_EQ(clsTuneParamsXML(platform).GetAutotuneLimitValue("Misc", "SettlingTime"), 2);
        EXPECT_EQ(
            CalMassList(platform).GetMassListArrayFromFile(default_mass_list_file(platform), "ESI", "Positive").size(),
            10U);
        AbortHelper(platform).TriggerAbort();
        EXPECT_TRUE(AbortHelper(platform).UserHasClickedAbort());
        for (int use = 0; use < 2; ++use) {
            const Error error = error_of([&] { platform.instrument->create_globals(); });
            EXPECT_EQ(error.number(), -904);
            EXPECT_NE(error.description().find(named), std::string::npos) << error.description();
        }
    }
}

TEST(LazyPlatform, ANamedLayerThatCannotBeHadIsNamedByTheFirstUseOfItsBaseFolderToo) {
    const Platform platform = make_outside_platform("/nowhere/layer.so");
    clsTunePrefsXML prefs(platform);
    clsTuneParamsXML params(platform);
    AbortHelper abort(platform);
    CalMassList lists(platform);
    const std::vector<std::function<void()>> uses{
        [&] { prefs.GetTunePreference("LogSetpointTraffic"); },
        [&] { params.GetAutotuneLimitValue("Misc", "SettlingTime"); },
        [&] { abort.UserHasClickedAbort(); },
        [&] { list_tune_preferences(platform); },
        [&] { platform.instrument->create_globals(); },
        [&] { platform.instrument->create_logbook_entry(); },
        [&] { platform.instrument->create_peak_finder(); },
    };
    for (const auto& use : uses) {
        const Error error = error_of(use);
        EXPECT_EQ(error.number(), -904);
        EXPECT_NE(error.description().find("/nowhere/layer.so"), std::string::npos) << error.description();
    }
}

/// A host's own clock: it need not wait, and hears of every pause.
class HostClock final : public Clock {
public:
    double seconds_since_midnight() override { return seconds; }
    LocalTime now() override { return {}; }
    void sleep_milliseconds(int milliseconds) override { seconds += milliseconds / 1000.0; }
    void process_pending_events() override { ++turns; }

    double seconds = 0;
    int turns = 0;
};

TEST(LazyPlatform, TheEmbeddedInstrumentWaitsByTheHostsClock) {
    const TemporaryFolder temporary;
    create_base_folder(temporary.path() / "base");
    write_text(temporary.path() / "scene.json", R"({"instrument": {"spectrum_period_ms": 1000}})");
    const auto clock = std::make_shared<HostClock>();
    Platform system = make_platform(nullptr);
    system.clock = clock;
    SpectrumParser parser(make_embedded_platform(
        {.base_folder = temporary.path() / "base", .scene = temporary.path() / "scene.json"}, system));
    parser.VerifyInstrumentIsShowingValidCalibrantSpectrum();
    EXPECT_GE(clock->seconds, 1);
    EXPECT_GT(clock->turns, 0);
}

TEST(BaseData, EverySourceHasListsAndAutotuneValuesInBothPolarities) {
    const TemporaryFolder temporary;
    create_base_folder(temporary.path() / "base");
    const Platform platform = make_embedded_platform({.base_folder = temporary.path() / "base"});
    const auto lists = list_mass_lists(platform);
    clsTuneParamsXML params(platform);
    CalMassList mass_lists(platform);
    TuneGlobals globals(platform);
    for (const char* source : {"ESI", "Dual ESI", "SGF ESI", "Dual SGF ESI", "HPLC-Tile", "nanoESI", "Dual nanoESI",
                               "MALDI", "Multimode", "APCI", "APPI", "GC-APCI"}) {
        const std::string list = globals.GetMassListTypeFromSourceTypeString(source);
        for (const auto& [polarity, word] : {std::pair{"Positive", "pos"}, std::pair{"Negative", "neg"}}) {
            const auto masses =
                mass_lists.GetMassListArrayFromFile(default_mass_list_file(platform), list, polarity).elements();
            EXPECT_EQ(masses.size(), 10U) << source << polarity;
            const std::string path = "/QTOFTuneParams/Mode/Tune[@polarity=\"" + std::string(word) +
                                     "\" and @source=\"" + source + "\"]/InitialAutotuneStartingSetpointValues";
            for (const char* name : {"GasTemp", "DryingGas", "FragmentTune"})
                EXPECT_NO_THROW(
                    params.GetTuneParamByXMLPath(path, "Param[@internalName=\"" + std::string(name) + "\"]"))
                    << path << name;
        }
    }
    EXPECT_TRUE(params.IsThisSourceSupportedForAutotuning("pos", "ESI"));
    EXPECT_FALSE(params.IsThisSourceSupportedForAutotuning("pos", "MALDI"));
}

// From the elements' atomic masses, not from the file.
TEST(BaseData, CalibrantsAreTheClustersOfSodiumTrifluoroacetate) {
    constexpr double sodium = 22.9897692820, electron = 0.000548579909;
    constexpr double acetate = 2 * 12.0 + 3 * 18.99840316273 + 2 * 15.99491461956, unit = acetate + sodium;
    const TemporaryFolder temporary;
    create_base_folder(temporary.path() / "base");
    const Platform platform = make_embedded_platform({.base_folder = temporary.path() / "base"});
    for (const ListedMassList& list : list_mass_lists(platform)) {
        ASSERT_EQ(list.masses.size(), 10U);
        const bool positive = list.polarity == "Positive";
        for (int i = 0; i < 10; ++i) {
            const int units = i == 0 ? (positive ? 1 : 0) : 2 * i - (positive ? 0 : 1);
            const double mass = units * unit + (positive ? sodium - electron : acetate + electron);
            EXPECT_NEAR(std::stod(list.masses[static_cast<std::size_t>(i)].text), mass, 5.1e-5) << list.source;
        }
    }
}

TEST(Listing, FaultsNameTheFile) {
    const TemporaryFolder temporary;
    const fs::path base = temporary.path() / "base";
    create_base_folder(base);
    const Platform platform = make_embedded_platform({.base_folder = base});
    EXPECT_EQ(error_of([&] { list_tune_parameters(platform, "NoSuchTree"); }).number(), -905);
    write_text(base / "TunePreferences.xml", "<TunePreferences>");
    const Error malformed = error_of([&] { list_tune_preferences(platform); });
    EXPECT_EQ(malformed.number(), -904);
    EXPECT_NE(malformed.description().find("TunePreferences.xml"), std::string::npos);
    fs::remove(base / "MassLists" / "default_calibration_mass_list.xml");
    EXPECT_EQ(error_of([&] { list_mass_lists(platform); }).number(), -904);
}

}  // namespace
}  // namespace korvane
