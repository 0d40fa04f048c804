#include "platform/files.h"

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

#include "platform/safe_save.h"
#include "support/memory_disk.h"
#include "support/test_platform.h"

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
        ASSERT_TRUE(bytes == content) << size;
        files->read(path, fresh);
        ASSERT_TRUE(fresh == content) << size;
    }
    fs::resize_file(path, (std::uintmax_t{1} << 30) + 1);
    std::string small;
    expect_fault(FileErrorKind::other, path, [&] { files->read(path, small); });
    EXPECT_LT(small.capacity(), 1U << 20);
}

TEST_F(FilesTest, AppendKeepsWhatIsThereAndReachesTheSystemAtOnce) {
    const std::string path = folder.file("log");
    const auto first = files->open_append(path), second = files->open_append(path);
    std::string expected;
    for (int i = 0; i < 10; ++i) {
        (i % 3 == 0 ? first : second)->write(std::to_string(i) + "\n");
        expected += std::to_string(i) + "\n";
        EXPECT_EQ(read_text(path), expected);
    }
}

TEST_F(FilesTest, StatusTellsFilesFoldersAndNothingAndListAllNamesButThePseudoNames) {
    const std::string named = "gr\xC3\xBC\xC3\x9F";
    for (const std::string& name : {std::string("f"), std::string(".hidden"), named})
        files->open_append(folder.file(name));
    auto names = files->list(folder.path().string());
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{".hidden", "f", named}));
#ifndef _WIN32  // where links need a privilege
    fs::create_symlink("none", folder.path() / "dangling");
#endif
    EXPECT_TRUE(files->status(folder.file("f")).exists);
    EXPECT_FALSE(files->status(folder.file("f")).is_folder);
    EXPECT_TRUE(files->status(folder.path().string()).is_folder);
    for (const std::string name : {"none", "f/none", "dangling", "none/none"})
        EXPECT_FALSE(files->status(folder.file(name)).exists) << name;
}

TEST_F(FilesTest, EveryFaultNamesTheFileAndItsKind) {
    const std::string none = folder.file("none"), inside = folder.file("none/f"), file = folder.file("f");
    write_text(file, "x");
    std::string bytes;
    const auto not_found = FileErrorKind::not_found;
    expect_fault(not_found, none, [&] { files->read(none, bytes); });
    expect_fault(not_found, none, [&] { files->clear_read_only(none); });
    expect_fault(not_found, none, [&] { files->remove(none); });
    expect_fault(not_found, none, [&] { (void)files->list(none); });
    expect_fault(not_found, file, [&] { files->replace(none, file); });
    expect_fault(not_found, inside, [&] { (void)files->open_append(inside); });
    expect_fault(not_found, inside, [&] { (void)files->create_new(inside, none); });
    expect_fault(not_found, file, [&] { (void)files->list(file); });
    expect_fault(FileErrorKind::other, file, [&] { (void)files->create_new(file, none); });
    EXPECT_EQ(read_text(file), "x");
#ifdef _WIN32
    const FileErrorKind is_folder = FileErrorKind::access_denied;
#else
    const FileErrorKind is_folder = FileErrorKind::other;
    expect_fault(not_found, none, [&] { files->flush_folder(none); });  // elsewhere a folder cannot be flushed
    expect_fault(FileErrorKind::no_space, "/dev/full", [&] { files->open_append("/dev/full")->write("x"); });
#endif
    expect_fault(is_folder, folder.path().string(), [&] { files->read(folder.path().string(), bytes); });
    const std::pair<FileErrorKind, int> numbers[] = {{not_found, 53},
                                                     {FileErrorKind::access_denied, 70},
                                                     {FileErrorKind::sharing_violation, 70},
                                                     {FileErrorKind::no_space, 61},
                                                     {FileErrorKind::input_output, 57},
                                                     {FileErrorKind::other, 75}};
    for (const auto& [kind, number] : numbers) EXPECT_EQ(FileError(kind, 1, "").runtime_error_number(), number);
}

TEST(JoinPath, PutsExactlyOneSeparatorBetween) {
    const std::string separator(path_separator());
    EXPECT_EQ(join_path("a", "b"), "a" + separator + "b");
    EXPECT_EQ(join_path("a" + separator, "b"), "a" + separator + "b");
    EXPECT_EQ(join_path("a/", "b"), "a/b");
    EXPECT_EQ(join_path("", "b"), "b");
}

const std::string target = "/base/d.xml";

TEST(SafeSave, TellsAFolderThatCannotBeFlushedAndSearchesItOnceAFileOnly) {
    MemoryDisk disk;
    int listed = 0;
    disk.before_operation = [&](const std::string& name) { listed += name == "list"; };
    for (const std::string& path : {target, std::string("/base/e.xml"), target, std::string("/base/e.xml")})
        safe_save(disk, path, "old");
    EXPECT_EQ(listed, 2);
    disk.before_operation = [&](const std::string& name) {
        if (name == "flush folder") disk.fault = MemoryDisk::Fault{disk.operations + 1};
    };
    try {
        safe_save(disk, target, "new");
        FAIL() << "not told";
    } catch (const FileError& fault) {
        EXPECT_NE(std::string(fault.what()).find("[" + target + "] was replaced"), std::string::npos);
    }
}

