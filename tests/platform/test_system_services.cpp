// The system's clock, the file tracer, runtime faults and the defaults of the instrument's seams.
#include <gtest/gtest.h>

#include <ctime>
#include <map>
#include <regex>
#include <utility>

#include "korvane/peak_finder.h"
#include "korvane/system.h"
#include "support/environment.h"
#include "support/raised.h"
#include "support/test_platform.h"

namespace korvane {
namespace {

TEST(SystemClock, GivesLocalTimeOfTheZoneWithAFractionAndSleepsAtLeastAsLongAsAsked) {
    const auto clock = make_system_clock();
    const auto since = [&](double seconds) {
        return std::fmod(clock->seconds_since_midnight() - seconds + 86400, 86400);
    };
#ifndef _WIN32  // where the zone is the system's, whatever the variable says
    const EnvironmentVariable variable("TZ", "XXX-5:45");
    tzset();
    const std::time_t quarter_to_six_later = std::time(nullptr) + (5 * 60 + 45) * 60;
    const std::tm& there = *std::gmtime(&quarter_to_six_later);
    EXPECT_LT(since(there.tm_hour * 3600.0 + there.tm_min * 60.0 + there.tm_sec), 5.0);
    EXPECT_EQ(std::pair(clock->now().year, clock->now().month), std::pair(there.tm_year + 1900, there.tm_mon + 1));
#endif
    const LocalTime now = clock->now();
    EXPECT_LT(since(now.hour * 3600.0 + now.minute * 60.0 + now.second), 5.0);
    const double start = clock->seconds_since_midnight();
    for (const int milliseconds : {25, 0, -1000}) clock->sleep_milliseconds(milliseconds);
    EXPECT_GE(since(start), 0.024);
    EXPECT_LT(since(start), 0.9);
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
        EXPECT_TRUE(error.starts_with("76|Korvane|Path not found: KORVANE_TRACE: Cannot open [")) << error;
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
    const std::string stamp = R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} )", lines = read_text(folder.file("trace.txt"));
    EXPECT_EQ(std::regex_replace(lines, std::regex(stamp), "* "),
              "* first 9 > Outer\n* first 9   Outer: a text\\x0D\\x0Aof two lines\n* first 4 < Outer\n"
              "* second 9 > Outer\n* second 9   Outer: a text\\x0D\\x0Aof two lines\n* second 4 < Outer\n");
}

#ifndef _WIN32  // where the box is the system's
TEST(MessageBox, GoesToStandardError) {
    testing::internal::CaptureStderr();
    make_system_message_box()->show("text", "title");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "title: text\n");
}
#endif

TEST(RuntimeFault, CarriesNumberTextItemAndKind) {
    EXPECT_EQ(raised([] { raise_runtime_fault(9); }), "9|Korvane|Subscript out of range");
    EXPECT_EQ(raised([] { raise_runtime_fault(13, "[x]"); }), "13|Korvane|Type mismatch: [x]");
    EXPECT_EQ(raised([] { raise_runtime_fault(12345); }), "12345|Korvane|Application-defined or object-defined error");
    using enum ErrorKind;
    const std::map<ErrorKind, std::vector<std::int32_t>> numbers{
        {aborted, {1}},  {time_out, {-8, -807}}, {configuration, {-901, -904, -905, -906, 53}},
        {internal, {7}}, {usage, {424}},         {instrument, {12345}}};
    for (const auto& [kind, those] : numbers)
        for (const std::int32_t number : those) EXPECT_EQ(usual_error_kind(number), kind) << number;
}

}  // namespace
}  // namespace korvane
