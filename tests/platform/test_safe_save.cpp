#include "platform/safe_save.h"

#include <gtest/gtest.h>
#ifndef _WIN32
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>
#endif

#include <algorithm>
#include <filesystem>
#include <thread>

#include "support/memory_disk.h"
#include "support/test_platform.h"

namespace korvane {
namespace {

const std::string target = "/base/d.xml";

TEST(SafeSave, AFolderThatCannotBeFlushedIsToldAsSuch) {
    MemoryDisk disk;
    disk.put(target, "old");
    disk.before_operation = [&](const std::string& name) {
        if (name == "flush folder") disk.fault = MemoryDisk::Fault{disk.operations + 1};
    };
    try {
        safe_save(disk, target, "new");
        FAIL() << "not told";
    } catch (const FileError& fault) {
        EXPECT_NE(std::string(fault.what()).find(target), std::string::npos);
        EXPECT_NE(std::string(fault.what()).find("was replaced"), std::string::npos);
    }
}

#ifndef _WIN32
TEST(SafeSave, RemovesLeftoversOfDeadProcessesAndNothingElse) {
    const pid_t dead = fork();
    if (dead == 0) _exit(0);
    int status = 0;
    ASSERT_EQ(waitpid(dead, &status, 0), dead);
    const std::string killed = std::to_string(dead), alive = std::to_string(getppid()), own = std::to_string(getpid());
    const std::vector<std::string> leftovers{".d.xml.korvane-" + killed + "-0.tmp",
                                             ".d.xml.korvane-" + killed + "-18446744073709551615.tmp",
                                             ".d.xml.korvane-" + own + "-0.tmp"};
    const std::vector<std::string> others{".d.xml.korvane-" + alive + "-0.tmp",
                                          ".e.xml.korvane-" + killed + "-0.tmp",
                                          "d.xml.korvane-" + killed + "-0.tmp",
                                          ".d.xml.korvane-" + killed + "-0.tmp.bak",
                                          ".d.xml.korvane-" + killed + ".tmp",
                                          ".d.xml.korvane-" + killed + "-x.tmp",
                                          ".d.xml.korvane--1-0.tmp",
                                          ".d.xml.korvane-0-0.tmp",
                                          ".d.xml.korvane-.tmp",
                                          ".d.xml.korvane-" + killed + "-99999999999999999999.tmp"};
    MemoryDisk disk;
    disk.put(target, "old");
    for (const auto* names : {&leftovers, &others})
        for (const std::string& name : *names) disk.put("/base/" + name, "half");
    safe_save(disk, target, "new");
    for (const std::string& name : leftovers) EXPECT_FALSE(disk.content("/base/" + name)) << name;
    for (const std::string& name : others) EXPECT_TRUE(disk.content("/base/" + name)) << name;
}
#endif

TEST(SafeSave, SearchesTheFolderOnceAFileOnly) {
    MemoryDisk disk;
    int listed = 0;
    disk.before_operation = [&](const std::string& name) { listed += name == "list"; };
    for (int i = 0; i < 5; ++i) {
        safe_save(disk, target, std::to_string(i));
        safe_save(disk, "/base/e.xml", std::to_string(i));
    }
    EXPECT_EQ(listed, 2);
}

TEST(SafeSave, ManyThreadsSavingOneFileLeaveOneOfTheirContentsAndNoTemporary) {
    const TemporaryFolder folder;
    const auto files = make_system_files();
    const std::string path = folder.file("d.xml");
    {
        std::vector<std::jthread> threads;
        for (int thread = 0; thread < 4; ++thread)
            threads.emplace_back([&, thread] {
                // Objects of their own too: each looks for leftovers while the others save.
                const auto own_files = make_system_files();
                const std::string bytes(10'000, static_cast<char>('a' + thread));
                for (int i = 0; i < 6; ++i) safe_save(i % 2 == 0 ? *files : *own_files, path, bytes);
            });
    }
    const std::string bytes = read_text(path);
    ASSERT_EQ(bytes.size(), 10'000U);
    EXPECT_EQ(bytes.find_first_not_of(bytes[0]), std::string::npos);
    EXPECT_EQ(files->list(folder.path().string()), std::vector<std::string>{"d.xml"});
}

#ifndef _WIN32
TEST(SafeSave, FollowsLinksAndKeepsThem) {
    namespace fs = std::filesystem;
    const TemporaryFolder folder;
    const auto files = make_system_files();
    fs::create_directories(folder.path() / "data/deep");
    fs::create_symlink("data/second", folder.path() / "first");
    fs::create_symlink("deep/file.xml", folder.path() / "data/second");
    for (const std::string content : {"made through a dangling link", "replaced through it"}) {
        safe_save(*files, folder.file("first"), content);
        EXPECT_TRUE(fs::is_symlink(folder.path() / "first"));
        EXPECT_TRUE(fs::is_symlink(folder.path() / "data/second"));
        EXPECT_EQ(read_text(folder.path() / "data/deep/file.xml"), content);
    }
    EXPECT_EQ(files->list(folder.file("data/deep")), std::vector<std::string>{"file.xml"});
}

TEST(SafeSave, KeepsModeOwnerAndAttributesOfTheOldFileAndSavesUnderAnyLengthOfName) {
    const TemporaryFolder folder;
    const auto files = make_system_files();
    for (const mode_t mode : {0600U, 0640U, 0666U, 0755U, 0444U}) {
        const std::string path = folder.file(std::to_string(mode));
        write_text(path, "old");
        ASSERT_EQ(chmod(path.c_str(), mode), 0);
        safe_save(*files, path, "new");
        struct stat found;
        ASSERT_EQ(stat(path.c_str(), &found), 0);
        EXPECT_EQ(found.st_mode & 07777, mode);
        EXPECT_EQ(read_text(path), "new");
    }
    // Owner and attributes as far as this user and this file system can have them.
    const std::string path = folder.file(std::to_string(0640U));
    const std::string attribute = "user.korvane", value(3000, 'v');
    const bool has_owner = chown(path.c_str(), 1234, 2345) == 0;
    const bool has_attribute = setxattr(path.c_str(), attribute.c_str(), value.data(), value.size(), 0) == 0;
    safe_save(*files, path, "newer");
    struct stat found;
    ASSERT_EQ(stat(path.c_str(), &found), 0);
    EXPECT_EQ(found.st_mode & 07777, 0640U);
    if (has_owner) {
        EXPECT_EQ(found.st_uid, 1234U);
        EXPECT_EQ(found.st_gid, 2345U);
    }
    if (has_attribute) {
        std::string kept(4000, '\0');
        const ssize_t size = getxattr(path.c_str(), attribute.c_str(), kept.data(), kept.size());
        EXPECT_EQ(kept.substr(0, static_cast<std::size_t>(std::max<ssize_t>(size, 0))), value);
    }
    const std::string longest = folder.file(std::string(255, 'x'));
    safe_save(*files, longest, "new");
    EXPECT_EQ(read_text(longest), "new");
}
#endif

}  // namespace
}  // namespace korvane
