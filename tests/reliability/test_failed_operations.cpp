// A file operation that fails, at every place, once and from then on, in every kind: reported once or retried away, and
// the old file is intact.
#include <gtest/gtest.h>

#include "korvane/tune_globals.h"
#include "reliability/store_operations.h"

namespace korvane {
namespace {

struct Kind {
    const char* name;
    FileErrorKind kind;
    bool short_write = false;
};
constexpr Kind kinds[] = {{"no space", FileErrorKind::no_space},
                          {"access denied", FileErrorKind::access_denied},
                          {"sharing violation", FileErrorKind::sharing_violation},
                          {"short write", FileErrorKind::no_space, true},
                          {"input/output", FileErrorKind::input_output}};

int operations_of(const StoreOperation& operation) {
    StoreTry attempt(operation);
    attempt.save();
    return attempt.world.disk->operations;
}

void check_try(const StoreOperation& operation, const Kind& kind, int at, bool stays) {
    SCOPED_TRACE(operation.name + ", " + kind.name + " at operation " + std::to_string(at) +
                 (stays ? " and after" : " once"));
    StoreTry undisturbed(operation);
    undisturbed.save();
    const std::string saved = *undisturbed.world.disk->content(undisturbed.path);

    StoreTry attempt(operation);
    MemoryDisk& disk = *attempt.world.disk;
    disk.fault = MemoryDisk::Fault{at, stays, kind.kind, kind.short_write};
    int errors = 0;
    try {
        attempt.save();
    } catch (const Error& error) {
        ++errors;
        EXPECT_TRUE(error.number() == operation.number || error.number() == error_number::preferences_unavailable)
            << error.number() << " " << error.description();
        EXPECT_FALSE(error.description().empty());
    }
    disk.fault.reset();
    EXPECT_EQ(disk.open_files, 0) << "a file stays open";
    const std::string now = *disk.content(attempt.path);
    if (errors == 0) {
        EXPECT_EQ(now, saved) << "neither saved nor reported";
    } else {
        EXPECT_TRUE(now == operation.content || now == saved) << "the file is damaged";
    }
    if (!stays) {
        for (const std::string& path : disk.paths())
            EXPECT_EQ(path.find(".tmp"), std::string::npos) << "a temporary file stays: " << path;
    }
}

TEST(FailedFileOperation, IsReportedOnceAndLeavesTheOldFile) {
    for (const StoreOperation& operation : store_operations()) {
        const int operations = operations_of(operation);
        ASSERT_GT(operations, 4);
        for (const Kind& kind : kinds)
            for (int at = 1; at <= operations; ++at)
                for (bool stays : {false, true}) check_try(operation, kind, at, stays);
    }
}

TEST(FailedFileOperation, OfALogIsSwallowedIntoTheErrorText) {
    using Writer = void (TuneGlobals::*)(const std::string&);
    const std::pair<const char*, Writer> writers[] = {
        {"WriteLineToTuneLogFile", &TuneGlobals::WriteLineToTuneLogFile},
        {"WriteLineToTuneErrorLogFile", &TuneGlobals::WriteLineToTuneErrorLogFile},
        {"WriteLineToSetpointLogFile", &TuneGlobals::WriteLineToSetpointLogFile}};
    for (const auto& [name, writer] : writers)
        for (int at = 1; at <= 8; ++at)
            for (bool stays : {false, true}) {
                SCOPED_TRACE(std::string(name) + " at operation " + std::to_string(at));
                MemoryPlatform world;
                world.disk->put("/base/Logfiles/kept.txt", "");
                world.disk->put("/base/TunePreferences.xml",
                                "<TunePreferences><LogSetpointTraffic>Yes</LogSetpointTraffic></TunePreferences>");
                world.disk->put("/base/TuneParams.xml", "<QTOFTuneParams/>");
                TuneGlobals globals(world.platform());
                world.disk->operations = 0;
                world.disk->fault = MemoryDisk::Fault{at, stays, FileErrorKind::no_space};
                EXPECT_NO_THROW((globals.*writer)("message"));
                const bool failed = world.disk->operations >= at;
                const std::string start = "error[", routine = std::string("] in ") + name + "(): ";
                if (failed && stays) {
                    EXPECT_TRUE(globals.ErrorMsgString().starts_with(start)) << globals.ErrorMsgString();
                    EXPECT_NE(globals.ErrorMsgString().find(routine), std::string::npos) << globals.ErrorMsgString();
                } else if (!failed) {
                    EXPECT_EQ(globals.ErrorMsgString(), "");
                }
                world.disk->fault.reset();
                (globals.*writer)("after");
                bool written = false;
                for (const std::string& path : world.disk->paths())
                    written |= world.disk->content(path)->find("after") != std::string::npos;
                EXPECT_TRUE(written) << "the log does not recover";
            }
}

}  // namespace
}  // namespace korvane
