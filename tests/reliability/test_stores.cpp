// Saves that crash or fail at any place, and the stores against a plain map.
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <random>

#include "korvane/abort_helper.h"
#include "korvane/cal_mass_list.h"
#include "korvane/tune_globals.h"
#include "korvane/tune_params_xml.h"
#include "korvane/tune_prefs_xml.h"
#include "support/memory_platform.h"

namespace korvane {
namespace {

/// An operation that saves a file; every promise about saving is tried on each of them.
struct StoreOperation {
    std::string name;
    std::string file;     // below the base folder
    std::string content;  // before the save
    /// Makes the object on the platform and whatever has to come before the save; returns the save.
    std::function<std::function<void()>(const Platform&, const std::string& path)> prepare;
    /// Number that a save failing for good is reported with.
    std::int32_t number = error_number::file_or_element;
};

template <class Store, class Save>
auto saved_by(Save save) {
    return [save](const Platform& platform, const std::string&) -> std::function<void()> {
        return [save, store = std::make_shared<Store>(platform)] { save(*store); };
    };
}

std::function<void()> saved_mass_list(const Platform& platform, const std::string& path) {
    auto list = std::make_shared<CalMassList>(platform);
    list->OpenMassListFile(path);
    list->UpdateMassList("ESI", "Positive", "1\t118.0863\n0\t322.0481");
    return [list, path] { list->SaveMassListToFile(path); };
}

std::vector<StoreOperation> store_operations() {
    const std::string preferences = "<TunePreferences><AbortFlag>0</AbortFlag><Name>old</Name></TunePreferences>";
    const std::string parameters =
        "<?xml version=\"1.0\"?>\r\n<QTOFTuneParams>\r\n\t<!-- Limits & gains -->\r\n <TOF><AutotuneParameters>"
        "<Calibration><A>1.5</A><B/></Calibration></AutotuneParameters></TOF>\r\n</QTOFTuneParams>";
    const std::string masses =
        "<QTOF_MassListConfiguration>\n  <Configuration IonSource='ESI' IonPolarity='Positive'>\n    <MassList>\n"
        "      <mass Used='1'>158.9640</mass>\n    </MassList>\n  </Configuration>\n</QTOF_MassListConfiguration>\n";
    return {{"write parameter", "TuneParams.xml", parameters,
             saved_by<clsTuneParamsXML>([](auto& store) { store.WriteTuneParamValue("Calibration", "A", "27182.8"); })},
            {"write preference", "TunePreferences.xml", preferences,
             saved_by<clsTunePrefsXML>([](auto& store) { store.WriteTunePreference("Name", "new & longer"); })},
            {"trigger abort", "TunePreferences.xml", preferences,
             saved_by<AbortHelper>([](auto& helper) { helper.TriggerAbort(); })},
            {"save mass list", "masses.xml", masses, saved_mass_list, error_number::routine_detected}};
}

/// One try of an operation on a disk of its own. Every try has a folder of its own, because leftovers are looked for
/// once a process and target.
struct StoreTry {
    explicit StoreTry(const StoreOperation& operation)
        : folder("/base" + std::to_string(++tries) + "/"), world(folder), path(folder + operation.file) {
        world.disk->put(path, operation.content);
        save = operation.prepare(world.platform(), path);
        world.disk->operations = 0;
    }
    std::string content() const { return *world.disk->content(path); }

