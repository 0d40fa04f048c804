// The C interface: values there and back, hostile calls, a layer whose every member is a function in C, aborts.
#include <gtest/gtest.h>

#include <array>
#include <thread>

#include "argument_values.h"
#include "automation/c/values.h"
#include "automation/instrument_layer.h"
#include "automation/json_values.h"
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
        {told(korvane_create(platform, "Nothing", &object)), "429|"},
        {told(korvane_create(platform, "TuneGlobals", nullptr)), "object is null"},
        {told(korvane_open(&wrong_size, &object)), "size of the options [0]"},
        {told(korvane_call_named(0, "QuadType", nullptr, 0, nullptr)), "91|"},
        {told(korvane_call_named(platform, "QuadType", nullptr, 0, nullptr)), "in the place of an object"},
        {told(korvane_call_named(globals, "QuadTypo", nullptr, 0, nullptr)), "438|"},
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
        {told(korvane_implement(&hole, nullptr, &object)), "Hole: entry 0 lacks name or function"},
    };
    for (const auto& [error, expected] : cases) EXPECT_NE(error.find(expected), std::string::npos) << error;
}

/// What a function in C answers in the place of what it should.
struct Misbehaviour {
    int32_t status;
    korvane_value result;
};

/// The layer behind an object, member by member as functions in C: each calls the member of its number.
struct Lender {
    korvane_handle behind;
    const ClassDescription& description;
    const std::pair<std::string, Misbehaviour>* bent;  ///< "SetpointTable.Value" and what it does

    static korvane_handle lend(korvane_handle behind, const std::pair<std::string, Misbehaviour>* bent) {
        const std::string name = object_of(behind)->class_name();
        for (const ClassDescription& description : layer_class_descriptions())
            if (description.name == name) return lend(new Lender{behind, description, bent});
        return behind;  // calibrations and peak lists are the library's own
    }
    static korvane_handle lend(Lender* lender) {
        std::vector<korvane_entry> entries;
        for (const Member& member : lender->description.members)
            entries.push_back({member.name.data(), functions()[static_cast<std::size_t>(member.dispid)]});
        const korvane_class table{KORVANE_C_VERSION, lender->description.name.data(), entries.data(), entries.size(),
                                  [](void* context) {
                                      korvane_free(static_cast<Lender*>(context)->behind);
                                      delete static_cast<Lender*>(context);
                                  }};
        korvane_handle object = 0;
        EXPECT_EQ(korvane_implement(&table, lender, &object), KORVANE_OK) << last_error();
        return object;
    }
    template <int32_t number>
    static int32_t call(void* context, korvane_value* arguments, size_t count, korvane_value* result,
                        korvane_error* error) {
        const Lender& lender = *static_cast<Lender*>(context);
        const Member& member = *lender.description.find(number, Access::call);
        if (lender.bent && lender.bent->first == std::string(lender.description.name) + "." + std::string(member.name))
            return *result = lender.bent->second.result, lender.bent->second.status;
        if (const int32_t status =
                korvane_call(lender.behind, number, KORVANE_CALL, arguments, count, nullptr, 0, 0, result)) {
            korvane_last_error(error);
            return status;
        }
        if (result->kind == KORVANE_OBJECT && result->as.object != 0) {
            korvane_handle kept = 0;
            korvane_copy(result->as.object, &kept);
            korvane_clear(result);
            result->kind = KORVANE_OBJECT;
            result->owner = result->as.object = lend(kept, lender.bent);
        }
        return KORVANE_OK;
    }
    static const std::array<korvane_function, 17>& functions() {
        static const auto all = []<int32_t... number>(std::integer_sequence<int32_t, number...>) {
            return std::array<korvane_function, 17>{&call<number>...};
        }
        (std::make_integer_sequence<int32_t, 17>());
        return all;
    }
};

using Rows = std::vector<std::array<std::string, 4>>;

Rows checks_of(korvane_handle layer) {
    korvane_value table{};
    EXPECT_EQ(korvane_check_layer(layer, &table), KORVANE_OK) << last_error();
    Rows rows(table.count / 4);
    for (std::size_t place = 0; place < table.count; ++place)
        rows[place / 4][place % 4] = table.as.values[place].as.text;
    korvane_clear(&table);
    return rows;
}

class LayerInC : public CInterface {
protected:
    korvane_handle lend(const std::pair<std::string, Misbehaviour>* bent) {
        korvane_handle layer = 0;
        EXPECT_EQ(korvane_create(platform, "InstrumentLayer", &layer), KORVANE_OK) << last_error();
        return Lender::lend(layer, bent);
    }
};

TEST_F(LayerInC, ConformsAndMeasures) {
    const korvane_handle layer = lend(nullptr);
    for (const auto& [operation, check, result, detail] : checks_of(layer))
        EXPECT_EQ(result, "passed") << operation << ": " << check << ": " << detail;
    korvane_options outside{};
    outside.size = sizeof outside;
    outside.layer = layer;
    korvane_handle opened = 0, parser = 0;
    ASSERT_EQ(korvane_open(&outside, &opened), KORVANE_OK) << last_error();
    ASSERT_EQ(korvane_create(opened, "SpectrumParser", &parser), KORVANE_OK) << last_error();
    korvane_value mass = korvane_double(566.8885), peak{};
    EXPECT_EQ(korvane_call_named(parser, "GetPeakAttributes", &mass, 1, &peak), KORVANE_OK) << last_error();
    ASSERT_EQ(peak.kind, KORVANE_RECORD);
    EXPECT_NEAR(static_cast<const korvane_peak*>(peak.as.data)->centroid, 566.8885, 0.01);
    korvane_clear(&peak);
    for (const korvane_handle handle : {parser, opened, layer}) korvane_free(handle);
}

// Whatever one member does wrong, the checks end and one of those that fail names it.
TEST_F(LayerInC, IsNeverTrusted) {
    korvane_value freed = korvane_of(KORVANE_OBJECT);
    freed.as.object = ~korvane_handle{};
    const Misbehaviour ways[]{{77, {}},  // no word of what failed
                              {KORVANE_OK, {}},
                              {KORVANE_OK, korvane_of(-3)},
                              {KORVANE_OK, korvane_doubles(nullptr, 5)},
                              {KORVANE_OK, freed},
                              {KORVANE_OK, korvane_double(NAN)}};
    // That every member's errors name it is shown of late-bound layers; here each way is tried on some.
    std::size_t turn = 0;
    for (const ClassDescription& description : layer_class_descriptions())
        for (const Member& member : description.members) {
            if (member.result.kind == TypeKind::none || ++turn % 3 != 0) continue;
            const std::size_t way = turn / 3 % std::size(ways);
            const std::pair bent{std::string(description.name) + "." + std::string(member.name), ways[way]};
            const korvane_handle layer = lend(&bent);
            const Rows rows = checks_of(layer);
            EXPECT_TRUE(std::ranges::any_of(rows,
                                            [&](const auto& row) {
                                                return row[2] == "failed" &&
                                                       row[3].find("(" + bent.first + ")") != std::string::npos;
                                            }))
                << bent.first << ", way " << way;
            korvane_free(layer);
        }
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
