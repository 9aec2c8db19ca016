// Text files line by line, and the path and file-date helpers.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include "platform/files.h"
#include "platform/text_file.h"

namespace tervo {
namespace {

namespace fs = std::filesystem;

class TextFileTest : public ::testing::Test {
protected:
    void SetUp() override {
        folder_ = fs::temp_directory_path() / ("tervo_files_" + std::to_string(std::random_device{}()));
        fs::create_directories(folder_);
    }
    void TearDown() override { fs::remove_all(folder_); }

    std::string WriteBytes(const std::string& name, const std::string& bytes) {
        const std::string path = (folder_ / name).string();
        std::ofstream(path, std::ios::binary) << bytes;
        return path;
    }

    fs::path folder_;
};

TEST_F(TextFileTest, ReadLineHandlesLineEndsAndTheLastLine) {
    TextFile f = OpenFile(WriteBytes("a.txt", "first\r\nsecond\n\nlast"), FileMode::Read);
    ASSERT_TRUE(f.IsOpen());
    std::string line;
    EXPECT_EQ(ReadLine(f, line, 100), 5);
    EXPECT_EQ(line, "first");
    EXPECT_EQ(ReadLine(f, line, 100), 6);
    EXPECT_EQ(line, "second");
    EXPECT_EQ(ReadLine(f, line, 100), 0);
    EXPECT_EQ(ReadLine(f, line, 100), 4); // no line end behind it, still a line
    EXPECT_EQ(line, "last");
    EXPECT_EQ(ReadLine(f, line, 100), -2);
}

TEST_F(TextFileTest, LongEmptyAndMissingFiles) {
    TextFile f = OpenFile(WriteBytes("b.txt", "abcdefghij\r\nnext\n"), FileMode::Read);
    std::string line;
    EXPECT_EQ(ReadLine(f, line, 5), 5);
    EXPECT_EQ(line, "abcde");
    EXPECT_EQ(ReadLine(f, line, 5), 4); // the dropped rest does not come back as a line
    EXPECT_EQ(line, "next");
    EXPECT_EQ(ReadLine(f, line, 5), -2);

    TextFile empty = OpenFile(WriteBytes("empty.txt", ""), FileMode::Read);
    EXPECT_EQ(ReadLine(empty, line, 10), -2);
    TextFile missing = OpenFile((folder_ / "none.txt").string(), FileMode::Read);
    EXPECT_FALSE(missing.IsOpen());
    EXPECT_NE(missing.lastError, 0);
    EXPECT_EQ(ReadLine(missing, line, 10), -1);
}

TEST_F(TextFileTest, WrittenLinesReadBackExactly) {
    const std::string path = (folder_ / "w.txt").string();
    TextFile out = OpenFile(path, FileMode::Write);
    EXPECT_EQ(WriteLine(out, "abcdef", 3), 0);
    EXPECT_EQ(FmtFile(out, "clamp_psi : %f[w9p2e2] units kT\n", 0.5), 0);
    CloseFile(out);
    TextFile more = OpenFile(path, FileMode::Append);
    EXPECT_EQ(WriteLine(more, "appended"), 0);
    CloseFile(more);

    std::ifstream in(path, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_EQ(bytes, "abc\nclamp_psi :  5.00e-01 units kT\nappended\n");

    long long size = -1;
    EXPECT_EQ(GetFileSize(path, size), 0);
    EXPECT_EQ(size, static_cast<long long>(bytes.size()));
    EXPECT_EQ(GetFileSize((folder_ / "none").string(), size), -1);
    EXPECT_TRUE(FileExists(path));
    EXPECT_FALSE(FileExists(folder_.string())); // a folder is not a file

    DateTime stamp, now = GetSystemDateTime();
    ASSERT_EQ(GetFileDateTime(path, stamp), 0);
    EXPECT_EQ(stamp.year, now.year);
    EXPECT_EQ(stamp.month, now.month);
    EXPECT_EQ(GetFileDateTime((folder_ / "none").string(), stamp), -1);
}

TEST(Paths, SplitJoinAndCreate) {
    std::string drive = "x", folder, file;
    SplitPath("/home/u/def/my cell.def", drive, folder, file);
    EXPECT_EQ(drive, "");
    EXPECT_EQ(folder, "/home/u/def/");
    EXPECT_EQ(file, "my cell.def");
    SplitPath("cell.def", drive, folder, file);
    EXPECT_EQ(folder, "");
    EXPECT_EQ(file, "cell.def");

    EXPECT_EQ(MakePathname("/home/u/def", "cell.def"), "/home/u/def/cell.def");
    EXPECT_EQ(MakePathname("/home/u/def/", "cell.def"), "/home/u/def/cell.def");
    EXPECT_EQ(MakePathname("", "cell.def"), "cell.def");

    SetProjectDir("/opt/tervo/");
    EXPECT_EQ(GetProjectDir(), "/opt/tervo/");

    const fs::path base =
        fs::temp_directory_path() / ("tervo_dirs_" + std::to_string(std::random_device{}()));
    EXPECT_TRUE(MakeDirectories((base / "results" / "batch").string()));
    EXPECT_TRUE(fs::is_directory(base / "results" / "batch"));
    fs::remove_all(base);
}

} // namespace
} // namespace tervo