TEST_F(FilesTest, ManyThreadsSavingOneFileLeaveOneOfTheirContentsAndNoTemporary) {
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
TEST(SafeSave, RemovesLeftoversOfDeadProcessesAndNothingElse) {
    const pid_t dead = fork();
    if (dead == 0) _exit(0);
    int status = 0;
    ASSERT_EQ(waitpid(dead, &status, 0), dead);
    const std::string killed = std::to_string(dead), alive = std::to_string(getppid()), own = std::to_string(getpid());
    const std::string start = "/base/.d.xml.korvane-";
    const std::vector<std::string> leftovers{killed + "-0.tmp", killed + "-18446744073709551615.tmp", own + "-0.tmp"};
    const std::vector<std::string> others{alive + "-0.tmp", killed + "-0.tmp.bak",
                                          killed + ".tmp",  killed + "-x.tmp",
                                          "-1-0.tmp",       "0-0.tmp",
                                          ".tmp",           killed + "-99999999999999999999.tmp"};
    const std::string foreign = "/base/.e.xml.korvane-" + killed + "-0.tmp",
                      plain = "/base/d.xml.korvane-" + killed + "-0.tmp";
    MemoryDisk disk;
    disk.put(target, "old");
    for (const auto* names : {&leftovers, &others})
        for (const std::string& name : *names) disk.put(start + name, "half");
    for (const std::string& path : {foreign, plain}) disk.put(path, "half");
    safe_save(disk, target, "new");
    for (const std::string& name : leftovers) EXPECT_FALSE(disk.content(start + name)) << name;
    for (const std::string& name : others) EXPECT_TRUE(disk.content(start + name)) << name;
    EXPECT_TRUE(disk.content(foreign) && disk.content(plain));
}

mode_t mode_of(const std::string& path) {
    struct stat found {};
    EXPECT_EQ(stat(path.c_str(), &found), 0);
    return found.st_mode & 07777;
}

TEST_F(FilesTest, ReadTakesAPipeToItsEndThoughItComesInPieces) {
    const std::string pipe = folder.file("pipe"), piece(3000, 'p');
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    std::jthread writer([&] {
        const auto output = files->open_append(pipe);
        for (int i = 0; i < 20; ++i) output->write(piece);
    });
    std::string bytes;
    files->read(pipe, bytes);
    EXPECT_EQ(bytes.size(), 20 * piece.size());
}

TEST_F(FilesTest, ReadOnlyIsTheModesWordEvenToTheSuperuser) {
    const std::string path = folder.file("f");
    write_text(path, "x");
    for (const mode_t mode : {0444U, 0400U, 0555U}) {
        ASSERT_EQ(chmod(path.c_str(), mode), 0);
        EXPECT_TRUE(files->status(path).read_only);
        files->clear_read_only(path);
        EXPECT_FALSE(files->status(path).read_only);
        EXPECT_EQ(mode_of(path), mode | S_IWUSR);
    }
}

TEST_F(FilesTest, LinksAreFollowedToTheFileBehindThemAllAndKeptByASave) {
    fs::create_directories(folder.path() / "data/deep");
    fs::create_symlink(folder.path() / "data", folder.path() / "folder link");
    fs::create_symlink("folder link/second", folder.path() / "first");
    fs::create_symlink("deep/file.xml", folder.path() / "data/second");
    fs::create_symlink("../first", folder.path() / "data/link back");
    fs::create_symlink("loop", folder.path() / "loop");
    for (const std::string content : {"made through a dangling link", "replaced through it"}) {
        safe_save(*files, folder.file("first"), content);
        EXPECT_TRUE(fs::is_symlink(folder.path() / "first"));
        EXPECT_TRUE(fs::is_symlink(folder.path() / "data/second"));
        EXPECT_EQ(read_text(folder.path() / "data/deep/file.xml"), content);
    }
    EXPECT_EQ(files->list(folder.file("data/deep")), std::vector<std::string>{"file.xml"});
    for (const std::string name : {"data/deep/file.xml", "first", "folder link/second", "folder link/link back"}) {
        const std::string found = files->resolve(folder.file(name));
        EXPECT_EQ(fs::canonical(found), fs::canonical(folder.path() / "data/deep/file.xml")) << found;
        EXPECT_FALSE(fs::is_symlink(found)) << found;
    }
    EXPECT_EQ(files->resolve(folder.file("none")), folder.file("none"));
    for (const std::string name : {"loop", "data/deep/file.xml/none"})
        EXPECT_THROW((void)files->resolve(folder.file(name)), FileError) << name;
}

TEST_F(FilesTest, ASaveKeepsModeOwnerAndAttributesOfTheOldFileUnderAnyLengthOfName) {
    for (const mode_t mode : {0600U, 0640U, 0666U, 0755U, 0444U}) {
        const std::string path = folder.file(std::to_string(mode));
        write_text(path, "old");
        ASSERT_EQ(chmod(path.c_str(), mode), 0);
        safe_save(*files, path, "new");
        EXPECT_EQ(mode_of(path), mode);
        EXPECT_EQ(read_text(path), "new");
    }
    // Owner and attributes as far as this user and this file system can have them.
    const std::string path = folder.file(std::to_string(0640U)), attribute = "user.korvane", value(3000, 'v');
    const bool has_owner = chown(path.c_str(), 1234, 2345) == 0;
    const bool has_attribute = setxattr(path.c_str(), attribute.c_str(), value.data(), value.size(), 0) == 0;
    safe_save(*files, path, "newer");
    struct stat found {};
    ASSERT_EQ(stat(path.c_str(), &found), 0);
    EXPECT_EQ(found.st_mode & 07777, 0640U);
    EXPECT_TRUE(!has_owner || (found.st_uid == 1234U && found.st_gid == 2345U));
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
