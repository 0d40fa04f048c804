// A process in a locale with a decimal comma: stored numbers are read and written by it, and nothing else changes.
#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <locale>
#include <regex>

#include "reliability/simulated_tune.h"

#if defined(__SANITIZE_ADDRESS__)
// The C library keeps the parts of LOCPATH for the life of the process.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
    return "leak:argz";
}
#endif

namespace korvane {
namespace {

#ifdef _WIN32
constexpr const char* comma_locale = "de-DE";
#else
constexpr const char* comma_locale = "de_DE.UTF-8";
#endif

/// The whole process, streams included, in a locale with a decimal comma, which is made where none is installed.
class CommaLocale {
public:
    CommaLocale() : before_(std::locale()) {
        if (std::setlocale(LC_ALL, comma_locale) == nullptr) make();
        set_ = std::setlocale(LC_ALL, comma_locale) != nullptr;
        if (set_) std::locale::global(std::locale(comma_locale));
    }
    ~CommaLocale() { std::locale::global(before_); }
    bool is_set() const { return set_ && std::localeconv()->decimal_point == std::string(","); }

private:
    void make() {
#ifndef _WIN32
        const std::string command = "localedef -i de_DE -f UTF-8 '" + folder_.file(comma_locale) + "' >/dev/null 2>&1";
        if (std::system(command.c_str()) == 0) setenv("LOCPATH", folder_.path().c_str(), 1);
#endif
    }

    TemporaryFolder folder_;
    std::locale before_;
    bool set_ = false;
};

/// The log of a tune in the locale that programs begin in, whatever this one was begun in.
std::string log_in_classic_locale() {
    const std::locale before = std::locale::global(std::locale::classic());
    std::string log = SimulatedTune(3).run();
    std::locale::global(before);
    return log;
}

/// The stored numbers as that locale writes them.
void write_with_commas(const std::filesystem::path& file) {
    static const std::regex number("(>[-0-9]*)\\.([0-9]+<)");
    write_text(file, std::regex_replace(read_text(file), number, "$1,$2"));
}

TEST(CommaLocale, ChangesStoredNumbersAndNoLineOfTheLog) {
    const std::string log = log_in_classic_locale();
    SimulatedTune tune(3);
    write_with_commas(tune.base() / "TuneParams.xml");
    write_with_commas(tune.base() / "MassLists" / "default_calibration_mass_list.xml");
    const CommaLocale locale;
    if (!locale.is_set()) GTEST_SKIP() << "no locale with a decimal comma is installed, and none can be made";
    EXPECT_EQ(tune.run(), log);
}

TEST(CommaLocale, RefusesANumberWithAPointNamingItAndItsFile) {
    SimulatedTune tune(3);
    const CommaLocale locale;
    if (!locale.is_set()) GTEST_SKIP() << "no locale with a decimal comma is installed, and none can be made";
    try {
        tune.run();
        FAIL() << "a number with a point was taken";
    } catch (const Error& error) {
        EXPECT_EQ(error.number(), error_number::type_mismatch);
        EXPECT_NE(error.description().find("default_calibration_mass_list.xml"), std::string::npos);
    }
}

}  // namespace
}  // namespace korvane