    static inline int tries = 0;
    std::string folder;
    MemoryPlatform world;
    std::string path;
    std::function<void()> save;
};

TEST(CrashDuringSave, LeavesTheOldOrTheNewFileWhateverWasFlushed) {
    int states = 0, new_states = 0;
    for (const StoreOperation& operation : store_operations())
        for (std::size_t size : {0U, 10U, 1000U, 100000U}) {
            StoreOperation sized = operation;
            sized.content.insert(sized.content.rfind("</"), "<!--" + std::string(size, 'x') + "-->");
            StoreTry attempt(sized);
            MemoryDisk& disk = *attempt.world.disk;
            std::vector<MemoryDisk::Image> images;
            const auto note_images = [&] {
                for (auto& image : disk.crash_images(16)) images.push_back(std::move(image));
            };
            disk.before_operation = [&](const std::string&) { note_images(); };
            attempt.save();
            note_images();
            const std::string saved = attempt.content();
            ASSERT_NE(saved, sized.content);
            for (const auto& image : images) {
                const auto file = image.find(attempt.path);
                ASSERT_NE(file, image.end()) << operation.name << ": the file is gone";
                ASSERT_TRUE(file->second == sized.content || file->second == saved)
                    << operation.name << ": neither old nor new, " << file->second.size() << " bytes";
                ++states;
                new_states += file->second == saved;
            }
            for (const auto& image : disk.crash_images(16))
                ASSERT_EQ(image.at(attempt.path), saved) << operation.name << ": a finished save is not yet sure";
        }
    std::cout << states << " states: " << states - new_states << " old, " << new_states << " new\n";
    EXPECT_GT(states, 1000);
    EXPECT_GT(new_states, 100);
}

// A file operation that fails, at every place, once and from then on, in every kind: reported once or retried away, and
// the old file is intact.

void expect_old_or_saved(const StoreOperation& operation, const std::string& saved, const MemoryDisk::Fault& fault) {
    StoreTry attempt(operation);
    MemoryDisk& disk = *attempt.world.disk;
    disk.fault = fault;
    bool failed = false;
    try {
        attempt.save();
    } catch (const Error& error) {
        failed = true;
        EXPECT_TRUE(error.number() == operation.number || error.number() == error_number::preferences_unavailable)
            << error.number() << " " << error.description();
        EXPECT_FALSE(error.description().empty());
    }
    disk.fault.reset();
    EXPECT_EQ(disk.open_files, 0) << "a file stays open";
    const std::string now = attempt.content();
    EXPECT_TRUE(now == saved || (failed && now == operation.content)) << "damaged, or neither saved nor reported";
    for (const std::string& path : disk.paths())
        EXPECT_TRUE(fault.stays || path.find(".tmp") == std::string::npos) << "a temporary file stays: " << path;
}

TEST(FailedFileOperation, IsReportedOnceAndLeavesTheOldFile) {
    using enum FileErrorKind;
    for (const StoreOperation& operation : store_operations()) {
        StoreTry undisturbed(operation);
        undisturbed.save();
        const int operations = undisturbed.world.disk->operations;
        ASSERT_GT(operations, 4);
        for (const FileErrorKind kind : {no_space, access_denied, sharing_violation, input_output})
            for (const bool short_write : {false, true})
                for (int at = 1; at <= operations && (!short_write || kind == no_space); ++at)
                    for (const bool stays : {false, true}) {
                        SCOPED_TRACE(operation.name + ", kind " + std::to_string(static_cast<int>(kind)) +
                                     (short_write ? ", short write" : "") + " at operation " + std::to_string(at) +
                                     (stays ? " and after" : " once"));
                        expect_old_or_saved(operation, undisturbed.content(), {at, stays, kind, short_write});
                    }
    }
}

TEST(FailedFileOperation, OfALogIsSwallowedIntoTheErrorText) {
    using Writer = void (TuneGlobals::*)(const std::string&);
    const std::pair<std::string, Writer> writers[] = {
        {"WriteLineToTuneLogFile", &TuneGlobals::WriteLineToTuneLogFile},
        {"WriteLineToTuneErrorLogFile", &TuneGlobals::WriteLineToTuneErrorLogFile},
        {"WriteLineToSetpointLogFile", &TuneGlobals::WriteLineToSetpointLogFile}};
    for (const auto& [name, writer] : writers)
        for (int at = 1; at <= 8; ++at)
            for (bool stays : {false, true}) {
                SCOPED_TRACE(name + " at operation " + std::to_string(at));
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
                const std::string text = globals.ErrorMsgString();
                if (failed && stays) {
                    EXPECT_TRUE(text.starts_with("error[")) << text;
                    EXPECT_NE(text.find("] in " + name + "(): "), std::string::npos) << text;
                } else if (!failed) {
                    EXPECT_EQ(text, "");
                }
                world.disk->fault.reset();
                (globals.*writer)("after");
                bool written = false;
                for (const std::string& path : world.disk->paths())
                    written |= world.disk->content(path)->find("after") != std::string::npos;
                EXPECT_TRUE(written) << "the log does not recover";
            }
}

// Random reads, writes, reloads and edits from outside over two instances.

using Values = std::map<std::string, std::string>;

std::string preferences_document(const Values& values) {
    static const std::map<char, std::string> escapes{{'<', "&lt;"}, {'&', "&amp;"}, {'>', "&gt;"}};
    std::string xml = "<TunePreferences>\n";
    for (const auto& [name, value] : values) {
        xml += "  <" + name + ">";
        for (const char c : value) xml += escapes.contains(c) ? escapes.at(c) : std::string(1, c);
        xml += "</" + name + ">\n";
    }
    return xml + "</TunePreferences>\n";
}

/// A store and what it has to answer from: the copy of its last load, if any.
struct Client {
    clsTunePrefsXML store;
    std::optional<Values> copy = {};
};

class StoreSequence {
public:
    explicit StoreSequence(unsigned seed) : random_(seed) { put(); }

    void step() {
        static const std::string texts[] = {
            "0", "1", "Yes", "", " ", "12.5", "a<b&c>d", "\"quoted'", "\xc3\xa4\xe2\x82\xac", "]]>"};
        auto& [store, copy] = clients_[random_() % 2];
        const auto named = std::next(file_.begin(), static_cast<long>(random_() % file_.size()));
        const std::string name = named->first, text = texts[random_() % std::size(texts)];
        const unsigned kind = random_() % 5;
        if (kind == 0 || (kind < 4 && !copy)) copy = file_;
        if (kind <= 1) {
            ASSERT_EQ(store.GetTunePreference(name, kind == 0), copy->at(name)) << name;
        } else if (kind == 2) {
            named->second = text;
            copy = file_;
            store.WriteTunePreference(name, text);
            ASSERT_EQ(clsTunePrefsXML(world_.platform()).GetTunePreference(name), text);
            ASSERT_EQ(*world_.disk->content("/base/TunePreferences.xml"), preferences_document(file_));
        } else if (kind == 3) {
            ASSERT_THROW(store.GetTunePreference("Missing"), Error);
        }
        if (kind < 4) return;
        named->second = text;
        put();
    }

private:
    void put() { world_.disk->put("/base/TunePreferences.xml", preferences_document(file_)); }

    std::mt19937 random_;
    MemoryPlatform world_;
    Values file_{{"AbortFlag", "0"}, {"Mode", "0"}, {"Limit", "0"}};
    Client clients_[2]{{clsTunePrefsXML(world_.platform())}, {clsTunePrefsXML(world_.platform())}};
};

TEST(StoresAgainstAMap, AgreeOverTenThousandRandomSequences) {
    for (unsigned seed = 1; seed <= 10000; ++seed) {
        StoreSequence sequence(seed);
        for (int step = 0; step < 12; ++step) {
            sequence.step();
            ASSERT_FALSE(HasFatalFailure()) << "seed " << seed << ", step " << step;
        }
    }
}

}  // namespace
}  // namespace korvane
