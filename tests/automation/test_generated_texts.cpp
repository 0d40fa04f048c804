// The committed files that are made from the member tables. KORVANE_WRITE_GENERATED=1 writes them anew.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "korvane/automation.h"

namespace korvane::automation {
namespace {

struct Generated {
    const char* path;
    std::string (*make)();
};

class GeneratedText : public testing::TestWithParam<Generated> {};

TEST_P(GeneratedText, IsCommittedAsTheTablesStand) {
    const std::string path = std::string(KORVANE_SOURCE_DIR "/") + GetParam().path;
    const std::string text = GetParam().make();
    if (std::getenv("KORVANE_WRITE_GENERATED")) {
        std::ofstream(path, std::ios::binary) << text;
        GTEST_SKIP() << "wrote " << path;
    }
    std::ostringstream committed;
    committed << std::ifstream(path, std::ios::binary).rdbuf();
    EXPECT_TRUE(committed.str() == text) << path << " differs from the member tables: a change of the public contract. "
                                         << "To accept it, run this test with KORVANE_WRITE_GENERATED=1.";
}

INSTANTIATE_TEST_SUITE_P(All, GeneratedText,
                         testing::Values(Generated{"src/automation/korvane.idl", &idl_text}));

}  // namespace
}  // namespace korvane::automation
