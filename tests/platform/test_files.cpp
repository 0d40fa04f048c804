#include "platform/files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#ifndef _WIN32
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>
#endif

#include <algorithm>
#include <filesystem>
#include <functional>
#include <map>

#include "platform/cases.h"
#include "support/memory_disk.h"
#include "support/test_platform.h"
#include "support/virtual_clock.h"

namespace korvane {
namespace {

namespace fs = std::filesystem;

class FilesTest : public testing::Test {
protected:
    template <class Operation>
    void expect_fault(FileErrorKind kind, const std::string& path, const Operation& operation) {
        try {
            operation();
            ADD_FAILURE() << "no fault for " << path;
        } catch (const FileError& fault) {
            EXPECT_EQ(fault.kind(), kind) << fault.what();
            EXPECT_NE(fault.system_code(), 0);
            EXPECT_NE(std::string(fault.what()).find("[" + path + "]"), std::string::npos) << fault.what();
        }
    }

    TemporaryFolder folder;
    std::shared_ptr<Files> files = make_system_files();
};

TEST_F(FilesTest, ReadGivesEveryByteWhateverTheBufferHeldAndRefusesTooManyBeforeTakingMemory) {
    std::string bytes;
    const std::string path = folder.file("f");
    for (const std::size_t size : {0UL, 1UL, 4095UL, 4096UL, 4097UL, 100UL, 70'000UL, 8192UL, 1'000'000UL, 0UL, 5UL}) {
        std::string content(size, '\0'), fresh;
        for (std::size_t i = 0; i < size; ++i) content[i] = static_cast<char>(i * 31 + i / 256);
        write_text(path, content);
        files->read(path, bytes);
        files->read(path, fresh);
        ASSERT_TRUE(bytes == content && fresh == content) << size;
    }
    fs::resize_file(path, (std::uintmax_t{1} << 30) + 1);
    std::string small;
    expect_fault(FileErrorKind::other, path, [&] { files->read(path, small); });
    EXPECT_LT(small.capacity(), 1U << 20);
}

TEST_F(FilesTest, StatusTellsFilesFoldersAndNothingAndListAllNamesButThePseudoNames) {
    const std::string named = "gr\xC3\xBC\xC3\x9F";
    for (const std::string& name : {std::string("f"), std::string(".hidden"), named})
        files->open_append(folder.file(name))->write("0");
    const auto first = files->open_append(folder.file("f")), second = files->open_append(folder.file("f"));
    for (int i = 1; i < 4; ++i) (i % 3 == 0 ? first : second)->write(std::to_string(i));
    EXPECT_EQ(read_text(folder.file("f")), "0123");
    auto names = files->list(folder.path().string());
    std::ranges::sort(names);
    EXPECT_EQ(names, (std::vector<std::string>{".hidden", "f", named}));
    EXPECT_TRUE(files->status(folder.file("f")).exists && !files->status(folder.file("f")).is_folder);
    EXPECT_TRUE(files->status(folder.path().string()).is_folder);
    for (const std::string name : {"none", "f/none", "none/none"})
        EXPECT_FALSE(files->status(folder.file(name)).exists) << name;
    const std::string separator(path_separator());
    EXPECT_EQ(join_path("", "b") + join_path("a", "b") + join_path("a" + separator, "b") + join_path("a/", "b"),
              "ba" + separator + "ba" + separator + "ba/b");
}

TEST_F(FilesTest, EveryFaultNamesTheFileAndItsKind) {
    const std::string none = folder.file("none"), inside = folder.file("none/f"), file = folder.file("f");
    write_text(file, "x");
    std::string bytes;
    using enum FileErrorKind;
    expect_fault(not_found, none, [&] { files->read(none, bytes); });
    expect_fault(not_found, none, [&] { files->clear_read_only(none); });
    expect_fault(not_found, none, [&] { files->remove(none); });
    expect_fault(folder_not_found, file, [&] { (void)files->list(file); });
    expect_fault(not_found, file, [&] { files->replace(none, file); });
    expect_fault(folder_not_found, inside, [&] { (void)files->open_append(inside); });
    expect_fault(folder_not_found, inside, [&] { (void)files->create_new(inside, inside); });
    expect_fault(other, file, [&] { (void)files->create_new(file, file); });
    EXPECT_EQ(read_text(file), "x");
#ifndef _WIN32
    expect_fault(not_found, none, [&] { files->flush_folder(none); });  // elsewhere a folder cannot be flushed
#endif
    const std::map<FileErrorKind, int> numbers{
        {not_found, 53}, {folder_not_found, 76}, {access_denied, 70}, {sharing_violation, 70},
        {no_space, 61},  {input_output, 57},     {other, 75}};
    for (const auto& [kind, number] : numbers) EXPECT_EQ(FileError(kind, 1, "").runtime_error_number(), number);
}

TEST(SafeSave, TellsAFolderThatCannotBeFlushed) {
    MemoryDisk disk;
    disk.before_operation = [&](const std::string& name) {
        if (name == "flush folder") disk.fault = MemoryDisk::Fault{disk.operations + 1};
    };
    EXPECT_THAT([&] { safe_save(disk, "/base/d.xml", "new"); },
                testing::ThrowsMessage<FileError>(testing::StartsWith("[/base/d.xml] was replaced")));
}

TEST_F(FilesTest, ASaveRemovesWhatNobodyHoldsAnyMoreAndNothingElse) {
    const std::string path = folder.file("d.xml"), start = ".d.xml.korvane-";
    const auto others = cases_in(start + "1.tmp.bak|.e.xml.korvane-1.tmp|d.xml.korvane-1.tmp|" + start + "held.tmp");
    for (const std::string& name : cases_in(start + "1.tmp|" + start + "12-34.tmp"))
        write_text(folder.file(name), "half");
    const auto held = files->create_new(folder.file(others.back()), path);
    for (const std::string& name : others)
        if (name != others.back()) files->open_append(folder.file(name));
    safe_save(*make_system_files(), path, "new");
    auto names = files->list(folder.path().string());
    std::erase(names, "d.xml");
    EXPECT_TRUE(std::ranges::is_permutation(names, others)) << testing::PrintToString(names);
}

TEST_F(FilesTest, ALockIsOneHoldersAndLeavesNoFile) {
    const std::string path = folder.file("d.xml"), name = folder.file(".d.xml.lock");
    const auto clock = std::make_shared<VirtualClock>();
    auto first = wait_for_edit_lock(*files, *clock, path);
    ASSERT_TRUE(first);
    EXPECT_FALSE(make_system_files()->try_lock(name));
    EXPECT_FALSE(wait_for_edit_lock(*files, *clock, path));
    EXPECT_NEAR(clock->total_seconds(), VirtualClock().total_seconds() + 1, 0.1);
    first.reset();
    EXPECT_TRUE(wait_for_edit_lock(*files, *clock, path));
    EXPECT_FALSE(wait_for_edit_lock(*files, *clock, folder.file("none/d.xml")));
    EXPECT_EQ(files->list(folder.path().string()), std::vector<std::string>());
}

#ifndef _WIN32
/// The exit code of a process of its own that runs `body`, which has to end in time.
int exit_code_of(const std::function<bool()>& body) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(20);
        _exit(body() ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

TEST_F(FilesTest, WhatIsNoRegularFileIsNeitherReadNorAppendedToNorReplaced) {
    const std::string pipe = folder.file("pipe"), link = folder.file("link"), sub = folder.file("folder");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    fs::create_symlink("pipe", link);
    fs::create_directory(sub);
    for (const std::string& path : {pipe, link, sub})
        EXPECT_EQ(exit_code_of([&] {
                      std::string bytes;
                      expect_fault(FileErrorKind::other, path, [&] { files->read(path, bytes); });
                      expect_fault(FileErrorKind::other, path, [&] { safe_save(*files, path, "x"); });
                      EXPECT_THROW(files->open_append(path), FileError);
                      return !HasFailure() && files->status(path).is_special == (path != sub);
                  }),
                  0)
            << path;
    EXPECT_TRUE(fs::is_fifo(pipe) && fs::is_symlink(link) && fs::is_directory(sub));
    // A log follows no link, not to a regular file either.
    write_text(folder.file("f"), "x");
    fs::remove(link);
    fs::create_symlink("f", link);
    expect_fault(FileErrorKind::other, link, [&] { files->open_append(link); });
}

TEST_F(FilesTest, FullDiskMissingRightsAndClosedStreamsEndNoProcessAndLeaveTheOldFile) {
    const std::string path = folder.file("d.xml");
    write_text(path, "old");
    EXPECT_EQ(exit_code_of([&] {
                  const rlimit most{1000, 1000};
                  signal(SIGXFSZ, SIG_IGN);
                  setrlimit(RLIMIT_FSIZE, &most);
                  expect_fault(FileErrorKind::no_space, path, [&] { safe_save(*files, path, std::string(5000, 'x')); });
                  return !HasFailure();
              }),
              0);
    fs::permissions(folder.path(), fs::perms(0555));
    EXPECT_EQ(exit_code_of([&] {
                  if (geteuid() == 0 && setuid(65534) != 0) return false;
                  const auto save = [&] { safe_save(*files, path, "new"); };
                  expect_fault(FileErrorKind::access_denied, path, save);
                  return !HasFailure();
              }),
              0);
    fs::permissions(folder.path(), fs::perms(0755));
    EXPECT_EQ(exit_code_of([&] {
                  close(STDIN_FILENO), close(STDERR_FILENO);
                  const auto file = files->open_append(path);
                  return fcntl(STDIN_FILENO, F_GETFD) < 0 && fcntl(STDERR_FILENO, F_GETFD) < 0;
              }),
              0);
    EXPECT_EQ(read_text(path), "old");
    EXPECT_EQ(files->list(folder.path().string()), std::vector<std::string>{"d.xml"});
    // A lock ends with its process.
    EXPECT_EQ(exit_code_of([&] {
                  const auto lock = files->try_lock(folder.file("lock"));
                  return lock && raise(SIGKILL) == 0;
              }),
              128 + SIGKILL);
    EXPECT_TRUE(files->try_lock(folder.file("lock")));
}

TEST_F(FilesTest, LinksAreFollowedToTheFileBehindThemAllAndKeptByASave) {
    fs::create_directories(folder.path() / "data/deep");
    fs::create_symlink(folder.path() / "data", folder.path() / "folder link");
    fs::create_symlink("folder link/second", folder.path() / "first");
    fs::create_symlink("deep/file.xml", folder.path() / "data/second");
    fs::create_symlink("loop", folder.path() / "loop");
    EXPECT_FALSE(files->status(folder.file("first")).exists);
    for (const std::string content : {"made through a dangling link", "replaced through it"}) {
        safe_save(*files, folder.file("first"), content);
        EXPECT_TRUE(fs::is_symlink(folder.path() / "first") && fs::is_symlink(folder.path() / "data/second"));
        EXPECT_EQ(read_text(folder.path() / "data/deep/file.xml"), content);
    }
    EXPECT_EQ(files->list(folder.file("data/deep")), std::vector<std::string>{"file.xml"});
    EXPECT_EQ(files->resolve(folder.file("none")), folder.file("none"));
    for (const std::string name : {"loop", "data/deep/file.xml/none"})
        EXPECT_THROW((void)files->resolve(folder.file(name)), FileError) << name;
}

TEST_F(FilesTest, ASaveKeepsModeOwnerAndAttributesOfTheOldFileUnderAnyLengthOfName) {
    const std::string path = folder.file(std::string(255, 'x')), attribute = "user.korvane", value(3000, 'v');
    for (const mode_t mode : {0640U, 0600U, 0666U, 06755U, 0444U}) {
        write_text(path, "old");
        ASSERT_EQ(chmod(path.c_str(), mode), 0);
        // Owner and attributes as far as this user and this file system can have them.
        const bool has_owner = chown(path.c_str(), 1234, 2345) == 0;
        const bool has_attribute = setxattr(path.c_str(), attribute.c_str(), value.data(), value.size(), 0) == 0;
        safe_save(*files, path, "new");
        EXPECT_EQ(read_text(path), "new");
        struct stat found {};
        ASSERT_EQ(stat(path.c_str(), &found), 0);
        EXPECT_EQ(found.st_mode & 07777, mode & 0777) << "rights to run as another user are not copied";
        EXPECT_TRUE(!has_owner || (found.st_uid == 1234U && found.st_gid == 2345U));
        if (has_attribute) {
            std::string kept(3001, '\0');
            EXPECT_EQ(getxattr(path.c_str(), attribute.c_str(), kept.data(), kept.size()), 3000);
        }
        // Not writable for anybody is the mode's word, even to the superuser.
        EXPECT_EQ(files->status(path).read_only, mode == 0444U);
        files->clear_read_only(path);
        ASSERT_EQ(stat(path.c_str(), &found), 0);
        EXPECT_EQ(found.st_mode & 07777, (mode & 0777) | S_IWUSR);
    }
}
#endif

}  // namespace
}  // namespace korvane
