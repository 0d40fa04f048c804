// Saves of files that others hold open or have marked.
#include <gtest/gtest.h>

#include <functional>
#include <memory>

#include "platform/files.h"
#include "platform/windows_text.h"
#include "support/test_platform.h"

namespace korvane {
namespace {

constexpr DWORD share_nothing = 0;

/// A handle to the file, which keeps others from what it does not share.
std::shared_ptr<void> held_file(const std::string& path, DWORD share) {
    const HANDLE handle = CreateFileW(utf16_from_utf8(path).c_str(), GENERIC_READ, share, nullptr, OPEN_EXISTING,
                                      FILE_ATTRIBUTE_NORMAL, nullptr);
    EXPECT_NE(handle, INVALID_HANDLE_VALUE);
    return {handle, CloseHandle};
}

// Whoever reads along without letting the file be replaced stops the last step of the save, and nothing before it.
TEST(HeldFiles, AreDeniedByNameAndLeaveTheOldContentAndNoLitterUntilTheyAreLetGo) {
    const TemporaryFolder folder;
    const std::string path = folder.file("d.xml");
    const auto files = make_system_files();
    std::string bytes;
    const std::function<void()> read = [&] { files->read(path, bytes); };
    const std::function<void()> save = [&] { safe_save(*files, path, "new"); };
    for (const auto& [share, refused] :
         {std::pair{share_nothing, read}, {share_nothing, save}, {DWORD{FILE_SHARE_READ}, save}}) {
        write_text(path, "old");
        auto held = held_file(path, share);
        try {
            refused();
            ADD_FAILURE() << "of a file that is held";
        } catch (const FileError& fault) {
            EXPECT_EQ(fault.runtime_error_number(), 70) << fault.what();
            EXPECT_NE(std::string(fault.what()).find(path), std::string::npos) << fault.what();
        }
        held.reset();
        EXPECT_EQ(read_text(path), "old");
        EXPECT_EQ(files->list(folder.path().string()), std::vector<std::string>{"d.xml"});
        save();
        EXPECT_EQ(read_text(path), "new");
    }
}

TEST(Attributes, ReadOnlyIsTheAttributeAndOthersStayThroughASave) {
    const TemporaryFolder folder;
    const std::string path = folder.file("d.xml");
    const std::wstring wide = utf16_from_utf8(path);
    write_text(path, "old");
    const auto files = make_system_files();
    constexpr DWORD kept = FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;
    ASSERT_TRUE(SetFileAttributesW(wide.c_str(), kept | FILE_ATTRIBUTE_READONLY));
    EXPECT_TRUE(files->status(path).read_only);
    files->clear_read_only(path);
    EXPECT_FALSE(files->status(path).read_only);
    EXPECT_EQ(GetFileAttributesW(wide.c_str()) & (kept | FILE_ATTRIBUTE_READONLY), kept);
    safe_save(*files, path, "new");
    EXPECT_EQ(GetFileAttributesW(wide.c_str()) & kept, kept);
    EXPECT_EQ(read_text(path), "new");
}

}  // namespace
}  // namespace korvane
