// Text files line by line, and the path and file-date helpers.
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "platform/files.h"
#include "platform/text_file.h"
#include "support/temp_folder.h"

using namespace tervo;

using tervo::test::TempFolder;

TEST(TextFile, ReadLineHandlesLineEndsLongLinesAndTheLastLine) {
    TempFolder folder;
    // Bytes of the file, longest line kept, and (return value, line) of each ReadLine until the end.
    // A line without a line end behind it is still a line; the dropped rest of a long one does not
    // come back as a line.
    const std::tuple<std::string, int, std::vector<std::pair<int, std::string>>> cases[] = {
        {"first\r\nsecond\n\nlast", 100, {{5, "first"}, {6, "second"}, {0, ""}, {4, "last"}}},
        {"abcdefghij\r\nnext\n", 5, {{5, "abcde"}, {4, "next"}}},
        {"", 10, {}}};
    for (const auto& [bytes, longest, lines] : cases) {
        SCOPED_TRACE(bytes);
        tervo::test::WriteFile(folder / "a.txt", bytes);
        TextFile f = OpenFile(folder / "a.txt", FileMode::Read);
        ASSERT_TRUE(f.IsOpen());
        std::string line;
        for (const auto& [length, text] : lines) {
            EXPECT_EQ(ReadLine(f, line, longest), length);
            EXPECT_EQ(line, text);
        }
        EXPECT_EQ(ReadLine(f, line, longest), -2);
    }
    std::string line;
    TextFile missing = OpenFile(folder / "none.txt", FileMode::Read);
    EXPECT_FALSE(missing.IsOpen());
    EXPECT_NE(missing.lastError, 0);
    EXPECT_EQ(ReadLine(missing, line, 10), -1);
}

TEST(TextFile, WrittenLinesReadBackExactlyWithTheirSizeAndDate) {
    TempFolder folder;
    const std::string path = folder / "w.txt";
    TextFile out = OpenFile(path, FileMode::Write);
    EXPECT_EQ(WriteLine(out, "abcdef", 3), 0);
    EXPECT_EQ(FmtFile(out, "clamp_psi : %f[w9p2e2] units kT\n", 0.5), 0);
    CloseFile(out);
    TextFile more = OpenFile(path, FileMode::Append);
    EXPECT_EQ(WriteLine(more, "appended"), 0);
    CloseFile(more);
    const std::string bytes = test::ReadFile(path);
    EXPECT_EQ(bytes, "abc\nclamp_psi :  5.00e-01 units kT\nappended\n");

    long long size = -1;
    EXPECT_EQ(GetFileSize(path, size), 0);
    EXPECT_EQ(size, static_cast<long long>(bytes.size()));
    EXPECT_EQ(GetFileSize(folder / "none", size), -1);
    EXPECT_TRUE(FileExists(path));
    EXPECT_FALSE(FileExists(folder.path.string())); // a folder is not a file
    DateTime stamp, now = GetSystemDateTime();
    ASSERT_EQ(GetFileDateTime(path, stamp), 0);
    EXPECT_EQ(stamp.year * 100 + stamp.month, now.year * 100 + now.month); // this month
    EXPECT_EQ(GetFileDateTime(folder / "none", stamp), -1);
}

TEST(Paths, SplitAndJoin) {
    std::string drive = "x", folder, file;
    SplitPath("/home/u/def/my cell.def", drive, folder, file);
    EXPECT_EQ(drive + "|" + folder + "|" + file, "|/home/u/def/|my cell.def");
    SplitPath("cell.def", drive, folder, file);
    EXPECT_EQ(folder + "|" + file, "|cell.def");
    EXPECT_EQ(MakePathname("/home/u/def", "cell.def"), "/home/u/def/cell.def");
    EXPECT_EQ(MakePathname("/home/u/def/", "cell.def"), "/home/u/def/cell.def");
    EXPECT_EQ(MakePathname("", "cell.def"), "cell.def");
}
