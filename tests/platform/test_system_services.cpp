// The system's clock, the file tracer, runtime faults and the defaults of the instrument's seams.
#include <gtest/gtest.h>

#include <ctime>
#include <regex>
#include <tuple>

#include "korvane/peak_finder.h"
#include "korvane/system.h"
#include "support/environment.h"
#include "support/raised.h"
#include "support/test_platform.h"

namespace korvane {
namespace {

#ifdef _WIN32
constexpr const char* zones[] = {""};  // the zone is the system's, whatever the variable says
#else
constexpr const char* zones[] = {"UTC0", "XXX-5:45", "YYY+11"};
#endif

TEST(SystemClock, GivesLocalTimeOfTheZoneWithAFractionAndSleepsAtLeastAsLongAsAsked) {
    const auto clock = make_system_clock();
    const auto since = [&](double seconds) {
        return std::fmod(clock->seconds_since_midnight() - seconds + 86400, 86400);
    };
    for (const char* const zone : zones) {
        const EnvironmentVariable variable("TZ", zone);
        tzset();
        const LocalTime now = clock->now();
        EXPECT_LT(since(now.hour * 3600.0 + now.minute * 60.0 + now.second), 5.0) << zone;
        std::tm fields{};
        std::tie(fields.tm_year, fields.tm_mon, fields.tm_mday) = std::tuple(now.year - 1900, now.month - 1, now.day);
        std::tie(fields.tm_hour, fields.tm_min, fields.tm_sec) = std::tuple(now.hour, now.minute, now.second);
        EXPECT_LE(std::abs(std::difftime(std::mktime(&fields), std::time(nullptr))), 5.0) << zone;
    }
    tzset();
    const double start = clock->seconds_since_midnight();
    int with_fraction = 0;
    for (int i = 0; i < 5; ++i) {
        clock->sleep_milliseconds(5);
        with_fraction += std::fmod(clock->seconds_since_midnight(), 1.0) != 0;
    }
    EXPECT_GE(with_fraction, 4);
    EXPECT_GE(since(start), 0.024);
    const double woken = clock->seconds_since_midnight();
    clock->sleep_milliseconds(0);
    clock->sleep_milliseconds(-1000);
    EXPECT_LT(since(woken), 0.9);
}

TEST(FileTracer, AppendsOneLineARecordAtOnceWhereTheVariableSays) {
    const TemporaryFolder folder;
    const auto factory = make_file_tracer_factory();
    EXPECT_FALSE(factory->create(tracer_prog_id)->trace_flag());
    EXPECT_EQ(raised([&] { (void)factory->create("another.object"); }),
              "429|Korvane|ActiveX component can't create object: another.object");
    {
        const EnvironmentVariable variable("KORVANE_TRACE", folder.file("none/trace.txt"));
        const std::string error = raised([&] { (void)factory->create(tracer_prog_id); });
        EXPECT_TRUE(error.starts_with("53|Korvane|File not found: KORVANE_TRACE: Cannot open [")) << error;
    }
    const EnvironmentVariable variable("KORVANE_TRACE", folder.file("trace.txt"));
    for (const std::string module : {"first", "second"}) {
        const auto tracer = factory->create(tracer_prog_id);
        tracer->set_module_name(module);
        ASSERT_TRUE(tracer->trace_flag());
        tracer->entry("Outer", 9);
        tracer->trace_print("a text\r\nof two lines", "Outer", 9);
        tracer->exit("Outer", 4);
    }
    std::string lines;
    for (const std::string& line : read_lines(folder.path() / "trace.txt")) lines += line + "\n";
    const std::string stamp = R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} )";
    EXPECT_EQ(std::regex_replace(lines, std::regex(stamp), "* "),
              "* first 9 > Outer\n* first 9   Outer: a text\\r\\nof two lines\n* first 4 < Outer\n"
              "* second 9 > Outer\n* second 9   Outer: a text\\r\\nof two lines\n* second 4 < Outer\n");
}

TEST(StandardError, CarriesTheMessageBoxAndTheTraceWhereAsked) {
    testing::internal::CaptureStderr();
    std::string expected;
#ifndef _WIN32  // where the box is the system's
    make_system_message_box()->show("text", "title");
    expected = "title: text\n";
#endif
    const EnvironmentVariable variable("KORVANE_TRACE", "-");
    make_file_tracer_factory()->create(tracer_prog_id)->entry("Routine", 9);
    const std::string printed = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(printed.starts_with(expected) && printed.ends_with("  9 > Routine\n")) << printed;
}

TEST(RuntimeFault, CarriesNumberTextItemAndKind) {
    EXPECT_EQ(raised([] { raise_runtime_fault(9); }), "9|Korvane|Subscript out of range");
    EXPECT_EQ(raised([] { raise_runtime_fault(13, "[x]"); }), "13|Korvane|Type mismatch: [x]");
    EXPECT_EQ(raised([] { raise_runtime_fault(12345); }), "12345|Korvane|Application-defined or object-defined error");
    using enum ErrorKind;
    const std::vector<std::int32_t> numbers{1, -8, -807, -901, -904, -905, -906, 53, 7, 424, 12345};
    const std::vector<ErrorKind> kinds{aborted,       time_out,      time_out,      configuration,
                                       configuration, configuration, configuration, configuration,
                                       internal,      usage,         instrument};
    for (std::size_t i = 0; i < kinds.size(); ++i) EXPECT_EQ(usual_error_kind(numbers[i]), kinds[i]) << numbers[i];
}

}  // namespace
}  // namespace korvane
