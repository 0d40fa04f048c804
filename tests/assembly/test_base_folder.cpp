// Making, finding and refusing base folders.
#include <gtest/gtest.h>

#include <filesystem>

#include "korvane/korvane.h"
#include "support/environment.h"
#include "support/raised.h"
#include "support/test_platform.h"

namespace korvane {
namespace {

namespace fs = std::filesystem;

const Lines base_names{"Logfiles",       "MassLists",           "TuneLimits.json",
                       "TuneParams.xml", "TunePreferences.xml", "TuneRecipe.json"};

TEST(BaseFolder, IsCompleteAndLeavesNothingBeside) {
    const TemporaryFolder temporary;
    const fs::path folder = temporary.path() / "not yet" / "there", empty = temporary.path() / "empty";
    create_base_folder(folder);
    EXPECT_EQ(names_in(folder), base_names);
    EXPECT_EQ(names_in(folder.parent_path()), Lines{"there"});
    for (const char* name :
         {"TuneParams.xml", "TunePreferences.xml", "TuneLimits.json", "MassLists/default_calibration_mass_list.xml"})
        EXPECT_EQ(read_text(folder / name), read_text(fs::path(KORVANE_SOURCE_DIR) / "data/base" / name)) << name;

    fs::create_directory(empty);
    const fs::path working_folder = fs::current_path();
    fs::current_path(empty);
    create_base_folder(".");
    EXPECT_EQ(names_in("."), base_names) << "somebody who works in an empty folder must see the files";
    fs::current_path(working_folder);
}

TEST(BaseFolder, WhatIsNoneIsNamedAndKept) {
    const TemporaryFolder temporary;
    const fs::path folder = temporary.path() / "mine", file = temporary.path() / "file";
    fs::create_directory(folder);
    write_text(folder / "notes.txt", "keep");
    write_text(file, "keep");
    for (const auto& [path, fault] : {std::pair{folder, "it exists and is not empty"},
                                      {file, "it exists and is not a folder"},
                                      {file / "below", ""}})
        EXPECT_TRUE(raised([&] {
                        create_base_folder(path);
                    }).starts_with("-904|create_base_folder|base folder " + path.string() + ": " + fault));
    for (const auto& [path, fault] :
         {std::pair{file, "it is not a folder"}, {temporary.path() / "nowhere", "it does not exist"}})
        EXPECT_EQ(
            raised([&] { clsTunePrefsXML(make_embedded_platform({.base_folder = path})).GetTunePreference("a"); }),
            "-904|make_embedded_platform|base folder " + path.string() + ": " + fault);
    EXPECT_EQ(names_in(folder), Lines{"notes.txt"});
    EXPECT_EQ(read_text(file), "keep");
    EXPECT_EQ(names_in(temporary.path()), (Lines{"file", "mine"}));
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
        AbortHelper made_without_folder;
        EXPECT_TRUE(raised([&] { made_without_folder.Reset(); }).starts_with("-904|"));
        EXPECT_TRUE(names_in(temporary.path()).empty());
    }
    const EnvironmentVariable unnamed("KORVANE_BASE", "");
    EXPECT_EQ(default_base_folder(), temporary.path() / own_folder);
    clsTunePrefsXML(make_embedded_platform({})).WriteTunePreference("LogSetpointTraffic", "Yes");
    EXPECT_EQ(clsTunePrefsXML(make_embedded_platform({})).GetTunePreference("LogSetpointTraffic"), "Yes")
        << "the second use made the folder anew";
}

TEST(BaseData, EverySourceHasAutotuneValuesAndTheClustersOfSodiumTrifluoroacetateInBothPolarities) {
    constexpr double sodium = 22.9897692820, electron = 0.000548579909;
    constexpr double acetate = 2 * 12.0 + 3 * 18.99840316273 + 2 * 15.99491461956, unit = acetate + sodium;
    const EmbeddedBase world;
    const Platform platform = world.platform();
    clsTuneParamsXML params(platform);
    CalMassList mass_lists(platform);
    TuneGlobals globals(platform);
    for (const std::string source : {"ESI", "Dual ESI", "SGF ESI", "Dual SGF ESI", "HPLC-Tile", "nanoESI",
                                     "Dual nanoESI", "MALDI", "Multimode", "APCI", "APPI", "GC-APCI"})
        for (const std::string polarity : {"Positive", "Negative"}) {
            SCOPED_TRACE(source + " " + polarity);
            const bool positive = polarity == "Positive";
            const auto masses = mass_lists.GetMassListArrayFromFile(
                default_mass_list_file(platform), globals.GetMassListTypeFromSourceTypeString(source), polarity);
            ASSERT_EQ(masses.size(), 10U);
            for (std::size_t i = 0; i < 10; ++i) {
                const double units = i == 0 ? (positive ? 1 : 0) : 2.0 * static_cast<double>(i) - (positive ? 0 : 1);
                const double ion = units * unit + (positive ? sodium - electron : acetate + electron);
                EXPECT_NEAR(masses.at(i), ion, 5.1e-5);
            }
            for (const char* name : {"GasTemp", "DryingGas", "FragmentTune"})
                EXPECT_NO_THROW(params.GetTuneParamByXMLPath(
                    "/QTOFTuneParams/Mode/Tune[@polarity=\"" + std::string(positive ? "pos" : "neg") +
                        "\" and @source=\"" + source + "\"]/InitialAutotuneStartingSetpointValues",
                    "Param[@internalName=\"" + std::string(name) + "\"]"))
                    << name;
        }
    EXPECT_TRUE(params.IsThisSourceSupportedForAutotuning("pos", "ESI"));
    EXPECT_FALSE(params.IsThisSourceSupportedForAutotuning("pos", "MALDI"));
}

}  // namespace
}  // namespace korvane
