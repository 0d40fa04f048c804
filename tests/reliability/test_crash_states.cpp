// After a crash at any point of a save the file is the complete old or the complete new document.
#include <gtest/gtest.h>

#include "platform/xml_document.h"
#include "reliability/store_operations.h"

namespace korvane {
namespace {

TEST(CrashDuringSave, LeavesTheOldOrTheNewFileWhateverWasFlushed) {
    int states = 0, old_states = 0, new_states = 0;
    for (const StoreOperation& operation : store_operations())
        for (std::size_t size : {0u, 10u, 1000u, 100000u}) {
            StoreOperation sized = operation;
            sized.content.insert(sized.content.rfind("</"), "<!--" + std::string(size, 'x') + "-->");
            StoreTry attempt(sized);
            std::vector<MemoryDisk::Image> images;
            const auto note_images = [&] {
                for (auto& image : attempt.world.disk->crash_images(16)) images.push_back(std::move(image));
            };
            attempt.world.disk->before_operation = [&](const std::string&) { note_images(); };
            attempt.save();
            note_images();
            const std::string saved = *attempt.world.disk->content(attempt.path);
            ASSERT_NE(saved, sized.content);
            for (const auto& image : images) {
                ++states;
                const auto file = image.find(attempt.path);
                ASSERT_NE(file, image.end()) << operation.name << ": the file is gone";
                ASSERT_TRUE(file->second == sized.content || file->second == saved)
                    << operation.name << ": neither old nor new, " << file->second.size() << " bytes";
                ++(file->second == saved ? new_states : old_states);
            }
            for (const auto& image : attempt.world.disk->crash_images(16))
                ASSERT_EQ(image.at(attempt.path), saved) << operation.name << ": a finished save is not yet sure";
        }
    std::cout << states << " states: " << old_states << " old, " << new_states << " new\n";
    EXPECT_GT(states, 1000);
    EXPECT_GT(new_states, 100);
}

}  // namespace
}  // namespace korvane
