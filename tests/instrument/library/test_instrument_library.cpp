// Instrument layers out of shared libraries.
#include <gtest/gtest.h>

#include "instrument/library/instrument_library.h"
#include "korvane/conformance.h"
#include "korvane/embedded.h"
#include "korvane/instrument_contract.h"
#include "korvane/instrument_library.h"
#include "korvane/spectrum_parser.h"
#include "korvane/tune_globals.h"
#include "layer/test_layer.h"
#include "support/environment.h"
#include "support/raised.h"
#include "support/test_platform.h"

namespace korvane {
namespace {

std::string library(const std::string& name) {
    return std::string(KORVANE_TEST_LAYERS) + "/" + name + KORVANE_TEST_LAYER_SUFFIX;
}

class InstrumentLibraryTest : public testing::Test {
protected:
    InstrumentLibraryTest() { create_base_folder(folder.path() / "base"); }

    TemporaryFolder folder;
    EnvironmentVariable base{"KORVANE_TEST_LAYER_BASE", folder.file("base")};
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

TEST_F(InstrumentLibraryTest, ObjectsOutliveTheLayerThatMadeThem) {
    std::unique_ptr<InstrumentGlobals> globals = load_instrument_library(library("test_layer"))->create_globals();
    globals->initialise();
    EXPECT_FALSE(globals->setpoints().indexes().empty());
}

TEST_F(InstrumentLibraryTest, APlatformRunsOnIt) {
    const Platform platform = make_outside_platform(library("test_layer"));
    EXPECT_EQ(platform.instrument->create_globals()->title(), test_layer_title);
    TuneGlobals globals(platform);
    EXPECT_EQ(globals.GetPolarityStr(), "Positive");
    globals.WriteLineToTuneLogFile("line");
    EXPECT_EQ(globals.tune_log_path().substr(0, folder.path().string().size()), folder.path().string())
        << "the base folder is the layer's";
}

TEST_F(InstrumentLibraryTest, AnotherInterfaceVersionIsRefusedNamingBothNumbers) {
    const std::string refusal = raised([&] { load_instrument_library(library("wrong_version")); });
    EXPECT_EQ(refusal.substr(0, 5), "-904|");
    EXPECT_NE(refusal.find("999"), std::string::npos) << refusal;
    EXPECT_NE(refusal.find("this program has " + std::to_string(instrument_interface_version)), std::string::npos)
        << refusal;
    EXPECT_NE(refusal.find("wrong_version"), std::string::npos) << refusal;
}

TEST_F(InstrumentLibraryTest, WhatIsNoLayerIsRefusedNamingTheFile) {
    const std::string no_entry = raised([&] { load_instrument_library(library("no_entry")); });
    EXPECT_NE(no_entry.find(instrument_library_entry), std::string::npos) << no_entry;
    for (const std::string& name : {folder.file("absent.so"), folder.file("base/TuneParams.xml")}) {
        const std::string refusal = raised([&] { load_instrument_library(name); });
        EXPECT_EQ(refusal.substr(0, 5), "-904|");
        EXPECT_NE(refusal.find(name), std::string::npos) << refusal;
    }
}

// What the layer's own code raises reaches the host as it is, across the border of the library.
TEST_F(InstrumentLibraryTest, ErrorsOfTheLayerPassUnchanged) {
    EnvironmentVariable::set("KORVANE_TEST_LAYER_BASE", "");
    EXPECT_EQ(raised([] { load_instrument_library(library("test_layer")); }),
              "-904|TestLayer|KORVANE_TEST_LAYER_BASE is not set");
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
