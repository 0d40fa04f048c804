// Conversions of values by the rules of automation, and arrays.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <limits>

#include "automation/json_values.h"
#include "automation/native_types.h"

namespace korvane::automation {
namespace {

/// What a call gives, or "!" and the number of its error.
template <class Call>
std::string outcome(Call call) {
    try {
        return fmt::format("{}", call());
    } catch (const Error& error) {
        return fmt::format("!{}", error.number());
    }
}

TEST(Values, ConvertAsAutomationDoes) {
    constexpr double infinite = std::numeric_limits<double>::infinity();
    // To Double, Single, Long, Integer, Boolean and String.
    const std::vector<std::pair<Value, std::string>> rows{
        {Empty{}, "0|0|0|0|false|"},
        {Null{}, "!94|!94|!94|!94|!94|!94"},
        {Missing{}, "!449|!449|!449|!449|!449|!449"},
        {true, "-1|-1|-1|-1|true|True"},
        {false, "0|0|0|0|false|False"},
        {std::int16_t{-7}, "-7|-7|-7|-7|true|-7"},
        {2147483647, "2147483647|2147483600|2147483647|!6|true|2147483647"},
        {1.5f, "1.5|1.5|2|2|true|1.5"},
        {0.1f, "0.10000000149011612|0.1|0|0|true|0.1"},
        {2.5, "2.5|2.5|2|2|true|2.5"},
        {3.5, "3.5|3.5|4|4|true|3.5"},
        {-0.5, "-0.5|-0.5|0|0|true|-0.5"},
        {32767.5, "32767.5|32767.5|32768|!6|true|32767.5"},
        {2147483647.5, "2147483647.5|2147483600|!6|!6|true|2147483647.5"},
        {1e300, "1e+300|!6|!6|!6|true|1E+300"},
        {infinite, "inf|inf|!6|!6|true|1.#INF"},
        {Date{2.25}, "2.25|2.25|2|2|true|1/1/1900 6:00:00 AM"},
        {Date{-1.25}, "-1.25|-1.25|-1|-1|true|12/29/1899 6:00:00 AM"},
        {Date{1e9}, "1000000000|1000000000|1000000000|!6|true|!13"},
        {"12.75", "12.75|12.75|13|13|true|12.75"},
        {" -3 ", "-3|-3|-3|-3|true| -3 "},
        {"true", "!13|!13|!13|!13|true|true"},
        {" FALSE ", "!13|!13|!13|!13|false| FALSE "},
        {"", "!13|!13|!13|!13|!13|"},
        {"1e400", "!6|!6|!6|!6|!6|1e400"},
        {Object{}, "!13|!13|!13|!13|!13|!13"},
        {Array(std::vector<double>{1}), "!13|!13|!13|!13|!13|!13"},
    };
    for (const auto& [value, expected] : rows) {
        const Value& given = value;
        EXPECT_EQ(outcome([&] { return given.as_double(); }) + "|" + outcome([&] { return given.as_single(); }) + "|" +
                      outcome([&] { return given.as_int32(); }) + "|" + outcome([&] { return given.as_int16(); }) +
                      "|" + outcome([&] { return given.as_boolean(); }) + "|" +
                      outcome([&] { return given.as_text(); }),
                  expected)
            << given.kind_name();
    }
    EXPECT_EQ(json_of(infinite).dump() + json_of(-infinite).dump(), "\"inf\"\"-inf\"");
    const auto object = [](const Value& value) { return outcome([&] { return value.as_object() != nullptr; }); };
    EXPECT_EQ(object(Object{}) + object(Empty{}) + object(3) + object("x") + object(Null{}), "falsefalse!424!424!94");
}

using Doubles = Native<VariantArray<double>>;
/// The value on its way into a native member and out again.
template <class T>
Value crossed(const Value& value) {
    return Native<T>::to(Native<T>::from(value));
}

TEST(Arrays, HoldAsManyElementsAsTheirBounds) {
    auto elements = std::make_shared<const std::vector<double>>(std::vector<double>{1, 2, 3, 4, 5, 6});
    const Array array({{1, 2}, {-1, 3}}, elements);
    EXPECT_EQ(json_of(Value(array)).dump(), "[[1.0,2.0,3.0],[4.0,5.0,6.0]]");
    EXPECT_EQ(array.element(4), Value(5.0));
    EXPECT_EQ(outcome([&] { return array.element(6).kind_name(); }), "!9");
    EXPECT_EQ(outcome([&] { return Array({{0, 7}}, elements).size(); }), "!9");

    const auto matrix = [&](std::vector<ArrayBound> bounds) {
        return outcome([&] { return json_of(crossed<VariantMatrix<double>>(Array(bounds, elements))).dump(); });
    };
    EXPECT_EQ(matrix({{0, 3}, {0, 2}}), "[[1.0,2.0],[3.0,4.0],[5.0,6.0]]");
    EXPECT_EQ(matrix({{-1, 3}, {-1, 2}}), "[[4.0],[6.0]]") << "routines count from index 0";
    EXPECT_EQ(matrix({{1, 3}, {0, 2}}) + matrix({{0, 6}}), "!9!9");
}

TEST(Arrays, ElementsOfOneTypeAreSharedOthersConverted) {
    const VariantArray<double> spectrum(std::vector<double>(1000, 1.0), 1);
    EXPECT_EQ(Doubles::from(Doubles::to(spectrum)).storage(), spectrum.storage());
    EXPECT_EQ(Doubles::from(Doubles::to(spectrum)).lower_bound(), 1);
    const auto converted = [](const Value& value, auto kind) {
        return outcome([&] { return json_of(crossed<VariantArray<decltype(kind)>>(value)).dump(); });
    };
    const Array numbers(std::vector<Value>{1.0, "2", true, Empty{}, std::int16_t{5}, 6.5f}, -2);
    EXPECT_EQ(converted(numbers, 0.0), "[1.0,2.0,-1.0,0.0,5.0,6.5]");
    EXPECT_EQ(Doubles::from(numbers).lower_bound(), -2);
    EXPECT_EQ(converted(Array(std::vector<double>{0.5}), std::string()), "[\"0.5\"]");
    EXPECT_EQ(converted(Empty{}, 0.0) + converted(Array(std::vector<double>()), 0.0), "null[]");
    EXPECT_EQ(converted(Array(std::vector<Value>{Empty{}, std::int16_t{3}, 1.5f, "x"}), InstrumentValue()),
              "[null,3,1.5,\"x\"]");
    const Array matrix({{0, 1}, {0, 1}}, std::make_shared<const std::vector<double>>(1, 1.0));
    EXPECT_EQ(converted(3.0, 0.0) + converted(Null{}, 0.0) + converted(matrix, 0.0) +
                  converted(Array(std::vector<Value>{Null{}}), 0.0) +
                  converted(Array(std::vector<std::string>{"x"}), 0.0),
              "!13!94!9!94!13");
}

}  // namespace
}  // namespace korvane::automation
