// The command line: scanning names into the file slots, and the whole process through RunTervo with
// its options and exit statuses.
#include "app/command_line.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "cell/cell_records.h"
#include "platform/files.h"
#include "platform/messages.h"
#include "run/control/problem.h"
#include "run/control/startup.h"
#include "support/program_run.h"

namespace fs = std::filesystem;
using namespace tervo;
using tervo::test::RunProgram;
using tervo::test::TempFolder;

namespace {

// The filled slots of a scanned line, as "kind=name " in slot order.
std::string Slots(const std::string& line) {
    const CommandLineFiles f = ParseCommandLine(line);
    const std::pair<const char*, const std::string*> slots[] = {
        {"def", &f.def},     {"act", &f.act},           {"wp2", &f.wp2},
        {"all", &f.all},     {"spectrum", &f.spectrum}, {"gen", &f.gen},
        {"batch", &f.batch}, {"record", &f.record},     {"script", &f.script}};
    std::string out;
    for (const auto& [kind, name] : slots)
        if (!name->empty()) out += std::string(kind) + "=" + *name + " ";
    return out;
}

bool AnyMessageHolds(const std::string& phrase) {
    for (const auto& m : ReportedMessages())
        if (m.text.find(phrase) != std::string::npos || m.title.find(phrase) != std::string::npos)
            return true;
    return false;
}

} // namespace

TEST(CommandLineScan, NamesKindsInAnyCaseAndTheEndOfTheScan) {
    const std::pair<const char*, const char*> cases[] = {
        {"my cell.def ", "def=my cell.def "}, // blanks and dots belong to names
        // Relative folders are dots too, and only the last one before the extension ends the name.
        {"../cells/v1.2/a.def ", "def=../cells/v1.2/a.def "},
        {"x.def y ", "def=x.def "}, // a word without a dot ends the scan and is dropped
        // A file named twice in one kind keeps the last; an unknown extension is passed over.
        {"a.def q.xyz b.DEF ", "def=b.DEF "},
        // An extension with a character other than a letter or digit is passed over whole and does
        // not leak into the next name.
        {"x.d-f y.def ", "def=y.def "},
        {"a.DEF b.Act c.wp2 d.ter e.SPE f.gen g.sbf h.srf i.scr ",
         "def=a.DEF act=b.Act wp2=c.wp2 all=d.ter spectrum=e.SPE gen=f.gen batch=g.sbf record=h.srf "
         "script=i.scr "},
        {"a.definition b.action d.tervo f.generation g.batch h.record i.script ",
         "def=a.definition act=b.action all=d.tervo gen=f.generation batch=g.batch record=h.record "
         "script=i.script "}};
    for (const auto& [line, slots] : cases) EXPECT_EQ(Slots(line), slots) << line;
}

TEST(CommandLineScan, CapacitiesOfBufferAndSlots) {
    ClearReportedMessages();
    std::vector<std::string> words{"tervo"};
    for (int i = 0; i < 14; ++i) words.push_back(std::string(99, 'w') + std::to_string(i % 10));
    std::vector<const char*> argv;
    for (auto& w : words) argv.push_back(w.c_str());
    const std::string buffer = JoinCommandLine(static_cast<int>(argv.size()), argv.data());
    // 13 arguments of 101 characters with their blank fill 1313 > 1300: twelve are kept whole.
    EXPECT_EQ(buffer.size(), 12u * 101u);
    EXPECT_EQ(ReportedMessages().size(), 1u);
    EXPECT_EQ(JoinCommandLine(3, argv.data()), words[1] + " " + words[2] + " ");

    ClearReportedMessages();
    CommandLineFiles files;
    AttributeFile(std::string(255, 'n'), "def", files); // 259 characters fit
    EXPECT_EQ(files.def.size(), 259u);
    AttributeFile(std::string(256, 'm'), "act", files); // 260 do not
    EXPECT_TRUE(files.act.empty());
    EXPECT_EQ(ReportedMessages().size(), 1u);
}

TEST(RunTervo, ExitStatusesOfOptionsAndUnreadableFilesAndSaveDefinitionCopiesTheCellOfTheCommandLine) {
    TempFolder home;
    ClearReportedMessages();
    std::string out;
    EXPECT_EQ(RunProgram({"--version"}, &out), 0);
    EXPECT_EQ(out, VERSION + "\n");
    EXPECT_EQ(RunProgram({"--home", home.path.string(), "--help"}, &out), 0);
    EXPECT_EQ(RunProgram({"cell.def", "--frobnicate"}), 2);
    EXPECT_TRUE(AnyMessageHolds("--frobnicate"));
    EXPECT_EQ(RunProgram({"--home"}), 2); // a folder must follow
    // A home folder that cannot be made (a file stands in its way) ends the process.
    std::ofstream(home.path / "blocker") << "x";
    EXPECT_EQ(RunProgram({"--home", (home.path / "blocker" / "sub").string()}), 2);

    // A home folder that does not exist yet is made with its whole tree.  A file of the command line
    // that exists nowhere refuses the run before anything is read or calculated, each file named.
    const std::string absent = home / "absent";
    EXPECT_EQ(RunProgram({"--home", absent, "startup_missing.def", "plan.act"}, &out), 2);
    EXPECT_TRUE(AnyMessageHolds("startup_missing.def"));
    EXPECT_TRUE(AnyMessageHolds("plan.act"));
    EXPECT_EQ(out, "");
    for (const char* sub : TERVO_FOLDERS) EXPECT_TRUE(fs::is_directory(fs::path(absent) / sub)) << sub;
    EXPECT_EQ(GetProjectDir(), fs::absolute(absent).lexically_normal().string());

    EXPECT_EQ(RunProgram({"--home", absent, "--save-def", home / "out.def", "startup_missing.def"}), 2);
    EXPECT_EQ(RunProgram({"--home", absent, "--save-def", home / "out.def"}), 2); // nothing to save
    EXPECT_FALSE(fs::exists(home.path / "out.def"));

    CreateNewProblem();
    zonnecel.numberOfLayers = 1; // the fresh problem has no layer in use; take its first
    zonnecel.layer[0].name = "absorber";
    ASSERT_EQ(SaveDefinitionFileToPath(absent + "/def/startup_in.def"), 0);
    // A bare name is found in the def folder of the home tree; the copy holds the cell that was loaded.
    ASSERT_EQ(RunProgram({"--home", absent, "--save-def", home / "copy.def", "startup_in.def"}), 0);
    CreateNewProblem();
    ASSERT_EQ(Laad_data_uit_file(home / "copy.def"), 0);
    EXPECT_EQ(zonnecel.layer[0].name, "absorber");
}
