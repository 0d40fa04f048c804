// Saves of files that others hold open or have marked.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <thread>

#include "korvane/tune_params_xml.h"
#include "korvane/tune_prefs_xml.h"
#include "platform/safe_save.h"
#include "platform/windows_text.h"
#include "support/child_process.h"
#include "support/raised.h"
#include "support/test_platform.h"

namespace korvane {
namespace {

constexpr DWORD share_nothing = 0;

/// The file in the hands of this process or of another one.
class HeldFile {
public:
    HeldFile(const std::string& path, DWORD share, bool by_another_process) {
        if (!by_another_process) {
            handle_ = CreateFileW(utf16_from_utf8(path).c_str(), GENERIC_READ, share, nullptr, OPEN_EXISTING,
                                  FILE_ATTRIBUTE_NORMAL, nullptr);
            EXPECT_NE(handle_, INVALID_HANDLE_VALUE);
            return;
        }
        const std::string marker = folder_.file("held");
        child_ = std::make_unique<ChildProcess>(
            std::vector<std::string>{KORVANE_WINDOWS_CHILD, "hold", path, std::to_string(share), marker},
            folder_.file("child"));
        while (!std::filesystem::exists(marker)) {
            if (!child_->is_running()) throw std::runtime_error("the other process did not get the file");
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }
    ~HeldFile() {
        if (handle_ != INVALID_HANDLE_VALUE) CloseHandle(handle_);
    }
    HeldFile(const HeldFile&) = delete;
    HeldFile& operator=(const HeldFile&) = delete;

private:
    TemporaryFolder folder_;
    HANDLE handle_ = INVALID_HANDLE_VALUE;
    std::unique_ptr<ChildProcess> child_;
};

/// A clock in whose n-th sleep something happens.
class ClockWithAnEvent final : public Clock {
public:
    ClockWithAnEvent(int at, std::function<void()> event) : at_(at), event_(std::move(event)) {}
    double seconds_since_midnight() override { return target_.seconds_since_midnight(); }
    LocalTime now() override { return target_.now(); }
    void sleep_milliseconds(int milliseconds) override {
        target_.sleep_milliseconds(milliseconds);
        if (target_.sleeps == at_) event_();
    }
    void process_pending_events() override {}
    int sleeps() const { return target_.sleeps; }

private:
    VirtualClock target_;
    int at_;
    std::function<void()> event_;
};

class HeldFiles : public testing::TestWithParam<bool> {
protected:
    HeldFiles() { test.preference("Mode", "old"); }

    std::string path() const { return (test.base() / "TunePreferences.xml").string(); }
    std::ptrdiff_t retries() {
        return std::ranges::count_if(test.trace().lines, [](const std::string& line) {
            return line.ends_with("XML load failed; parseError[0]");
        });
    }
    void expect_no_litter() {
        for (const auto& entry : std::filesystem::directory_iterator(test.base()))
            EXPECT_NE(entry.path().extension(), ".tmp") << entry.path();
    }

    TestPlatform test;
};

// Whoever reads along without letting the file be replaced stops the last step of the save, and nothing before it.
TEST_P(HeldFiles, ThreeAttemptsThenTheErrorAndTheOldFile) {
    const std::string old_bytes = read_text(path());
    clsTunePrefsXML store(test.platform());
    {
        const HeldFile held(path(), FILE_SHARE_READ, GetParam());
        EXPECT_EQ(raised([&] { store.WriteTunePreference("Mode", "new"); }),
                  "-904|AutotuneParameterXMLConfigFileReader|TunePrefsXML: Failed to load XML file: " + path() +
                      "; parseError[0]");
        EXPECT_EQ(retries(), 2);
        EXPECT_EQ(test.clock->sleeps, 2);
        EXPECT_EQ(read_text(path()), old_bytes);
        expect_no_litter();
    }
    store.WriteTunePreference("Mode", "new");
    EXPECT_NE(read_text(path()).find("<Mode>new</Mode>"), std::string::npos);
    expect_no_litter();
}

TEST_P(HeldFiles, AFileLetGoBetweenAttemptsIsSaved) {
    for (const int at : {1, 2}) {
        auto held = std::make_unique<HeldFile>(path(), FILE_SHARE_READ, GetParam());
        const auto clock = std::make_shared<ClockWithAnEvent>(at, [&] { held.reset(); });
        Platform platform = test.platform();
        platform.clock = clock;
        test.trace().lines.clear();
        const std::string value = "saved at attempt " + std::to_string(at + 1);
        clsTunePrefsXML(platform).WriteTunePreference("Mode", value);
        EXPECT_EQ(clock->sleeps(), at);
        EXPECT_EQ(retries(), at);
        EXPECT_NE(read_text(path()).find("<Mode>" + value + "</Mode>"), std::string::npos);
        expect_no_litter();
    }
}

TEST_P(HeldFiles, AFileThatCannotEvenBeReadIsRefusedAfterThreeAttempts) {
    const std::string old_bytes = read_text(path());
    {
        const HeldFile held(path(), share_nothing, GetParam());
        EXPECT_EQ(raised([&] { clsTunePrefsXML(test.platform()).WriteTunePreference("Mode", "new"); }),
                  "-901|AutotuneParameterXMLConfigFileReader|TunePreferences XML file doesn't exist");
        EXPECT_EQ(test.clock->sleeps, 2);
    }
    EXPECT_EQ(read_text(path()), old_bytes);
}

INSTANTIATE_TEST_SUITE_P(By, HeldFiles, testing::Bool(),
                         [](const auto& by) { return by.param ? "AnotherProcess" : "ThisProcess"; });

TEST(HeldFile, TheFaultIsASharingViolationOrADenialNamingTheFile) {
    const TemporaryFolder folder;
    const std::string path = folder.file("d.xml");
    write_text(path, "old");
    const auto files = make_system_files();
    {
        const HeldFile held(path, share_nothing, false);
        try {
            std::string bytes;
            files->read(path, bytes);
            FAIL() << "read a file that is not shared";
        } catch (const FileError& fault) {
            EXPECT_EQ(fault.kind(), FileErrorKind::sharing_violation);
            EXPECT_NE(std::string(fault.what()).find(path), std::string::npos) << fault.what();
        }
        try {
            safe_save(*files, path, "new");
            FAIL() << "replaced a file that is not shared";
        } catch (const FileError& fault) {
            EXPECT_EQ(fault.runtime_error_number(), 70) << fault.what();
        }
    }
    EXPECT_EQ(read_text(path), "old");
    EXPECT_EQ(files->list(folder.path().string()), std::vector<std::string>{"d.xml"});
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
