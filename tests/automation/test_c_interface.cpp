// The C interface: values there and back, hostile calls, a layer whose every member is a function in C, aborts.
#include <gtest/gtest.h>

#include <thread>

#include "argument_values.h"
#include "automation/c/values.h"
#include "korvane/korvane_c_layer.h"

namespace korvane::automation::c {
namespace {

std::string last_error() {
    korvane_error error;
    korvane_last_error(&error);
    return std::to_string(error.number) + "|" + error.description;
}

/// On the simulated instrument of a base folder.
class CInterface : public testing::Test {
protected:
    CInterface() {
        options.size = sizeof options;
        options.base_folder = base.c_str();
        EXPECT_EQ(korvane_open(&options, &platform), KORVANE_OK) << last_error();
        EXPECT_EQ(korvane_create(platform, "TuneGlobals", &globals), KORVANE_OK) << last_error();
    }
    ~CInterface() override {
        for (const korvane_handle handle : {globals, platform}) korvane_free(handle);
    }

    EmbeddedWorld world;
    std::string base = world.base().string();
    korvane_options options{};
    korvane_handle platform = 0, globals = 0;
};

TEST_F(CInterface, ValuesComeBackAsTheyWereAndOutliveTheirOrigin) {
    auto values = hostile_values(world);
    values.emplace_back("nested", Array(std::vector<Value>{Array(std::vector<std::string>{"a"}), PeakInfo{1}, 2.5f}));
    values.emplace_back("small numbers", Array(std::vector<std::int16_t>{1, -2}));
    for (auto& [name, value] : values) {
        korvane_value shown{};
        give(shown, Value(value));
        const Value back = value_from(shown);
        EXPECT_EQ(back.kind_name(), value.kind_name()) << name;
        EXPECT_EQ(json_of(back), json_of(value)) << name;
        if (value.holds<Array>()) {
            EXPECT_EQ(back.as_array().bounds(), value.as_array().bounds()) << name;
        }
        korvane_clear(&shown);
        EXPECT_EQ(shown.kind, KORVANE_EMPTY);
    }
}

TEST_F(CInterface, HostileCallsAreErrorsThatNameTheFault) {
    korvane_handle freed = 0, object = 0;
    korvane_copy(globals, &freed);
    korvane_free(freed);
    korvane_free(freed);
    const korvane_bound bounds[]{{0, 2}, {0, 3}};
    const double number = 1;
    const auto value = [](int32_t kind, int32_t element, const void* data, std::size_t count) {
        korvane_value made{};
        made.kind = kind;
        made.element = element;
        made.as.data = data;
        made.count = count;
        return made;
    };
    const auto call = [&](korvane_value argument) {
        return korvane_call_named(globals, "WriteLineToTuneLogFile", &argument, 1, nullptr);
    };
    korvane_value misfit = korvane_doubles(&number, 1);
    misfit.bounds = bounds;
    misfit.rank = 2;
    korvane_value deep = misfit;
    deep.rank = 1'000'000;
    korvane_value text = korvane_text("x");
    const char* const no_name = nullptr;
    const korvane_class old_table{KORVANE_C_VERSION + 1, "Old", nullptr, 0, nullptr};
    const korvane_entry no_function{"Value", nullptr};
    const korvane_class hole{KORVANE_C_VERSION, "Hole", &no_function, 1, nullptr};
    korvane_options wrong_size{};
    const auto told = [](int32_t status) { return status == KORVANE_OK ? "succeeded" : last_error(); };
    const std::pair<std::string, const char*> cases[]{
        {told(korvane_create(freed, "TuneGlobals", &object)), "which is none or was freed"},
        {told(korvane_create(globals, "TuneGlobals", &object)), "in the place of a platform"},
        {told(korvane_create(platform, nullptr, &object)), "class_name is null"},
        {told(korvane_create(platform, "TuneGlobals", nullptr)), "object is null"},
        {told(korvane_open(&wrong_size, &object)), "size of the options [0]"},
        {told(korvane_call_named(0, "QuadType", nullptr, 0, nullptr)), "91|"},
        {told(korvane_call_named(platform, "QuadType", nullptr, 0, nullptr)), "in the place of an object"},
        {told(korvane_call_named(globals, "WriteLineToTuneLogFile", nullptr, 1, nullptr)), "arguments is null"},
        {told(korvane_call(globals, 999, KORVANE_CALL, nullptr, 0, nullptr, 0, 0, nullptr)), "438|"},
        {told(korvane_call(globals, 1, 7, nullptr, 0, nullptr, 0, 0, nullptr)), "access or name_count"},
        {told(korvane_call(globals, 37, KORVANE_CALL, &text, 1, &no_name, 1, 0, nullptr)), "a name is null"},
        {told(korvane_call(globals, 37, KORVANE_CALL, &text, 1, nullptr, 2, 0, nullptr)), "names is null"},
        {told(korvane_call(globals, 37, KORVANE_CALL, &text, 1, nullptr, 0, globals, nullptr)),
         "place of an abort token"},
        {told(call(value(99, 0, nullptr, 0))), "a value of kind 99"},
        {told(call(value(KORVANE_TEXT, 0, nullptr, 3))), "the text is null"},
        {told(call(value(KORVANE_RECORD, 7, &number, 1))), "record 7"},
        {told(call(value(KORVANE_RECORD, KORVANE_PEAK, nullptr, 1))), "the record is null"},
        {told(call(value(KORVANE_ARRAY, KORVANE_DOUBLE, nullptr, 4))), "the array is null"},
        {told(call(value(KORVANE_ARRAY, KORVANE_NULL, &number, 1))), "elements of kind 2"},
        {told(call(misfit)), "bounds of 6 elements for 1"},
        {told(call(deep)), "1000000 dimensions"},
        {told(korvane_on_probe(globals, nullptr, nullptr)), "no SpectrumParser"},
        {told(korvane_give_back(platform, 0, nullptr)), "the platform's guard is null"},
        {told(korvane_implement(&old_table, nullptr, &object)), "a table of version 2 where 1 is known"},
        {told(korvane_implement(&hole, nullptr, &object)), "Hole: entry 0 lacks name or function"}};
    for (const auto& [error, expected] : cases) EXPECT_NE(error.find(expected), std::string::npos) << error;
}

/// What a member in C answers, and whether it was let go.
struct Answer {
    int32_t status;
    korvane_value result;
    std::string expected;  ///< in the error
    bool destroyed = false;
};

/// An object of a class in C with one member, which answers so.
korvane_handle object_in_c(const char* name, const char* member, Answer& answer) {
    const korvane_entry entry{member,
                              [](void* context, korvane_value* arguments, size_t count, korvane_value* result,
                                 korvane_error* error) -> int32_t {
                                  const Answer& wanted = *static_cast<const Answer*>(context);
                                  *result = wanted.result;
                                  if (count > 0) arguments[0] = korvane_double(2.5);
                                  if (wanted.status == KORVANE_TIME_OUT)
                                      *error = {-8, KORVANE_TIME_OUT, "C", "late", ""};
                                  return wanted.status;
                              }};
    const korvane_class table{KORVANE_C_VERSION, name, &entry, 1,
                              [](void* context) { static_cast<Answer*>(context)->destroyed = true; }};
    korvane_handle object = 0;
    EXPECT_EQ(korvane_implement(&table, &answer, &object), KORVANE_OK) << last_error();
    return object;
}

// An error in the place of an answer names the call: of a layer that is asked so, and of the checks of it.
TEST_F(CInterface, ObjectsInCAreNeverTrusted) {
    korvane_value freed = korvane_of(KORVANE_OBJECT);
    freed.as.object = ~korvane_handle{};
    Answer answers[]{{77, {}, "failed with 77"},  // no word of what failed
                     {KORVANE_TIME_OUT, {}, "late"},
                     {KORVANE_OK, {}, "Invalid use of Null"},
                     {KORVANE_OK, korvane_of(-3), "a value of kind -3"},
                     {KORVANE_OK, korvane_doubles(nullptr, 5), "the array is null"},
                     {KORVANE_OK, freed, "which is none or was freed"},
                     {KORVANE_OK, korvane_double(NAN), "not a number"}};
    for (Answer& answer : answers) {
        const korvane_handle layer = object_in_c("InstrumentLayer", "CreateGlobals", answer);
        korvane_value rows{};
        EXPECT_EQ(korvane_check_layer(layer, &rows), KORVANE_OK) << last_error();
        std::string failures;
        for (std::size_t row = 0; row < rows.count; row += 4)
            if (rows.as.values[row + 2].as.text == std::string("failed")) failures += rows.as.values[row + 3].as.text;
        EXPECT_NE(failures.find(answer.expected), std::string::npos) << failures;
        EXPECT_NE(failures.find("(InstrumentLayer.CreateGlobals)"), std::string::npos) << failures;
        korvane_clear(&rows);
        korvane_free(layer);
        EXPECT_TRUE(answer.destroyed);
    }
}

TEST_F(CInterface, ObjectsInCAnswerAndChangeTheirArguments) {
    Answer sound{KORVANE_OK, korvane_text("seven"), ""}, late{KORVANE_TIME_OUT, {}, ""};
    const korvane_handle object = object_in_c("Counter", "Count", sound), other = object_in_c("Late", "Count", late);
    korvane_value argument = korvane_double(1), result{};
    EXPECT_EQ(korvane_call_named(object, "COUNT", &argument, 1, &result), KORVANE_OK) << last_error();
    EXPECT_STREQ(result.as.text, "seven");
    EXPECT_EQ(argument.as.number, 2.5);
    EXPECT_EQ(korvane_call_named(other, "Count", nullptr, 0, &result), KORVANE_TIME_OUT);
    EXPECT_EQ(last_error(), "-8|late");
    for (const korvane_handle handle : {object, other}) korvane_free(handle);
}

TEST_F(CInterface, OneCallIsAbortedByItsTokenOrItsHostAndTheFlagStays) {
    korvane_value minute = korvane_double(60), answer{};
    korvane_handle token = 0;
    int32_t wait = 0;
    korvane_token(&token);
    ASSERT_EQ(korvane_member(globals, "WaitThisManySeconds", &wait), KORVANE_OK);
    std::thread user([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        korvane_abort(token);
    });
    EXPECT_EQ(korvane_call(globals, wait, KORVANE_CALL, &minute, 1, nullptr, 0, token, nullptr), KORVANE_ABORTED);
    user.join();
    EXPECT_EQ(last_error(), "1|User aborted");
    options.events = [](void* asked) -> int32_t { return ++*static_cast<int*>(asked) == 3; };
    int asked = 0;
    options.context = &asked;
    korvane_handle hosted = 0, waiting = 0;
    ASSERT_EQ(korvane_open(&options, &hosted), KORVANE_OK);
    ASSERT_EQ(korvane_create(hosted, "TuneGlobals", &waiting), KORVANE_OK);
    EXPECT_EQ(korvane_call_named(waiting, "WaitThisManySeconds", &minute, 1, nullptr), KORVANE_ABORTED);
    EXPECT_EQ(korvane_call_named(waiting, "UserHasClickedAbort", nullptr, 0, &answer), KORVANE_OK) << last_error();
    EXPECT_EQ(answer.as.integer, 0);
    for (const korvane_handle handle : {token, hosted, waiting}) korvane_free(handle);
}

}  // namespace
}  // namespace korvane::automation::c
