#include "platform/automation_arithmetic.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cfenv>
#include <charconv>
#include <clocale>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <regex>

#include "korvane/error.h"

namespace korvane {
namespace {

template <class Operation>
std::int32_t error_number_of(const Operation& operation) {
    try {
        operation();
    } catch (const Error& error) {
        return error.number();
    }
    return 0;
}

TEST(ToInteger, RoundsHalvesToEvenInEveryRoundingModeOfTheThread) {
    std::mt19937_64 random(3);
    std::uniform_real_distribution<double> uniform(-2e9, 2e9);
    std::vector<double> values{0.0,
                               -0.0,
                               0.49999999999999994,
                               -0.49999999999999994,
                               4503599627370497.0 / 4194304.0,
                               2147483647.49999,
                               -2147483648.49999,
                               1e-300,
                               -1e-300};
    for (int i = -1000; i <= 1000; ++i)
        for (const double around : {i + 0.0, i + 0.5, std::nextafter(i + 0.5, 1e9), std::nextafter(i + 0.5, -1e9)})
            values.push_back(around);
    for (int i = 0; i < 2000; ++i) values.push_back(uniform(random));
    std::vector<std::int32_t> expected;
    for (const double value : values) expected.push_back(static_cast<std::int32_t>(std::lrint(value)));
    for (const int mode : {FE_TONEAREST, FE_DOWNWARD, FE_UPWARD, FE_TOWARDZERO}) {
        ASSERT_EQ(std::fesetround(mode), 0);
        std::vector<std::int32_t> rounded;
        for (const double value : values) rounded.push_back(to_int32(value));
        std::fesetround(FE_TONEAREST);
        for (std::size_t i = 0; i < values.size(); ++i)
            ASSERT_EQ(rounded[i], expected[i]) << values[i] << " in mode " << mode;
    }
}

TEST(ToInteger, OverflowsExactlyWhereTheRoundedNumberDoesNotFit) {
    EXPECT_EQ(to_int16(32767.49), 32767);
    EXPECT_EQ(to_int16(-32768.5), -32768);
    EXPECT_EQ(to_int32(2147483647.4999998), 2147483647);
    EXPECT_EQ(to_int32(-2147483648.5), std::numeric_limits<std::int32_t>::min());
    for (const double value : {32767.5, -32768.51, 1e300, -1e300, double(INFINITY), -double(INFINITY), double(NAN)})
        EXPECT_EQ(error_number_of([&] { to_int16(value); }), error_number::overflow) << value;
    for (const double value : {2147483647.5, -2147483648.500001, 1e19, double(INFINITY), double(NAN)})
        EXPECT_EQ(error_number_of([&] { to_int32(value); }), error_number::overflow) << value;
}

TEST(InstrumentValueConversion, TakesNumbersAndTextsAndRefusesNothingAtAll) {
    EXPECT_EQ(to_double(InstrumentValue{7}), 7.0);
    EXPECT_EQ(to_double(InstrumentValue{2.5}), 2.5);
    EXPECT_EQ(to_double(InstrumentValue{std::string(" -2.5 ")}), -2.5);
    EXPECT_EQ(to_int32(InstrumentValue{std::string("2.5")}), 2);
    EXPECT_EQ(to_int16(InstrumentValue{3.5}), 4);
    EXPECT_EQ(error_number_of([] { to_int16(InstrumentValue{40000}); }), error_number::overflow);
    EXPECT_EQ(error_number_of([] { to_double(InstrumentValue{}); }), error_number::type_mismatch);
    EXPECT_EQ(error_number_of([] { to_int32(InstrumentValue{std::string("x")}); }), error_number::type_mismatch);
}

int significant_digits(const std::string& text) {
    std::string digits;
    for (const char character : text.substr(0, text.find('E')))
        if (character >= '0' && character <= '9') digits += character;
    digits.erase(digits.find_last_not_of('0') + 1);
    digits.erase(0, digits.find_first_not_of('0'));
    return static_cast<int>(digits.size());
}

template <class Number, class Bits>
void expect_round_trips(int count) {
    std::mt19937_64 random(5);
    const std::regex plain("-?(0|[1-9][0-9]*)(\\.[0-9]*[1-9])?");
    const std::regex scientific("-?[1-9](\\.[0-9]*[1-9])?E[+-][0-9]{2,3}");
    for (int i = 0; i < count; ++i) {
        Number value;
        // Every bit pattern, and numbers of everyday size with few digits.
        if (i % 2 == 0) {
            const Bits bits = static_cast<Bits>(random());
            std::memcpy(&value, &bits, sizeof value);
        } else {
            value = static_cast<Number>(static_cast<double>(random() % 2'000'000) - 1e6) *
                    static_cast<Number>(std::pow(10.0, static_cast<int>(random() % 30) - 15));
        }
        if (!std::isfinite(value)) continue;
        const std::string text = number_text(value);
        Number back = 1;
        const auto parsed = std::from_chars(text.data(), text.data() + text.size(), back);
        ASSERT_TRUE(parsed.ec == std::errc() && parsed.ptr == text.data() + text.size()) << text;
        ASSERT_EQ(back, value) << text;
        const double magnitude = std::abs(static_cast<double>(value));
        const bool is_plain = value == 0 || (magnitude >= 1e-5 && magnitude < 1e16);
        ASSERT_TRUE(std::regex_match(text, is_plain ? plain : scientific)) << text;
        const int digits = significant_digits(text);
        if (digits < 2) continue;
        const std::string shorter = fmt::format("{:.{}e}", value, digits - 2);
        Number other = 0;
        std::from_chars(shorter.data(), shorter.data() + shorter.size(), other);
        ASSERT_NE(other, value) << text << " is longer than " << shorter;
    }
}

TEST(NumberText, DoublesReadBackExactlyInTheFormOfTheirSize) {
    expect_round_trips<double, std::uint64_t>(20'000);
}

TEST(NumberText, FloatsReadBackExactlyInTheFormOfTheirSize) {
    expect_round_trips<float, std::uint32_t>(20'000);
}

TEST(NumberText, IsWhatAutomationPrints) {
    const std::vector<std::pair<double, std::string>> cases{{0, "0"},
                                                            {-0.0, "0"},
                                                            {0.1, "0.1"},
                                                            {-1.5, "-1.5"},
                                                            {123456, "123456"},
                                                            {0.0001, "0.0001"},
                                                            {0.00001, "0.00001"},
                                                            {0.000001, "1E-06"},
                                                            {1.5e-7, "1.5E-07"},
                                                            {1e15, "1000000000000000"},
                                                            {9.5e15, "9500000000000000"},
                                                            {1e16, "1E+16"},
                                                            {1e20, "1E+20"},
                                                            {-1.25e100, "-1.25E+100"},
                                                            {622.0289600000001, "622.0289600000001"},
                                                            {5e-324, "5E-324"},
                                                            {1.0 / 3, "0.3333333333333333"}};
    for (const auto& [value, text] : cases) EXPECT_EQ(number_text(value), text);
    EXPECT_EQ(number_text(0.1F), "0.1");
    EXPECT_EQ(number_text(16777216.0F), "16777216");
    std::string line = "m/z ";
    append_number(line, 0.5);
    EXPECT_EQ(line, "m/z 0.5");
    EXPECT_EQ(number_text(InstrumentValue{}), "");
    EXPECT_EQ(number_text(InstrumentValue{-3}), "-3");
    EXPECT_EQ(number_text(InstrumentValue{std::string("text")}), "text");
}

const std::vector<std::string> not_numbers{"",
                                           " ",
                                           "abc",
                                           "1,5",
                                           "1 5",
                                           "1.5x",
                                           "--1",
                                           "+-1",
                                           "-+1",
                                           "nan",
                                           "inf",
                                           "-inf",
                                           "NAN",
                                           "0x10",
                                           "1e",
                                           "e5",
                                           "1e+",
                                           ".",
                                           "-",
                                           "+",
                                           "1.2.3",
                                           "1,000.5",
                                           "1e5.5",
                                           "\xC2\xA0"
                                           "1",
                                           "- 1",
                                           "infinity",
                                           "1f",
                                           "1'000"};

TEST(ParseDouble, TakesWhatIsANumberWholly) {
    const std::vector<std::pair<std::string, double>> cases{{"1.5", 1.5},
                                                            {" 1.5 ", 1.5},
                                                            {"+1.5", 1.5},
                                                            {"-1.5", -1.5},
                                                            {"1e3", 1000},
                                                            {"1E+3", 1000},
                                                            {"1.5E-07", 1.5e-7},
                                                            {".5", 0.5},
                                                            {"5.", 5},
                                                            {"-.5e1", -5},
                                                            {"\t7\r\n", 7},
                                                            {"007", 7},
                                                            {"0", 0},
                                                            {"1e-400", 0},
                                                            {"-1e-400", 0},
                                                            {"0e999", 0},
                                                            {"4.9e-324", 5e-324},
                                                            {"0." + std::string(400, '0') + "1", 0},
                                                            {"1e-99999999999999999999", 0},
                                                            {"1.7976931348623157e308", 1.7976931348623157e308}};
    for (const auto& [text, value] : cases) EXPECT_EQ(parse_double(text), value) << text;
}

TEST(ParseDouble, RefusesAllElseNamingIt) {
    for (const std::string& text : not_numbers) {
        try {
            const double value = parse_double(text);
            ADD_FAILURE() << "[" << text << "] gave " << value;
        } catch (const Error& error) {
            EXPECT_EQ(error.number(), error_number::type_mismatch) << text;
            EXPECT_NE(error.description().find("[" + text + "]"), std::string::npos);
        }
    }
    for (const std::string text : {"1e309", "-1e309", "1e99999999999999999999"})
        EXPECT_EQ(error_number_of([&] { (void)parse_double(text); }), error_number::overflow) << text;
    EXPECT_EQ(error_number_of([&] { (void)parse_double(std::string(400, '9')); }), error_number::overflow);
    EXPECT_EQ(error_number_of([&] { (void)parse_double(std::string(700, '9') + "e-100"); }), error_number::overflow);
}

TEST(ParseDouble, UndoesNumberText) {
    std::mt19937_64 random(9);
    for (int i = 0; i < 5000; ++i) {
        double value;
        const std::uint64_t bits = random();
        std::memcpy(&value, &bits, sizeof value);
        if (!std::isfinite(value)) continue;
        ASSERT_EQ(parse_double(number_text(value)), value);
    }
}

#ifndef _WIN32  // where the separator is the user's own setting, not the process's
TEST(ParseDouble, FollowsACommaLocaleAndNumberTextDoesNot) {
    const std::string before = std::setlocale(LC_NUMERIC, nullptr);
    const char* found = nullptr;
    for (const char* const name : {"de_DE.UTF-8", "de_DE.utf8", "de_DE", "fr_FR.UTF-8"})
        if (found == nullptr) found = std::setlocale(LC_NUMERIC, name);
    if (found == nullptr) GTEST_SKIP() << "no locale with a decimal comma is installed";
    const double parsed = parse_double("1,5");
    const std::string text = number_text(1.5);
    const std::int32_t with_point = error_number_of([] { (void)parse_double("1.5"); });
    const std::int32_t with_both = error_number_of([] { (void)parse_double("1.000,5"); });
    std::setlocale(LC_NUMERIC, before.c_str());
    EXPECT_EQ(parsed, 1.5);
    EXPECT_EQ(text, "1.5");
    EXPECT_EQ(with_point, error_number::type_mismatch);
    EXPECT_EQ(with_both, error_number::type_mismatch);
}
#endif

TEST(DateTexts, PadAndTurnTheHourRound) {
    const LocalTime morning{2026, 1, 2, 8, 3, 5}, evening{2009, 11, 21, 20, 30, 15};
    EXPECT_EQ(date_yyyymmdd(morning) + time_hhmmss(morning) + date_yymmdd(morning), "20260102080305260102");
    EXPECT_EQ(date_yymmdd(evening), "091121");
    EXPECT_EQ(general_date_text(morning), "1/2/2026 8:03:05 AM");
    EXPECT_EQ(general_date_text(evening), "11/21/2009 8:30:15 PM");
    EXPECT_EQ(general_date_text({2026, 11, 21, 0, 0, 1}), "11/21/2026 12:00:01 AM");
    EXPECT_EQ(general_date_text({2026, 11, 21, 12, 0, 0}), "11/21/2026 12:00:00 PM");
    EXPECT_EQ(general_date_text({2026, 11, 21, 0, 0, 0}), "11/21/2026");
}

}  // namespace
}  // namespace korvane
