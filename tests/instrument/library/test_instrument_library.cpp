// Instrument layers out of shared libraries.
#include <gtest/gtest.h>

#include "instrument/library/instrument_library.h"
#include "korvane/conformance.h"
#include "korvane/instrument_contract.h"
#include "korvane/instrument_library.h"
#include "korvane/spectrum_parser.h"
#include "korvane/tune_globals.h"
#include "support/environment.h"
#include "support/raised.h"
#include "support/test_platform.h"

namespace korvane {
namespace {

std::string library(const std::string& name) {
    return std::string(KORVANE_TEST_LAYERS) + "/" + name + KORVANE_TEST_LAYER_SUFFIX;
}

struct InstrumentLibraryTest : testing::Test, EmbeddedBase {
    const EnvironmentVariable named{"KORVANE_TEST_LAYER_BASE", base.string()};
};

TEST_F(InstrumentLibraryTest, TheDocumentsExampleConformsMeasuresAndAdjusts) {
    const EnvironmentVariable of_the_embedded_instrument{"KORVANE_BASE", folder.file("base")};
    const Platform platform = make_outside_platform(library("document_layer"));
    for (const ConformanceResult& result : check_instrument_layer(*platform.instrument))
        EXPECT_TRUE(result.passed) << result.operation << ": " << result.check << ": " << result.detail;
    SpectrumParser parser(platform);
    double window_percent = -1;
    const auto peaks = parser.GetPeakInfoForCalibrantMasses({}, window_percent);
    for (std::size_t row = 0; row < peaks.rows(); ++row) EXPECT_GT(peaks.at(row, 0).pkHeight, 0) << row;
    parser.BinaryAdjustAbundanceDownUsingThisSetpoint(contract::setpoint.vcap_esi, 566.8885, 50000, 30, true, 0, 3500,
                                                      200);
    const AdjustOutcome& outcome = parser.last_adjustment();
    EXPECT_NE(outcome.end, AdjustOutcome::End::target_never_reached) << outcome.probes.size();
    EXPECT_GT(outcome.probes.size(), 1u);
}

TEST_F(InstrumentLibraryTest, APlatformRunsOnItAndObjectsOutliveIt) {
    const std::unique_ptr<InstrumentGlobals> view = load_instrument_library(library("test_layer"))->create_globals();
    view->initialise();
    EXPECT_FALSE(view->setpoints().indexes().empty());

    const Platform platform = make_outside_platform(library("test_layer"));
    EXPECT_EQ(platform.instrument->create_globals()->title(), "Layer from outside");
    TuneGlobals globals(platform);
    EXPECT_EQ(globals.GetPolarityStr(), "Positive");
    globals.WriteLineToTuneLogFile("line");
    EXPECT_EQ(globals.tune_log_path().substr(0, folder.path().string().size()), folder.path().string())
        << "the base folder is the layer's";
}

TEST_F(InstrumentLibraryTest, WhatIsNoLayerIsRefusedNamingTheFile) {
    const std::string version = std::to_string(instrument_interface_version);
    const std::string xml = folder.file("base/TuneParams.xml"), bare = std::string("layer") + KORVANE_TEST_LAYER_SUFFIX;
    const std::filesystem::path back = std::filesystem::current_path();
    std::filesystem::copy_file(library("test_layer"), folder.path() / bare);
    std::filesystem::current_path(folder.path());
    for (const auto& [file, reason] : std::vector<std::pair<std::string, std::string>>{
             {library("wrong_version"), "has interface version 999, this program has " + version},
             {library("no_entry"), "has no entry point korvane_instrument_library"},
             {folder.file("absent.so"), "cannot be loaded: "},
             {xml, "cannot be loaded: "},
             {bare, "has no folder in its name (./" + bare + " is the one in the current folder)"}}) {
        const std::string expected = "-904|InstrumentLibrary|Instrument library[" + file + "] " + reason;
        EXPECT_EQ(raised([&] { load_instrument_library(file); }).substr(0, expected.size()), expected);
    }
    EXPECT_EQ(raised([&] { load_instrument_library("./" + bare); }), "no error");
    std::filesystem::current_path(back);
    // What the layer's own code raises reaches the host as it is, across the border of the library.
    EnvironmentVariable::set("KORVANE_TEST_LAYER_BASE", "");
    EXPECT_EQ(raised([] { load_instrument_library(library("test_layer")); }),
              "-904|TestLayer|KORVANE_TEST_LAYER_BASE is not set");
    EnvironmentVariable::set("KORVANE_TEST_LAYER_BASE", "throw");
    EXPECT_EQ(raised([] { load_instrument_library(library("test_layer")); }),
              "-904|InstrumentLibrary|Instrument library[" + library("test_layer") +
                  "] made no layer: an exception of an unknown type");
}

TEST(InstrumentNames, LibrariesAreToldFromAutomationObjects) {
    for (const char* name : {"layer.so", "layer.dll", "./layer", "C:\\layers\\one", "liblayer.so.1", "a.dylib"})
        EXPECT_TRUE(names_library(name)) << name;
    for (const char* name : {"Vendor.Layer", "Vendor.Layer.1", "Vendor.solid"})
        EXPECT_FALSE(names_library(name)) << name;
    EXPECT_EQ(raised([] { make_outside_platform("Vendor.NoSuchLayer").instrument->create_globals(); }).substr(0, 4),
              "429|");
}

}  // namespace
}  // namespace korvane
