// Conversions of values by the rules of automation, and arrays.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "automation/native_arrays.h"
#include "korvane/automation.h"

namespace korvane::automation {
namespace {

/// The number of the error that a call raises; 0 where it raises none.
template <class Call>
std::int32_t error_of(Call call) {
    try {
        call();
        return 0;
    } catch (const Error& error) {
        return error.number();
    }
}

struct Conversion {
    Value value;
    // What each conversion gives: the value, or the number of the error.
    std::variant<double, std::int32_t> real;
    std::variant<std::int32_t, Error> whole;
    std::variant<bool, Error> truth;
    std::variant<std::string, Error> text;
};

Error fault(std::int32_t number) {
    return Error(number, "", "");
}

std::vector<Conversion> conversions() {
    const Error mismatch = fault(13), null = fault(94), missing = fault(449), overflow = fault(6);
    return {
        {Empty{}, 0.0, 0, false, std::string()},
        {Null{}, 94, null, null, null},
        {Missing{}, 449, missing, missing, missing},
        {true, -1.0, -1, true, std::string("True")},
        {false, 0.0, 0, false, std::string("False")},
        {std::int16_t{-7}, -7.0, -7, true, std::string("-7")},
        {2147483647, 2147483647.0, 2147483647, true, std::string("2147483647")},
        {1.5f, 1.5, 2, true, std::string("1.5")},
        {0.1f, static_cast<double>(0.1f), 0, true, std::string("0.1")},
        {2.5, 2.5, 2, true, std::string("2.5")},
        {3.5, 3.5, 4, true, std::string("3.5")},
        {-0.5, -0.5, 0, true, std::string("-0.5")},
        {2147483647.5, 2147483647.5, overflow, true, std::string("2147483647.5")},
        {1e300, 1e300, overflow, true, std::string("1E+300")},
        {Date{2.25}, 2.25, 2, true, std::string("1/1/1900 6:00:00 AM")},
        {Date{-1.25}, -1.25, -1, true, std::string("12/29/1899 6:00:00 AM")},
        {Date{1e9}, 1e9, 1000000000, true, mismatch},
        {"12.75", 12.75, 13, true, std::string("12.75")},
        {" -3 ", -3.0, -3, true, std::string(" -3 ")},
        {"true", 13, mismatch, true, std::string("true")},
        {" FALSE ", 13, mismatch, false, std::string(" FALSE ")},
        {"", 13, mismatch, mismatch, std::string()},
        {"1,000", 13, mismatch, mismatch, std::string("1,000")},
        {"1e400", 6, overflow, overflow, std::string("1e400")},
        {"0x10", 13, mismatch, mismatch, std::string("0x10")},
        {PeakInfo{}, 13, mismatch, mismatch, mismatch},
        {Object{}, 13, mismatch, mismatch, mismatch},
        {Array(std::vector<double>{1}), 13, mismatch, mismatch, mismatch},
    };
}

template <class T, class Convert>
void expect_conversion(const std::variant<T, Error>& expected, Convert convert, const std::string& what) {
    if (const auto* error = std::get_if<Error>(&expected))
        EXPECT_EQ(error_of(convert), error->number()) << what;
    else
        EXPECT_EQ(convert(), std::get<T>(expected)) << what;
}

TEST(Values, ConvertAsAutomationDoes) {
    for (const Conversion& row : conversions()) {
        const Value& value = row.value;
        const std::string what = value.kind_name();
        if (const auto* number = std::get_if<double>(&row.real))
            EXPECT_EQ(value.as_double(), *number) << what;
        else
            EXPECT_EQ(error_of([&] { value.as_double(); }), std::get<std::int32_t>(row.real)) << what;
        expect_conversion(
            row.whole, [&] { return value.as_int32(); }, what);
        expect_conversion(
            row.truth, [&] { return value.as_boolean(); }, what);
        expect_conversion(
            row.text, [&] { return value.as_text(); }, what);
    }
}

TEST(Values, SmallerTypesOverflowInsteadOfWrapping) {
    EXPECT_EQ(Value(32767.4).as_int16(), 32767);
    EXPECT_EQ(error_of([] { Value(32767.5).as_int16(); }), 6);
    EXPECT_EQ(error_of([] { Value(-32769).as_int16(); }), 6);
    EXPECT_EQ(error_of([] { Value(1e39).as_single(); }), 6);
    EXPECT_TRUE(std::isinf(Value(std::numeric_limits<double>::infinity()).as_single()));
    EXPECT_EQ(error_of([] { Value(std::nan("")).as_int32(); }), 6);
}

TEST(Values, ObjectsAreGivenAskedForAndRefused) {
    EXPECT_EQ(Value(Object{}).as_object(), nullptr);
    EXPECT_EQ(Value().as_object(), nullptr);
    EXPECT_EQ(error_of([] { Value(3).as_object(); }), 424);
    EXPECT_EQ(error_of([] { Value("x").as_object(); }), 424);
    EXPECT_EQ(error_of([] { Value(Null{}).as_object(); }), 94);
    EXPECT_EQ(error_of([] { Value(3.0).as_array(); }), 13);
}

TEST(Arrays, IndexesRunFromTheirLowerBounds) {
    auto elements = std::make_shared<const std::vector<double>>(std::vector<double>{1, 2, 3, 4, 5, 6});
    const Array array({{1, 2}, {-1, 3}}, elements);
    EXPECT_EQ(array.at({1, -1}), Value(1.0));
    EXPECT_EQ(array.at({1, 1}), Value(3.0));
    EXPECT_EQ(array.at({2, 0}), Value(5.0));
    for (const auto& wrong :
         std::vector<std::vector<std::int32_t>>{{0, 0}, {3, 0}, {1, 2}, {1, -2}, {1}, {1, 0, 0}, {}})
        EXPECT_EQ(error_of([&] { array.at(wrong); }), 9);
    EXPECT_EQ(error_of([&] { Array({{0, 7}}, elements); }), 9);
}

TEST(Arrays, ElementsOfOneTypeAreSharedNotCopied) {
    const VariantArray<double> spectrum(std::vector<double>(1000, 1.0), 1);
    const Value value = value_of(spectrum);
    const auto back = array_from<double>(value);
    EXPECT_EQ(back.storage(), spectrum.storage());
    EXPECT_EQ(back.lower_bound(), 1);
}

TEST(Arrays, EveryKindOfElementConverts) {
    const std::vector<Value> numbers{1.0, "2", true, Empty{}, std::int16_t{5}, 6.5f};
    const auto doubles = array_from<double>(Array(numbers, -2));
    EXPECT_EQ(std::vector<double>(doubles.elements().begin(), doubles.elements().end()),
              (std::vector<double>{1, 2, -1, 0, 5, 6.5}));
    EXPECT_EQ(doubles.lower_bound(), -2);
    EXPECT_EQ(array_from<double>(Array(std::vector<std::int16_t>{1, 2})).at(1), 2.0);
    EXPECT_EQ(array_from<std::string>(Array(std::vector<double>{0.5})).at(0), "0.5");
    EXPECT_TRUE(array_from<double>(Empty{}).is_empty());
    EXPECT_EQ(array_from<double>(Array(std::vector<double>())).size(), 0u);
    const auto meta = array_from<InstrumentValue>(Array(std::vector<Value>{Empty{}, std::int16_t{3}, 1.5f, "x"}));
    EXPECT_EQ(meta.at(0), InstrumentValue());
    EXPECT_EQ(meta.at(1), InstrumentValue(3));
    EXPECT_EQ(meta.at(2), InstrumentValue(1.5));
    EXPECT_EQ(meta.at(3), InstrumentValue("x"));
}

TEST(Arrays, WhatIsNoArrayOfTheRightShapeIsRefused) {
    const Array matrix({{0, 1}, {0, 1}}, std::make_shared<const std::vector<double>>(std::vector<double>{1}));
    EXPECT_EQ(error_of([] { array_from<double>(3.0); }), 13);
    EXPECT_EQ(error_of([] { array_from<double>(Null{}); }), 94);
    EXPECT_EQ(error_of([&] { array_from<double>(matrix); }), 9);
    EXPECT_EQ(error_of([] { array_from<double>(Array(std::vector<Value>{Null{}})); }), 94);
    EXPECT_EQ(error_of([] { array_from<double>(Array(std::vector<std::string>{"x"})); }), 13);
    EXPECT_EQ(error_of([] { matrix_from<double>(Array(std::vector<double>{1})); }), 9);
    EXPECT_EQ(error_of([] { matrix_from<double>(Empty{}); }), 13);
}

TEST(Arrays, MatricesCountFromIndexZeroWhateverTheirBounds) {
    auto elements = std::make_shared<const std::vector<double>>(std::vector<double>{1, 2, 3, 4, 5, 6});
    const auto matrix = matrix_from<double>(Array({{0, 3}, {0, 2}}, elements));
    EXPECT_EQ(matrix.at(2, 0), 5.0);
    EXPECT_EQ(value_of(matrix), Value(Array({{0, 3}, {0, 2}}, elements)));
    const auto shifted = matrix_from<double>(Array({{-1, 3}, {0, 2}}, elements));
    EXPECT_EQ(shifted.rows(), 2u);
    EXPECT_EQ(shifted.at(0, 1), 4.0);
    EXPECT_EQ(error_of([&] { matrix_from<double>(Array({{1, 3}, {0, 2}}, elements)); }), 9);
}

}  // namespace
}  // namespace korvane::automation
