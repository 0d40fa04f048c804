#include "frame/routine.h"

#include <gtest/gtest.h>

#include <new>
#include <stdexcept>
#include <thread>

#include "frame/located_number.h"
#include "platform/files.h"
#include "support/raised.h"
#include "support/recording_tracer.h"

namespace korvane {
namespace {

using Lines = std::vector<std::string>;

struct Traced {
    std::shared_ptr<RecordingTracerFactory> tracers = std::make_shared<RecordingTracerFactory>();
    Trace trace{tracers};
    const Lines& lines() const { return tracers->record->lines; }
};

const ErrorLine line{"Error[", "] in Inner(): "};

TEST(Trace, ReportsUnderTheRoutineThatRunsAndInNestedOrder) {
    Traced traced;
    unguarded_routine(traced.trace, {"Outer", 4}, [&](TraceObj& outer) {
        outer.TR_PRINT("  before  ");
        unguarded_routine(traced.trace, {"Inner"}, [&](TraceObj& inner) { inner.TR_PRINT("value ", 1.5, " ", true); });
        outer.TR_PRINT("after");
    });
    EXPECT_EQ(traced.lines(), (Lines{"> Outer", "Outer: before", "> Inner", "Inner: value 1.5 True", "< Inner",
                                     "Outer: after", "< Outer"}));
    EXPECT_EQ(traced.tracers->record->levels, (std::vector<std::int32_t>{4, 9}));
    EXPECT_EQ(traced.tracers->record->module_name, "korvanetune");
}

TEST(Trace, PrintBeforeTheEntryIsReportedUnderTheCaller) {
    Traced traced;
    TraceObj outer(traced.trace);
    outer.TR_ENTRY(9, "Outer");
    TraceObj inner(traced.trace);
    inner.TR_PRINT("early");
    inner.TR_ENTRY(9, "Inner");
    inner.TR_PRINT("   ");
    EXPECT_EQ(traced.lines(), (Lines{"> Outer", "Outer: early", "> Inner", "Inner: "}));
}

TEST(Trace, SwitchedOffMakesNoCallAndSwitchingOnLaterIsNotNoticed) {
    Traced traced;
    traced.tracers->record->on = false;
    const auto run = [&] {
        routine(traced.trace, {"Outer"}, line, [&](TraceObj& record) {
            record.TR_PRINT("never");
            throw Error(-1, "source", "text");
        });
    };
    EXPECT_EQ(raised(run), "-1|source|text");
    traced.tracers->record->on = true;
    EXPECT_EQ(raised(run), "-1|source|text");
    EXPECT_EQ(traced.lines(), Lines{});
    EXPECT_EQ(traced.tracers->created, 1);
    std::thread([&] { unguarded_routine(traced.trace, {"Other"}, [](TraceObj&) {}); }).join();
    EXPECT_EQ(traced.lines(), (Lines{"> Other", "< Other"})) << "a new thread reads the flag anew";
    EXPECT_EQ(traced.tracers->created, 2);
}

TEST(Routine, EveryKindOfFailureBecomesOneErrorLineAndOneAutomationError) {
    const std::pair<std::function<void()>, std::string> failures[] = {
        {[] { throw Error(-905, "source", "text"); }, "-905|source|text"},
        {[] { throw FileError(FileErrorKind::not_found, 2, "gone"); }, "53|Korvane|gone"},
        {[] { throw FileError(FileErrorKind::sharing_violation, 16, "busy"); }, "70|Korvane|busy"},
        {[] { throw std::bad_alloc(); }, "7|Korvane|Out of memory"},
        {[] { throw std::out_of_range("bad"); }, "51|Korvane|bad"},
        {[] { throw 5; }, "51|Korvane|Internal error"},
    };
    for (const auto& [failure, expected] : failures) {
        Traced traced;
        const std::string number = expected.substr(0, expected.find('|'));
        const std::string text = expected.substr(expected.rfind('|') + 1);
        const Lines lines{"> Inner", "Inner: Error[" + number + "] in Inner(): " + text, "< Inner"};
        EXPECT_EQ(raised([&] { routine(traced.trace, {"Inner"}, line, [&](TraceObj&) { failure(); }); }), expected);
        EXPECT_EQ(traced.lines(), lines);

        const Error replacement(-901, "other", "replaced");
        EXPECT_EQ(raised([&] {
                      replacing_routine(traced.trace, {"Inner"}, line, replacement, [&](TraceObj&) { failure(); });
                  }),
                  "-901|other|replaced");
        std::string kept;
        const auto keep = [&](std::string kept_text, const Error& error) {
            kept = std::to_string(error.number()) + ": " + kept_text;
        };
        swallowing_routine(
            traced.trace, {"Inner"}, line, [&](TraceObj&) { failure(); }, keep);
        EXPECT_EQ(kept, number + ": Error[" + number + "] in Inner(): " + text);
        Lines three_times = lines;
        three_times.insert(three_times.end(), lines.begin(), lines.end());
        three_times.insert(three_times.end(), lines.begin(), lines.end());
        EXPECT_EQ(traced.lines(), three_times);
    }
}

TEST(LocatedNumber, ErrorSaysWhichTextAndWhere) {
    EXPECT_EQ(located_number(" 1.5 ", [] { return "unused"; }), 1.5);
    EXPECT_EQ(raised([] { located_number("x", [] { return "Item[A] of f.xml"; }); }),
              "13|Korvane|Type mismatch: [x] (Item[A] of f.xml)");
}

}  // namespace
}  // namespace korvane
