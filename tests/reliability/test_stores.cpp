// Saves that crash or fail at any place.
#include <gtest/gtest.h>

#include <functional>

#include "korvane/cal_mass_list.h"
#include "korvane/tune_params_xml.h"
#include "korvane/tune_prefs_xml.h"
#include "support/raised.h"
#include "support/test_platform.h"

namespace korvane {
namespace {

/// An operation that saves a file; every promise about saving is tried on each of them.
struct StoreOperation {
    std::string name;
    std::string file;     // below the base folder
    std::string content;  // before the save
    std::function<void(const Platform&, const std::string& path)> save;
    /// Number that a save failing for good is reported with.
    std::int32_t number = error_number::file_or_element;
};

std::vector<StoreOperation> store_operations() {
    const std::string preferences = "<TunePreferences><Name>old</Name></TunePreferences>";
    const std::string parameters =
        "<?xml version=\"1.0\"?>\r\n<QTOFTuneParams>\r\n\t<!-- Limits & gains -->\r\n <TOF><AutotuneParameters>"
        "<Calibration><A>1.5</A><B/></Calibration></AutotuneParameters></TOF>\r\n</QTOFTuneParams>";
    const std::string masses =
        "<QTOF_MassListConfiguration>\n  <Configuration IonSource='ESI' IonPolarity='Positive'>\n    <MassList>\n"
        "      <mass Used='1'>158.9640</mass>\n    </MassList>\n  </Configuration>\n</QTOF_MassListConfiguration>\n";
    return {{"write parameter", "TuneParams.xml", parameters,
             [](const Platform& platform, auto&) {
                 clsTuneParamsXML(platform).WriteTuneParamValue("Calibration", "A", "27182.8");
             }},
            {"write preference", "TunePreferences.xml", preferences,
             [](const Platform& platform, auto&) {
                 clsTunePrefsXML(platform).WriteTunePreference("Name", "new & longer");
             }},
            {"save mass list", "masses.xml", masses,
             [](const Platform& platform, const std::string& path) {
                 CalMassList list(platform);
                 list.OpenMassListFile(path);
                 list.UpdateMassList("ESI", "Positive", "1\t118.0863\n0\t322.0481");
                 list.SaveMassListToFile(path);
             },
             error_number::routine_detected}};
}

/// One try of an operation on a disk of its own.
struct StoreTry {
    explicit StoreTry(const StoreOperation& tried) : operation(tried), path("/base/" + tried.file) {
        disk.put(path, operation.content);
    }
    void save() { operation.save(world.platform(), path); }
    std::string content() const { return *disk.content(path); }

    const StoreOperation& operation;
    MemoryPlatform world;
    MemoryDisk& disk = *world.disk;
    std::string path;
};

TEST(CrashDuringSave, LeavesTheOldOrTheNewFileWhateverWasFlushed) {
    int states = 0, new_states = 0;
    for (StoreOperation operation : store_operations())
        for (std::size_t size : {0U, 1000U, 100000U}) {
            operation.content.insert(operation.content.rfind("</"), "<!--" + std::string(size, 'x') + "-->");
            StoreTry attempt(operation);
            std::vector<MemoryDisk::Image> images;
            attempt.disk.before_operation = [&](const std::string&) {
                for (auto& image : attempt.disk.crash_images()) images.push_back(std::move(image));
            };
            attempt.save();
            const std::string saved = attempt.content();
            ASSERT_NE(saved, operation.content);
            for (const auto& image : images) {
                ASSERT_TRUE(image.contains(attempt.path)) << operation.name << ": the file is gone";
                const std::string& left = image.at(attempt.path);
                ASSERT_TRUE(left == operation.content || left == saved)
                    << operation.name << ": neither old nor new, " << left.size() << " bytes";
                ++states;
                new_states += left == saved;
            }
            for (const auto& image : attempt.disk.crash_images())
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
    attempt.disk.fault = fault;
    const auto error = raised_error([&] { attempt.save(); });
    if (error) {
        const std::int32_t of_system = FileError(fault.kind, 1, "").runtime_error_number();  // the read-only attribute
        EXPECT_TRUE(error->number() == operation.number || error->number() == error_number::preferences_unavailable ||
                    error->number() == of_system)
            << error->number() << " " << error->description();
        EXPECT_FALSE(error->description().empty());
    }
    attempt.disk.fault.reset();
    EXPECT_EQ(attempt.disk.open_files, 0) << "a file stays open";
    const std::string now = attempt.content();
    EXPECT_TRUE(now == saved || (error && now == operation.content)) << "damaged, or neither saved nor reported";
    for (const std::string& name : attempt.disk.list("/base"))
        EXPECT_TRUE(fault.stays || name.find(".tmp") == std::string::npos) << "a temporary file stays: " << name;
}

TEST(FailedFileOperation, IsReportedOnceAndLeavesTheOldFile) {
    using enum FileErrorKind;
    for (const StoreOperation& operation : store_operations()) {
        StoreTry undisturbed(operation);
        undisturbed.save();
        ASSERT_GT(undisturbed.disk.operations, 4);
        for (const FileErrorKind kind : {no_space, access_denied, sharing_violation, input_output})
            for (const bool short_write : {false, true})
                for (int at = 1; at <= undisturbed.disk.operations && (!short_write || kind == no_space); ++at)
                    for (const bool stays : {false, true}) {
                        SCOPED_TRACE(operation.name + ", kind " + std::to_string(static_cast<int>(kind)) +
                                     (short_write ? ", short write" : "") + " at operation " + std::to_string(at) +
                                     (stays ? " and after" : " once"));
                        expect_old_or_saved(operation, undisturbed.content(), {at, stays, kind, short_write});
                    }
    }
}

}  // namespace
}  // namespace korvane
