// Saves of files that others hold open or have marked.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>

#include "korvane/forwarding.h"
#include "korvane/tune_prefs_xml.h"
#include "platform/files.h"
#include "platform/windows_text.h"
#include "support/raised.h"
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

/// A clock in whose n-th sleep something happens.
struct ClockWithAnEvent final : ForwardingClock {
    ClockWithAnEvent(int at, std::function<void()> event)
        : ForwardingClock(std::make_shared<VirtualClock>()), event_at(at), happens(std::move(event)) {}
    void sleep_milliseconds(int milliseconds) override {
        target().sleep_milliseconds(milliseconds);
        if (++sleeps == event_at) happens();
    }
    int sleeps = 0, event_at;
    std::function<void()> happens;
};

// Whoever reads along without letting the file be replaced stops the last step of the save, and nothing before it.
TEST(HeldFiles, AreTriedThreeTimesAndKeepTheOldContentOrGetTheNewOneOnceTheyAreLetGo) {
    TestPlatform test;
    test.preference("Mode", "old");
    const std::string path = (test.base() / "TunePreferences.xml").string(), old_bytes = read_text(path);
    const std::string start = "-904|AutotuneParameterXMLConfigFileReader|TunePrefsXML: Failed to load XML file: ";
    const std::string unavailable = "-901|AutotuneParameterXMLConfigFileReader|TunePreferences XML file doesn't exist";
    struct Row {
        DWORD share;
        int let_go_at;
        std::string error;
    };
    for (const Row& row :
         {Row{FILE_SHARE_READ, 9, start + path + "; parseError[0]"}, Row{share_nothing, 9, unavailable},
          Row{FILE_SHARE_READ, 1, "no error"}, Row{FILE_SHARE_READ, 2, "no error"}}) {
        auto held = held_file(path, row.share);
        const auto clock = std::make_shared<ClockWithAnEvent>(row.let_go_at, [&] { held.reset(); });
        Platform platform = test.platform();
        platform.clock = clock;
        EXPECT_EQ(raised([&] { clsTunePrefsXML(platform).WriteTunePreference("Mode", "new"); }), row.error);
        EXPECT_EQ(clock->sleeps, std::min(row.let_go_at, 2));
        held.reset();
        const std::string bytes = read_text(path);
        EXPECT_EQ(row.error == "no error", bytes.find("<Mode>new</Mode>") != std::string::npos) << bytes;
        EXPECT_TRUE(row.error == "no error" || bytes == old_bytes);
        for (const auto& entry : std::filesystem::directory_iterator(test.base()))
            EXPECT_NE(entry.path().extension(), ".tmp") << entry.path();
    }
}

TEST(HeldFiles, AreSharingViolationsNamingTheFile) {
    const TemporaryFolder folder;
    const std::string path = folder.file("d.xml");
    write_text(path, "old");
    const auto held = held_file(path, share_nothing);
    try {
        safe_save(*make_system_files(), path, "new");
        FAIL() << "a file that is not shared";
    } catch (const FileError& fault) {
        EXPECT_EQ(fault.runtime_error_number(), 70) << fault.what();
        EXPECT_NE(std::string(fault.what()).find(path), std::string::npos) << fault.what();
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
