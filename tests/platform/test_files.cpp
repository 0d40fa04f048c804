#include "platform/files.h"

#include <gtest/gtest.h>
#ifndef _WIN32
#include <sys/stat.h>
#include <unistd.h>
#endif

#include <algorithm>
#include <filesystem>
#include <thread>

#include "support/test_platform.h"

namespace korvane {
namespace {

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

TEST_F(FilesTest, ReadGivesEveryByteWhateverTheBufferHeld) {
    std::string bytes;
    for (const std::size_t size : {0UL, 1UL, 4095UL, 4096UL, 4097UL, 100UL, 70'000UL, 8192UL, 1'000'000UL, 0UL, 5UL}) {
        std::string content(size, '\0');
        for (std::size_t i = 0; i < size; ++i) content[i] = static_cast<char>(i * 31 + i / 256);
        write_text(folder.file("f"), content);
        files->read(folder.file("f"), bytes);
        ASSERT_TRUE(bytes == content) << size;
        std::string fresh;
        files->read(folder.file("f"), fresh);
        ASSERT_TRUE(fresh == content) << size;
    }
}

TEST_F(FilesTest, ReadRefusesAFileBeyondItsLimitBeforeTakingMemoryForIt) {
    const std::string path = folder.file("huge");
    write_text(path, "");
    std::filesystem::resize_file(path, (std::uintmax_t{1} << 30) + 1);
    std::string bytes;
    expect_fault(FileErrorKind::other, path, [&] { files->read(path, bytes); });
    EXPECT_LT(bytes.capacity(), 1U << 20);
}

#ifndef _WIN32
TEST_F(FilesTest, ReadTakesAPipeToItsEndThoughItComesInPieces) {
    const std::string pipe = folder.file("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const std::string piece(3000, 'p');
    std::jthread writer([&] {
        const auto output = files->open_append(pipe);
        for (int i = 0; i < 20; ++i) output->write(piece);
    });
    std::string bytes;
    files->read(pipe, bytes);
    EXPECT_EQ(bytes.size(), 20 * piece.size());
}
#endif

TEST_F(FilesTest, AppendKeepsWhatIsThereAndReachesTheSystemAtOnce) {
    const std::string path = folder.file("log");
    const auto first = files->open_append(path);
    const auto second = files->open_append(path);
    std::string expected;
    for (int i = 0; i < 10; ++i) {
        (i % 3 == 0 ? first : second)->write(std::to_string(i) + "\n");
        expected += std::to_string(i) + "\n";
        EXPECT_EQ(read_text(path), expected);
    }
}

#ifndef _WIN32
TEST_F(FilesTest, ReadOnlyIsTheModesWordEvenToTheSuperuser) {
    const std::string path = folder.file("f");
    write_text(path, "x");
    for (const mode_t mode : {0444U, 0400U, 0555U}) {
        ASSERT_EQ(chmod(path.c_str(), mode), 0);
        EXPECT_TRUE(files->status(path).read_only);
        files->clear_read_only(path);
        EXPECT_FALSE(files->status(path).read_only);
        struct stat found;
        ASSERT_EQ(stat(path.c_str(), &found), 0);
        EXPECT_EQ(found.st_mode & 07777, mode | S_IWUSR);
    }
}
#endif

TEST_F(FilesTest, StatusTellsFilesFoldersAndNothing) {
    write_text(folder.file("f"), "x");
#ifndef _WIN32  // where links need a privilege
    std::filesystem::create_symlink("none", folder.path() / "dangling");
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
    expect_fault(FileErrorKind::not_found, none, [&] { files->read(none, bytes); });
    expect_fault(FileErrorKind::not_found, none, [&] { files->clear_read_only(none); });
    expect_fault(FileErrorKind::not_found, none, [&] { files->remove(none); });
    expect_fault(FileErrorKind::not_found, none, [&] { (void)files->list(none); });
#ifndef _WIN32  // where a folder cannot be flushed
    expect_fault(FileErrorKind::not_found, none, [&] { files->flush_folder(none); });
#endif
    expect_fault(FileErrorKind::not_found, file, [&] { files->replace(none, file); });
    expect_fault(FileErrorKind::not_found, inside, [&] { (void)files->open_append(inside); });
    expect_fault(FileErrorKind::not_found, inside, [&] { (void)files->create_new(inside, none); });
    expect_fault(FileErrorKind::not_found, file, [&] { (void)files->list(file); });
#ifdef _WIN32
    const FileErrorKind is_folder = FileErrorKind::access_denied;
#else
    const FileErrorKind is_folder = FileErrorKind::other;
#endif
    expect_fault(is_folder, folder.path().string(), [&] { files->read(folder.path().string(), bytes); });
    expect_fault(FileErrorKind::other, file, [&] { (void)files->create_new(file, none); });
    EXPECT_EQ(read_text(file), "x");
#ifndef _WIN32
    expect_fault(FileErrorKind::no_space, "/dev/full", [&] { files->open_append("/dev/full")->write("x"); });
#endif
}

TEST_F(FilesTest, FaultsBecomeTheRuntimesNumbers) {
    EXPECT_EQ(FileError(FileErrorKind::not_found, 2, "").runtime_error_number(), 53);
    EXPECT_EQ(FileError(FileErrorKind::access_denied, 13, "").runtime_error_number(), 70);
    EXPECT_EQ(FileError(FileErrorKind::sharing_violation, 16, "").runtime_error_number(), 70);
    EXPECT_EQ(FileError(FileErrorKind::no_space, 28, "").runtime_error_number(), 61);
    EXPECT_EQ(FileError(FileErrorKind::input_output, 5, "").runtime_error_number(), 57);
}

#ifndef _WIN32
TEST_F(FilesTest, ResolveEndsAtTheFileBehindAllLinks) {
    namespace fs = std::filesystem;
    fs::create_directories(folder.path() / "data");
    write_text(folder.file("data/f"), "x");
    fs::create_symlink(folder.path() / "data", folder.path() / "folder link");
    fs::create_symlink("folder link/f", folder.path() / "link");
    fs::create_symlink("link", folder.path() / "link to link");
    fs::create_symlink("../link", folder.path() / "data/link back");
    fs::create_symlink("data/none", folder.path() / "dangling");
    fs::create_symlink("dangling", folder.path() / "link to dangling");
    fs::create_symlink("loop", folder.path() / "loop");
    for (const std::string name : {"data/f", "link to link", "folder link/f", "folder link/link back"}) {
        const std::string found = files->resolve(folder.file(name));
        EXPECT_EQ(fs::canonical(found), fs::canonical(folder.path() / "data/f")) << found;
        EXPECT_FALSE(fs::is_symlink(found)) << found;
    }
    EXPECT_EQ(files->resolve(folder.file("none")), folder.file("none"));
    EXPECT_EQ(files->resolve(folder.file("link to dangling")), folder.file("data/none"));
    for (const std::string name : {"loop", "data/f/none"})
        EXPECT_THROW((void)files->resolve(folder.file(name)), FileError) << name;
}
#endif

TEST_F(FilesTest, ListGivesHiddenNamesAndNoPseudoNames) {
    for (const std::string name : {"b", ".hidden", "gr\xC3\xBC\xC3\x9F"}) files->open_append(folder.file(name));
    auto names = files->list(folder.path().string());
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{".hidden", "b", "gr\xC3\xBC\xC3\x9F"}));
}

TEST(JoinPath, PutsExactlyOneSeparatorBetween) {
    const std::string separator(path_separator());
    EXPECT_EQ(join_path("a", "b"), "a" + separator + "b");
    EXPECT_EQ(join_path("a" + separator, "b"), "a" + separator + "b");
    EXPECT_EQ(join_path(separator, "b"), separator + "b");
    EXPECT_EQ(join_path("", "b"), "b");
}

}  // namespace
}  // namespace korvane
