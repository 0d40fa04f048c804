// The system's clock, the file tracer, runtime faults and the defaults of the instrument's seams.
#include <gtest/gtest.h>

#include <ctime>
#include <regex>

#include "korvane/error.h"
#include "korvane/peak_finder.h"
#include "korvane/system.h"
#include "support/environment.h"
#include "support/test_platform.h"

namespace korvane {
namespace {

#ifdef _WIN32
constexpr const char* zones[] = {""};  // the zone is the system's, whatever the variable says
#else
constexpr const char* zones[] = {"UTC0", "XXX-5:45", "YYY+11"};
#endif

TEST(SystemClock, GivesLocalTimeOfTheZoneWithAFraction) {
    const auto clock = make_system_clock();
    for (const char* const zone : zones) {
        const EnvironmentVariable variable("TZ", zone);
        tzset();
        const LocalTime now = clock->now();
        const double seconds = clock->seconds_since_midnight();
        const double of_day = now.hour * 3600.0 + now.minute * 60.0 + now.second;
        EXPECT_LT(std::fmod(seconds - of_day + 86400.0, 86400.0), 5.0) << zone;
        std::tm fields{};
        fields.tm_year = now.year - 1900;
        fields.tm_mon = now.month - 1;
        fields.tm_mday = now.day;
        fields.tm_hour = now.hour;
        fields.tm_min = now.minute;
        fields.tm_sec = now.second;
        EXPECT_LE(std::abs(std::difftime(std::mktime(&fields), std::time(nullptr))), 5.0) << zone;
    }
    tzset();
    int with_fraction = 0;
    for (int i = 0; i < 5; ++i) {
        const double seconds = clock->seconds_since_midnight();
        with_fraction += seconds != static_cast<double>(static_cast<long>(seconds));
        clock->sleep_milliseconds(1);
    }
    EXPECT_GE(with_fraction, 4);
}

TEST(SystemClock, SleepsAtLeastAsLongAsAskedAndNotAtAllForNothing) {
    const auto clock = make_system_clock();
    const double start = clock->seconds_since_midnight();
    clock->sleep_milliseconds(25);
    const double woken = clock->seconds_since_midnight();
    EXPECT_GE(std::fmod(woken - start + 86400.0, 86400.0), 0.024);
    clock->sleep_milliseconds(0);
    clock->sleep_milliseconds(-1000);
    EXPECT_LT(std::fmod(clock->seconds_since_midnight() - woken + 86400.0, 86400.0), 0.9);
}

TEST(FileTracer, AppendsOneLineARecordAtOnce) {
    const TemporaryFolder folder;
    const EnvironmentVariable variable("KORVANE_TRACE", folder.file("trace.txt"));
    const auto factory = make_file_tracer_factory();
    for (const std::string module : {"first", "second"}) {
        const auto tracer = factory->create(tracer_prog_id);
        tracer->set_module_name(module);
        ASSERT_TRUE(tracer->trace_flag());
        tracer->entry("Outer", 9);
        tracer->trace_print("a text\r\nof two lines", "Outer", 9);
        tracer->exit("Outer", 4);
    }
    const auto lines = read_lines(folder.path() / "trace.txt");
    ASSERT_EQ(lines.size(), 6U);
    const std::string stamp = R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} )";
    EXPECT_TRUE(std::regex_match(lines[0], std::regex(stamp + "first 9 > Outer"))) << lines[0];
    EXPECT_TRUE(std::regex_match(lines[1], std::regex(stamp + R"(first 9   Outer: a text\\r\\nof two lines)")));
    EXPECT_TRUE(std::regex_match(lines[5], std::regex(stamp + "second 4 < Outer"))) << lines[5];
}

TEST(FileTracer, IsOffWithoutTheVariableAndNamesAFileThatCannotBeOpened) {
    const auto factory = make_file_tracer_factory();
    EXPECT_FALSE(factory->create(tracer_prog_id)->trace_flag());
    {
        const EnvironmentVariable variable("KORVANE_TRACE", "");
        EXPECT_FALSE(factory->create(tracer_prog_id)->trace_flag());
    }
    const TemporaryFolder folder;
    const EnvironmentVariable variable("KORVANE_TRACE", folder.file("none/trace.txt"));
    try {
        (void)factory->create(tracer_prog_id);
        FAIL() << "trace lines would be lost";
    } catch (const Error& error) {
        EXPECT_EQ(error.number(), 53);
        EXPECT_NE(error.description().find(folder.file("none/trace.txt")), std::string::npos);
    }
    EXPECT_THROW((void)factory->create("another.object"), Error);
}

TEST(StandardError, CarriesTheMessageBoxAndTheTraceWhereAsked) {
    testing::internal::CaptureStderr();
#ifndef _WIN32  // where the box is the system's
    make_system_message_box()->show("text", "title");
#endif
    {
        const EnvironmentVariable variable("KORVANE_TRACE", "-");
        make_file_tracer_factory()->create(tracer_prog_id)->entry("Routine", 9);
    }
    const std::string printed = testing::internal::GetCapturedStderr();
#ifndef _WIN32
    EXPECT_NE(printed.find("title: text\n"), std::string::npos);
#endif
    EXPECT_NE(printed.find("9 > Routine\n"), std::string::npos);
}

TEST(RuntimeFault, CarriesNumberTextAndItem) {
    const auto fault = [](std::int32_t number, const std::string& detail) {
        try {
            raise_runtime_fault(number, detail);
        } catch (const Error& error) {
            return std::to_string(error.number()) + "|" + error.source() + "|" + error.description();
        }
    };
    EXPECT_EQ(fault(9, ""), "9|Korvane|Subscript out of range");
    EXPECT_EQ(fault(13, "[x]"), "13|Korvane|Type mismatch: [x]");
    EXPECT_EQ(fault(12345, ""), "12345|Korvane|Application-defined or object-defined error");
}

class DoublingCalibration final : public MassTimeCalibration {
public:
    CalibrationCoefficients coefficients() const override { return {}; }
    void set_coefficients(const CalibrationCoefficients&) override {}
    CalibrationSettings settings() const override { return {}; }
    void set_settings(const CalibrationSettings&) override {}
    VariantArray<std::int32_t> use_flags() const override { return {}; }
    double mass_from_time(double time_ns) const override { return 2 * time_ns; }
    double time_from_mass(double mass) const override { return mass / 2; }
    CalibrationObject clone() const override { return nullptr; }
};

TEST(SeamDefaults, ConvertArraysByTheSingleConversions) {
    const DoublingCalibration calibration;
    EXPECT_EQ(calibration.masses_from_times({1, 2.5}), (std::vector<double>{2, 5}));
    EXPECT_EQ(calibration.times_from_masses({1, 2.5}), (std::vector<double>{0.5, 1.25}));
    EXPECT_TRUE(calibration.masses_from_times({}).empty());
}

}  // namespace
}  // namespace korvane
