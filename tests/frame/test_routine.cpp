#include "frame/routine.h"

#include <gtest/gtest.h>

#include <new>
#include <stdexcept>
#include <thread>

#include "frame/lazy_instrument.h"
#include "platform/files.h"
#include "support/raised.h"
#include "support/recording_tracer.h"
#include "support/scripted_instrument.h"

namespace korvane {
namespace {

struct Traced {
    std::shared_ptr<RecordingTracerFactory> tracers = std::make_shared<RecordingTracerFactory>();
    std::string error_line;
    Trace trace{tracers, &error_line};
    const Lines& lines() const { return tracers->record->lines; }
};

TEST(Trace, ReportsUnderTheRoutineThatRunsAndInNestedOrder) {
    Traced traced;
    routine(traced.trace, {"Outer", 4}, no_line, [&](TraceObj& outer) {
        outer.TR_PRINT("  before  ");
        routine(traced.trace, {"Inner"}, no_line, [&](TraceObj& inner) { inner.TR_PRINT("value ", 1.5, " ", true); });
        outer.TR_PRINT("after");
        TraceObj late(traced.trace);
        late.TR_PRINT("early");
        late.TR_ENTRY(9, "Late");
        late.TR_PRINT("   ");
    });
    EXPECT_EQ(traced.lines(), (Lines{"> Outer", "Outer: before", "> Inner", "Inner: value 1.5 True", "< Inner",
                                     "Outer: after", "Outer: early", "> Late", "Late: ", "< Late", "< Outer"}));
    EXPECT_EQ(traced.tracers->record->levels, (std::vector<std::int32_t>{4, 9, 9}));
    EXPECT_EQ(traced.tracers->record->module_name, "korvanetune");
}

TEST(Trace, SwitchedOffMakesNoCallAndSwitchingOnLaterIsNotNoticed) {
    Traced traced;
    for (const bool on : {false, true}) {
        traced.tracers->record->on = on;
        EXPECT_EQ(raised([&] {
                      routine(traced.trace, {"Outer"}, [&](TraceObj& record) {
                          record.TR_PRINT("never");
                          throw Error(-1, "source", "text");
                      });
                  }),
                  "-1|source|text");
        EXPECT_EQ(traced.error_line, "Error[-1] in Outer(): text") << "kept without tracing too";
    }
    EXPECT_EQ(traced.lines(), Lines{});
    std::thread([&] { routine(traced.trace, {"Other"}, [] {}); }).join();
    EXPECT_EQ(traced.lines(), (Lines{"> Other", "< Other"})) << "a new thread reads the flag anew";
    EXPECT_EQ(traced.tracers->created, 2);
}

TEST(Routine, EveryKindOfFailureBecomesAnAutomationErrorAndGoesTheWayOfItsReaction) {
    const Error error(-8, "source", "text", ErrorKind::configuration, {"help.chm", 7});
    const Error again = error_of(
        [&] { routine(Traced().trace, {"Inner"}, [&] { throw error.caused_by("cause").described("other"); }); });
    EXPECT_EQ(again.kind(), ErrorKind::configuration);
    EXPECT_EQ(again.help(), error.help());
    EXPECT_EQ(again.cause(), "cause");
    const std::pair<std::function<void()>, std::string> failures[] = {
        {[&] { throw error; }, "-8|source|text"},
        {[] { throw FileError(FileErrorKind::not_found, 2, "gone"); }, "53|Korvane|gone"},
        {[] { throw std::bad_alloc(); }, "7|Korvane|Out of memory"},
        {[] { throw std::out_of_range("bad"); }, "51|Korvane|bad"},
        {[] { throw 5; }, "51|Korvane|Internal error"},
    };
    for (const auto& row : failures) {
        const std::string& expected = row.second;
        const std::string number = expected.substr(0, expected.find('|'));
        const std::string text = expected.substr(expected.rfind('|') + 1);
        const std::string named = "Error[" + number + "] in Inner(): " + text;
        const auto trace_of = [&](const std::string& line) { return Lines{"> Inner", "Inner: " + line, "< Inner"}; };
        const auto replace = [](TraceObj&, RoutineName, const Error&) { throw Error(-901, "other", "replaced"); };
        const auto number_of = [](TraceObj&, RoutineName, const Error& error) { return error.number(); };
        const auto fail = [&row]() -> std::int32_t { return row.first(), 0; };

        Traced again, silent, odd, ended, replaced, result;
        EXPECT_EQ(raised([&] { routine(again.trace, {"Inner"}, row.first); }), expected);
        EXPECT_EQ(again.lines(), trace_of(named));
        EXPECT_EQ(again.error_line, named);
        EXPECT_EQ(raised([&] { routine(silent.trace, {"Inner"}, no_line, row.first); }), expected);
        EXPECT_EQ(silent.lines(), (Lines{"> Inner", "< Inner"}));
        EXPECT_EQ(raised([&] { routine(odd.trace, {"Inner"}, ErrorLine{"e ", " -> ", "!"}, row.first); }), expected);
        EXPECT_EQ(odd.lines(), trace_of("e " + number + " -> " + text + "!"));
        routine(ended.trace, {"Inner"}, swallowed_after(NamedLine{"error"}), row.first);
        EXPECT_EQ(ended.error_line, "e" + named.substr(1));
        EXPECT_EQ(raised([&] { routine(replaced.trace, {"Inner"}, replace, row.first); }), "-901|other|replaced");
        EXPECT_EQ(std::to_string(routine(result.trace, {"Inner"}, number_of, fail)), number);
    }
}

TEST(Routine, FailureOfTheTracerIsOneOfTheRoutineExceptAtTheExitAndNeverPassesOneThatSwallows) {
    for (const std::string call : {"create", "entry", "print", "exit"}) {
        Traced traced;
        traced.tracers->record->failing = call;
        EXPECT_EQ(raised([&] { routine(traced.trace, {"Inner"}, [](TraceObj& record) { record.TR_PRINT("x"); }); }),
                  call == "exit" ? "no error" : "-99|Tracer|" + call);
        traced.error_line.clear();
        routine(traced.trace, {"Inner"}, swallowed_after(NamedLine{"error"}), [] { throw Error(-5, "", "text"); });
        EXPECT_EQ(traced.error_line, call == "create" || call == "entry" ? "error[-99] in Inner(): " + call
                                                                         : "error[-5] in Inner(): text");
        traced.tracers->record->failing.clear();
        traced.tracers->record->lines.clear();
        TraceObj(traced.trace).TR_PRINT("after");
        EXPECT_EQ(traced.lines(), Lines{": after"}) << "the routine is still on the stack after " << call;
    }
}

TEST(LazyInstrument, IsMadeOnceAtTheFirstUseAndKeepsItsFailure) {
    const auto layer = std::make_shared<ScriptedLayer>();
    const LazyInstrument healthy(layer), faulty(layer);
    EXPECT_EQ(layer->state->calls, 0);
    EXPECT_EQ(&*healthy, &*healthy);
    layer->state->fault_at = 2;
    for (int use = 0; use < 2; ++use) EXPECT_EQ(raised([&] { *faulty; }), "-4711|Instrument|scripted fault");
    EXPECT_EQ(layer->state->calls, 2);
}

}  // namespace
}  // namespace korvane
