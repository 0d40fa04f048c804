#include "platform/automation_arithmetic.h"

#include <gtest/gtest.h>

#include <cfenv>
#include <clocale>
#include <cmath>
#include <random>

#include "platform/cases.h"
#include "platform/text.h"
#include "support/raised.h"

namespace korvane {
namespace {

const std::string overflow = "6|Korvane|Overflow: ", mismatch = "13|Korvane|Type mismatch: ";

TEST(ToInteger, RoundsHalvesToEvenInEveryRoundingModeOfTheThread) {
    std::mt19937_64 random(3);
    std::uniform_real_distribution<double> uniform(-2e9, 2e9);
    std::vector<double> values{0.49999999999999994, 2147483647.49999, -2147483648.49999, 1e-300, -1e-300};
    for (int i = -1000; i <= 1000; ++i)
        for (const double around : {i + 0.0, i + 0.5, std::nextafter(i + 0.5, 1e9), std::nextafter(i + 0.5, -1e9)})
            values.push_back(around);
    for (int i = 0; i < 2000; ++i) values.push_back(uniform(random));
    for (const double value : values)
        for (const int mode : {FE_TONEAREST, FE_DOWNWARD, FE_UPWARD, FE_TOWARDZERO}) {
            const std::int32_t expected = static_cast<std::int32_t>(std::lrint(value));
            std::fesetround(mode);
            const std::int32_t rounded = to_int32(value);
            const int after = std::fegetround();
            std::fesetround(FE_TONEAREST);
            ASSERT_EQ(rounded, expected) << value << " in mode " << mode;
            ASSERT_EQ(after, mode);
        }
}

TEST(ToInteger, OverflowsExactlyWhereTheRoundedNumberDoesNotFitAndTakesNumbersAndTexts) {
    EXPECT_EQ(to_int16(32767.49), 32767);
    EXPECT_EQ(to_int16(-32768.5), -32768);
    EXPECT_EQ(to_int32(2147483647.4999998), 2147483647);
    EXPECT_EQ(to_int32(-2147483648.5), -2147483647 - 1);
    for (const double value : {32767.5, -32768.51, 1e300, -1e300, double(INFINITY), -double(INFINITY), double(NAN)})
        EXPECT_EQ(raised([&] { to_int16(value); }), overflow + "[" + number_text(value) + "]");
    for (const double value : {2147483647.5, -2147483648.500001, 1e19, double(INFINITY), double(NAN)})
        EXPECT_EQ(raised([&] { to_int32(value); }), overflow + "[" + number_text(value) + "]");
    EXPECT_EQ(to_double(InstrumentValue{7}) + to_double(InstrumentValue{std::string(" -2.5 ")}), 4.5);
    EXPECT_EQ(to_int32(InstrumentValue{std::string("2.5")}) + to_int16(InstrumentValue{3.5}), 6);
    EXPECT_EQ(raised([] { to_int16(InstrumentValue{40000}); }), overflow + "[40000]");
    EXPECT_EQ(raised([] { to_double(InstrumentValue{}); }), mismatch + "no value");
    EXPECT_EQ(raised([] { to_int32(InstrumentValue{std::string("x")}); }), mismatch + "[x]");
}

TEST(NumberText, ReadsBackExactlyInTheFormOfItsSizeAsAutomationPrintsIt) {
    for (const std::string& text : cases_in("0|0.1|-1.5|0.00001|1E-06|1.5E-07|9500000000000000|1E+16|-1.25E+100|"
                                            "622.0289600000001|5E-324"))
        EXPECT_EQ(number_text(parse_double(text)), text);
    const std::vector<InstrumentValue> others{-0.0, -double(INFINITY), double(NAN), -3, "text", {}};
    std::string texts;
    for (const InstrumentValue& value : others) texts += number_text(value) + "|";
    EXPECT_EQ(texts, "0|-1.#INF|1.#QNAN|-3|text||");
    EXPECT_EQ(text_of(0.1F, ' ', 16777216.0F, ' ', float(INFINITY), true, std::uint8_t{7}), "0.1 16777216 1.#INFTrue7");
    EXPECT_TRUE(equal_but_for_case("aZ@[", "Az@["));
    EXPECT_FALSE(equal_but_for_case("[", "{") || equal_but_for_case("a", "ab"));
}

TEST(ParseDouble, TakesWhatIsANumberWhollyAndRefusesAllElseNamingIt) {
    // Each with the number that it is.
    const auto numbers = cases_in(
        "1.5|1.5| 1.5 |1.5|+1.5|1.5|-1.5|-1.5|1e3|1000|1E+3|1000|1.5E-07|1.5E-07|.5|0.5|5.|5|-.5e1|-5|\t7\r\n|7|007|7|"
        "1e-400|0|-1e-400|0|0e999|0|4.9e-324|5E-324|1e-99999999999999999999|0|"
        "1.7976931348623157e308|1.7976931348623157E+308|0." +
        std::string(400, '0') + "1|0");
    for (std::size_t i = 0; i < numbers.size(); i += 2)
        EXPECT_EQ(number_text(parse_double(numbers[i])), numbers[i + 1]) << numbers[i];
    for (const std::string& text :
         cases_in("| |abc|1,5|1 5|1.5x|--1|+-1|-+1|nan|inf|-inf|NAN|0x10|1e|e5|1e+|.|-|+|1.2.3|"
                  "1,000.5|1e5.5|\u00A01|- 1|infinity|1f|1'000"))
        EXPECT_EQ(raised([&] { (void)parse_double(text); }), mismatch + "[" + text + "]");
    for (const std::string& text : cases_in("1e309|-1e309|1e99999999999999999999|" + std::string(400, '9') + "|" +
                                            std::string(700, '9') + "e-100"))
        EXPECT_EQ(raised([&] { (void)parse_double(text); }), overflow + "[" + text + "]");
}

#ifndef _WIN32  // where the separator is the user's own setting, not the process's
TEST(ParseDouble, FollowsACommaLocaleAndNumberTextDoesNot) {
    const std::string before = std::setlocale(LC_NUMERIC, nullptr);
    if (!std::setlocale(LC_NUMERIC, "de_DE.UTF-8")) GTEST_SKIP() << "no locale with a decimal comma is installed";
    const std::string texts = number_text(parse_double("1,5")) + raised([] { (void)parse_double("1.5"); }) +
                              raised([] { (void)parse_double("1.000,5"); });
    std::setlocale(LC_NUMERIC, before.c_str());
    EXPECT_EQ(texts, "1.5" + mismatch + "[1.5]" + mismatch + "[1.000,5]");
}
#endif

TEST(DateTexts, PadAndTurnTheHourRound) {
    const LocalTime morning{2026, 1, 2, 8, 3, 5}, midnight{2009, 11, 21, 0, 0, 0};
    EXPECT_EQ(date_yyyymmdd(morning) + time_hhmmss(morning) + date_yymmdd(midnight), "20260102080305091121");
    EXPECT_EQ(general_date_text(midnight), "11/21/2009");
    EXPECT_EQ(general_date_text(morning), "1/2/2026 8:03:05 AM");
    for (const auto& [hour, text] :
         {std::pair(0, "12:00:01 AM"), {11, "11:00:01 AM"}, {12, "12:00:01 PM"}, {20, "8:00:01 PM"}})
        EXPECT_EQ(general_date_text({2026, 11, 21, hour, 0, 1}), std::string("11/21/2026 ") + text);
#ifndef _WIN32
    const std::string before = std::setlocale(LC_TIME, nullptr);
    if (!std::setlocale(LC_TIME, "de_DE.UTF-8")) GTEST_SKIP() << "no German locale is installed";
    const std::string german = general_date_text(morning) + "|" + general_date_text(midnight);
    std::setlocale(LC_TIME, before.c_str());
    EXPECT_EQ(german, "02.01.2026 08:03:05|21.11.2009");
#endif
}

}  // namespace
}  // namespace korvane
