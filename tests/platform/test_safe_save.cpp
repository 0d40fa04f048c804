#include "platform/safe_save.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <thread>

#include "korvane/error.h"
#include "platform/xml_document.h"
#include "support/memory_disk.h"
#include "support/test_platform.h"

namespace korvane {
namespace {

const std::string target = "/base/d.xml";

/// The file is the old or the new one; what else lies in the folder does not matter.
void expect_old_or_new(const MemoryDisk& disk, const std::string& old_bytes, const std::string& new_bytes) {
    for (const auto& image : disk.crash_images()) {
        const auto found = image.find(target);
        ASSERT_NE(found, image.end()) << "the file is gone";
        ASSERT_TRUE(found->second == old_bytes || found->second == new_bytes)
            << "half a file: " << found->second.size() << " bytes";
    }
}

TEST(SafeSave, AFaultAtAnyOperationIsToldAndLosesNothing) {
    for (const bool short_write : {false, true})
        for (int at = 1;; ++at) {
            SCOPED_TRACE("operation " + std::to_string(at));
            const std::string old_bytes = "old content", new_bytes = std::string(1000, 'n');
            MemoryDisk disk;
            disk.put(target, old_bytes);
            std::vector<std::string> operations;
            disk.before_operation = [&](const std::string& name) {
                operations.push_back(name);
                expect_old_or_new(disk, old_bytes, new_bytes);
            };
            disk.fault = MemoryDisk::Fault{at, false, FileErrorKind::no_space, short_write};
            bool reported = false;
            try {
                safe_save(disk, target, new_bytes);
            } catch (const FileError& fault) {
                reported = true;
                EXPECT_EQ(fault.kind(), FileErrorKind::no_space);
            }
            const bool reached = static_cast<int>(operations.size()) >= at;
            const std::string failed = reached ? operations[static_cast<std::size_t>(at) - 1] : "";
            EXPECT_EQ(reported, reached && failed != "list") << failed;
            const bool is_replaced = !reported || failed == "flush folder";
            EXPECT_EQ(disk.content(target), is_replaced ? new_bytes : old_bytes) << failed;
            EXPECT_EQ(disk.paths().size(), 1U) << "a temporary file stayed";
            EXPECT_EQ(disk.open_files, 0);
            if (!reached) break;
            ASSERT_LT(at, 50);
        }
}

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

TEST(SafeSave, WhatItCallsDoneOutlastsACrash) {
    MemoryDisk disk;
    disk.put(target, "old");
    safe_save(disk, target, "new");
    for (const auto& image : disk.crash_images()) EXPECT_EQ(image.at(target), "new");
}

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

TEST(SafeSave, KeepsTheModeOfTheOldFileAndSavesUnderAnyLengthOfName) {
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
    const std::string longest = folder.file(std::string(255, 'x'));
    safe_save(*files, longest, "new");
    EXPECT_EQ(read_text(longest), "new");
}

TEST(XmlSave, WritesExactlyTheEditedBytesAndReadsBack) {
    const TemporaryFolder folder;
    const auto files = make_system_files();
    const std::string path = folder.file("d.xml");
    const std::string old_bytes = "\xEF\xBB\xBF<?xml version='1.0'?>\r\n<r>\r\n <a>1</a> <!-- kept -->\r\n</r>\r\n";
    write_text(path, old_bytes);
    XmlDocument document;
    ASSERT_FALSE(document.load(*files, path, true));
    document.save(*files, path);
    EXPECT_EQ(read_text(path), old_bytes);
    document.set_text(*document.select("/r/a"), "2");
    document.save(*files, path);
    std::string expected = old_bytes;
    expected[expected.find(">1<") + 1] = '2';
    EXPECT_EQ(read_text(path), expected);
    ASSERT_FALSE(document.load(*files, path));
    EXPECT_EQ(document.select("/r/a")->text(), "2");
    EXPECT_THROW(document.save(*files, path), Error) << "a document not loaded for editing has no bytes to save";
}

}  // namespace
}  // namespace korvane
