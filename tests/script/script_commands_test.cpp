// Whole scripts run from files: the loop and its nesting, the refusal of a line (the script goes
// on), the action keywords with the settings that follow from them, load, save, clear, and the
// commands that reach the operating system and a user library.
#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

#include "run/control/problem.h"
#include "script/load_save_commands.h"
#include "script_test_home.h"
#include "setup/parameter_sets.h"

namespace tervo::testing {
namespace {

constexpr const char* ACTION_TITLE = "Error whilst processing action command in script";

class ScriptCommands : public ScriptHome {
protected:
    // A script line that, each time it runs, appends a line to `name`.txt in the home folder by a
    // shell script, so that every pass of a loop leaves a trace.
    std::string Tally(const std::string& name) const {
        const std::string shell = (home / (name + ".sh")).string();
        WriteFile(shell, "echo pass >> '" + (home / (name + ".txt")).string() + "'\n");
        return "runsystem sh " + shell + "\n";
    }
    size_t Passes(const std::string& name) const {
        return FileLines((home / (name + ".txt")).string()).size();
    }
};

TEST_F(ScriptCommands, ALoopOfNoIterationsRunsOnceAndNestedLoopsAreTheirOwn) {
    ASSERT_EQ(Run("loop maxiteration 0\nloop start\n" + Tally("once") + "loop stop\n"), 0);
    EXPECT_EQ(Passes("once"), 1u);

    // A script run from a loop has its own loop and leaves the caller's alone.
    WriteFile(In("script", "inner loop.script"),
              "loop maxiteration 4\nloop start\n" + Tally("inner") + "loop stop\nloop maxerror 7\n");
    ASSERT_EQ(Run("loop maxiteration 2\nloop start\nrunscript inner loop.script\n" + Tally("outer") +
                  "loop stop\n"),
              0);
    EXPECT_EQ(Passes("outer"), 2u);
    EXPECT_EQ(Passes("inner"), 8u); // four passes within each of two
    EXPECT_EQ(theScript.maxiteration, 2);
    EXPECT_EQ(theScript.maxerror, 0.001);
    EXPECT_TRUE(ReportedMessages().empty()) << AllMessages();
}

TEST_F(ScriptCommands, EveryRefusedLineIsReportedTheScriptGoesOnAndAnEmptyResultIsItsHeader) {
    wis_alles();
    ASSERT_EQ(Run("> a comment line\n* and another\n\n   \t \nfrobnicate now\n  // indented comment\n"
                  "load nothing x.def\nsave nothing.iv x\naction workingpoint.temperature -1\n"
                  "action workingpoint.numberofpoints many\naction nothing 5\n"
                  "action spectrumfile nofile.spe\naction generationfromfile\nloop sideways\nloop stop\n"
                  "clear everything\nset scriptvariable.xvalue 3\ncalculate batch\nsave result.iv none.iv\n"),
              0);
    // One message a refused line, in the order of the lines: its title and the line it names.
    const std::string script = "Error whilst reading the script file, in RunScriptFile()",
                      loop = "Error in Set loop command";
    const std::pair<std::string, std::string> expected[] = {
        {script, "frobnicate now"},
        {script, "  // indented comment"},
        {"Error whilst processing load command in script", "load nothing x.def"},
        {"Error whilst processing save command in script", "save nothing.iv x"},
        {ACTION_TITLE, "action workingpoint.temperature -1\nValue not recognised as a positive number"},
        {ACTION_TITLE, "action workingpoint.numberofpoints many\nValue not recognised as an integer"},
        {ACTION_TITLE, "action nothing 5"},
        {ACTION_TITLE, "Spectrumfile not found: " + In("spectrum", "nofile.spe") +
                           "\nReplaced with a standard spectrum: AM1_5G 1 sun.spe"},
        {ACTION_TITLE, "Generation file not found: " + In("generation", "*.gen") +
                           "\nSwitched to: generation from internal calculation"},
        {loop, "loop sideways"},
        {loop, "loop stop without a loop start before it in the file"},
        {"Error in script clear statement", "argument = everything"},
        {"Error whilst processing set command in script", "set scriptvariable.xvalue 3"},
        {"Error whilst processing calculate command in script", "calculate batch"},
        {"Function Save or Show", "No IV-calculation is made yet"}};
    const auto& reported = ReportedMessages();
    ASSERT_EQ(reported.size(), std::size(expected)) << AllMessages();
    for (size_t k = 0; k < reported.size(); ++k) {
        EXPECT_EQ(reported[k].title, expected[k].first);
        EXPECT_NE(reported[k].text.find(expected[k].second), std::string::npos) << reported[k].text;
    }
    EXPECT_EQ(SingleShotSimulationNumber, 0);       // nothing was calculated
    EXPECT_EQ(actionPanel.first.numberofpoints, 5); // the refused count left the default
    EXPECT_EQ(wp.spectrumName, "AM1_5G 1 sun.spe");
    // With nothing calculated a result file holds the script's header of four lines alone, and says so.
    EXPECT_EQ(FileLines(In("results", "none.iv")).size(), 4u);
}

TEST_F(ScriptCommands, MissingFilesReadErrorsAndEndlessNesting) {
    EXPECT_EQ(RunScriptFile("no such.script", 1), -1); // silent
    ExecuteScript();
    EXPECT_EQ(Count("Invalid Script File", "No valid script file is loaded"), 1);
    // Reading the start of the process's own memory fails with an input/output error.
    EXPECT_EQ(RunScriptFile("/proc/self/mem", 1), 0);
    EXPECT_EQ(ReportedMessages().back().text.rfind("An error ocurred while reading the def-file: ", 0), 0u);
    ClearReportedMessages();
    WriteFile(In("script", "self.script"), "runscript self.script\naction workingpoint.temperature 301\n");
    ASSERT_EQ(RunScriptFile("self.script", 1), 0);
    ASSERT_EQ(ReportedMessages().size(), 1u) << AllMessages();
    EXPECT_EQ(ReportedMessages()[0].text, "Scripts are nested deeper than 32 levels: the script " +
                                              In("script", "self.script") + " is not run");
    EXPECT_EQ(actionPanel.first.temperature, 301); // every level went on behind its runscript line
}

TEST_F(ScriptCommands, LinesAreCutAfter119CharactersAndTheRestIsNotALine) {
    const std::string head = "loop maxiteration ";
    const std::string cut = head + std::string(118 - head.size(), '0') + "97 clear all"; // '7' is the 120th
    std::string padded = "action workingpoint.temperature 333";
    padded += std::string(119 - padded.size(), ' ') + "clear action";
    ASSERT_EQ(Run(cut + "\n" + padded + "\n"), 0);
    EXPECT_EQ(theScript.maxiteration, 9);
    EXPECT_EQ(actionPanel.first.temperature, 333);
    EXPECT_TRUE(ReportedMessages().empty()) << AllMessages();
}

TEST_F(ScriptCommands, ActionKeywordsAndTheSettingsThatFollow) {
    theScript.svalue[0] = 0.45;
    ASSERT_EQ(
        Run("action workingpoint.temperature 0\naction workingpoint.voltage xvalue\naction initialwp.kT "
            "0.02158333\n"
            "action iv.points 11\n"
            "action iv.increment 0.25\naction iv.startV -0.5\naction cf.totalpoints 31\naction light\n"
            "action intensity.T 50\naction spectrumcutoff.on\naction spectrumcutoff.shortlambda 900\n"
            "action spectrumcutoff.longlambda 500\n"),
        0);
    EXPECT_TRUE(ReportedMessages().empty()) << AllMessages();
    EXPECT_EQ(actionPanel.first.temperature, 0); // 0 is not negative
    EXPECT_EQ(actionPanel.first.voltage, 0.45);
    EXPECT_NEAR(actionPanel.second.temperature, 250, 1e-4);
    // 0 .. 1 V in steps of 0.25 V; a new start leaves points and step alone.
    EXPECT_EQ(actionPanel.IV.points, 5);
    EXPECT_EQ(actionPanel.IV.start, -0.5);
    EXPECT_NEAR(actionPanel.IV.increment, 0.25, 1e-12);
    EXPECT_NEAR(actionPanel.Cf.increment, 7.5, 1e-12); // 31 points over 100 Hz .. 1 MHz
    // Short above long: swapped.  Half the light passes the filter.
    EXPECT_EQ(std::pair(wp.lambda_short, wp.lambda_long), std::pair(500.0, 900.0));
    EXPECT_NEAR(wp.power_incident, 0.5 * wp.power_cutoff, 1e-9);
}

TEST_F(ScriptCommands, SpectrumAndGenerationFiles) {
    std::filesystem::copy_file(In("spectrum", "AM1_5G 1 sun.spe"), In("spectrum", "other.spe"));
    WriteFile(In("generation", "g.gen"), "0 1e27\n0.5 1e27\n1 1e27\n");
    ASSERT_EQ(Run("action initialwp.spectrumfile other.spe\naction generationfile g.gen\n"), 0);
    EXPECT_EQ(secondwp.spectrumFile, In("spectrum", "other.spe"));
    EXPECT_EQ(wp.generationName, "g.gen"); // stored, but the light still comes from the spectrum
    EXPECT_EQ(wp.generationFromFile, 0);
    ASSERT_EQ(Run("action generationfromfile\naction generationfromfile.attenuation 40\n"), 0);
    EXPECT_EQ(wp.generationFromFile, 1);
    // 1e27 /m3 s over 1 µm, collected whole: q 1e21 /m2 s = 16.02 mA/cm2.
    EXPECT_NEAR(wp.idealLightCurrent, 16.02, 0.01);
    EXPECT_EQ(wp.attenuation, 40);
    EXPECT_TRUE(ReportedMessages().empty()) << AllMessages();
}

TEST_F(ScriptCommands, LoadAndSave) {
    std::filesystem::copy_file(std::filesystem::path(TERVO_SOURCE_DIR) / "home/def/cigs.def",
                               In("def", "cigs.def"));
    WriteFile(In("def", "mine.act"), "Temperature : 280 K\nIV_calculate : 1\n");
    WriteFile(In("def", "mine.wp2"), "Secondworkpoint Temperature : 250 K\n");
    ASSERT_EQ(
        Run("loadfile definition cigs.def // the cell\nload action mine.act\nload initialwp mine.wp2\n"
            "load measurement somefile.iv\nsave setting.definition copy.def\nsave setting.action copy.act\n"
            "save result.unknown u.txt\nsave setting.unknown u.txt\n"),
        0);
    EXPECT_TRUE(ReportedMessages().empty()) << AllMessages();
    EXPECT_EQ(actionPanel.second.temperature, 250);
    EXPECT_NE(ReadFile(In("def", "copy.act")).find("Temperature :   280.00 K"), std::string::npos);
    ASSERT_EQ(Laad_data_uit_file("copy.def"), 0);
    EXPECT_EQ(parameterset1.name, "copy.def");

    ASSERT_EQ(Run("load measurement.iv somefile.iv\nload batch b.sbf\nload alltervo a.tervo\n"
                  "save graph.iv.whole picture.png\nsave result.record r.txt\n"),
              0);
    EXPECT_EQ(ReportedMessages().size(), 5u) << AllMessages();
    EXPECT_FALSE(FileExists(In("results", "r.txt")));
}

TEST_F(ScriptCommands, ClearForms) {
    for (int slot = 0; slot < NUMBER_OF_SCRIPT_SLOTS; ++slot)
        theScript.svector[static_cast<size_t>(slot)] = {0, 1, 2, 3};
    ResizeScriptVector(theScript, 5, 1); // shorter than what is kept: stays
    theScript.svalue[0] = 4;
    ASSERT_EQ(Run("clear scriptvariables.allbutlast2\n"), 0);
    EXPECT_EQ(theScript.svector[0], (std::vector<double>{2, 3}));
    EXPECT_EQ(theScript.nvector[0], 2);
    EXPECT_EQ(theScript.svector[5], (std::vector<double>{0}));
    EXPECT_EQ(theScript.svalue[0], 4); // scalars are not touched
    ASSERT_EQ(Run("clear scriptvariables.allbutfirst3\nclear scriptvariables.other\n"), 0);
    EXPECT_EQ(theScript.svector[1].size(), 2u);

    actionPanel.QE.calculate = 1;
    actionPanel.first.voltage = 0.4;
    theScript.plotlist.push_back(ScriptPlot{});
    AppendDataListElement(1, actie, wp);
    ASSERT_EQ(Run("clear action\nclear scriptgraph\nclear simulations\n"), 0);
    EXPECT_EQ(actionPanel.QE.calculate, 0);
    EXPECT_EQ(actionPanel.first.voltage, 0);
    EXPECT_TRUE(theScript.plotlist.empty());
    EXPECT_EQ(pointer_naar_eerste(), nullptr);
    EXPECT_EQ(theScript.svalue[0], 0);
    EXPECT_EQ(theScript.svector[1], (std::vector<double>(3, 0.0)));
    EXPECT_TRUE(ReportedMessages().empty()) << AllMessages();
}

TEST_F(ScriptCommands, SystemCommandsScriptsAndTheUserLibrary) {
    WriteFile(In("script", "other.script"), "action workingpoint.temperature 295\n");
    theScript.status = 5;
    ASSERT_EQ(Run("runsystem touch " + (home / "a.txt").string() + "\nrun system touch " +
                  (home / "b.txt").string() + "\nrun script other.script\nrun nothing at all\nrundll\n"),
              0);
    EXPECT_TRUE(FileExists((home / "a.txt").string()) && FileExists((home / "b.txt").string()));
    EXPECT_EQ(actionPanel.first.temperature, 295);
    EXPECT_EQ(theScript.status, 5);
    EXPECT_EQ(Count("Error whilst processing rundll command in script",
                    "Script command: rundll\nNo user library " + (home / USER_LIBRARY_NAME).string() +
                        " was found: the line is refused"),
              1);
    EXPECT_EQ(ReportedMessages().size(), 1u) << AllMessages();

    const std::string source = (home / "user.c").string();
    WriteFile(source,
              "#include <string.h>\n"
              "int TERVOUserFunction(int mode, double* x, double* y, double* v[6], int n[6], double* err,\n"
              "                      char* name) {\n"
              "    *x += 1; *y = n[0]; v[0][0] = 42; n[1] = 1; *err = 0;\n"
              "    strcpy(name, \"fromlibrary\");\n"
              "    return 7 + mode;\n"
              "}\n");
    const std::string build =
        "cc -shared -fPIC -o '" + (home / USER_LIBRARY_NAME).string() + "' '" + source + "' 2>/dev/null";
    if (std::system(build.c_str()) != 0) GTEST_SKIP() << "no C compiler to build a user library";
    theScript.mode = 2;
    // The library sets looperror to 0: the loop ends after its first pass.
    ASSERT_EQ(Run("loop start\nrundll\nloop stop\n"), 0);
    EXPECT_EQ(theScript.status, 9);
    EXPECT_EQ(theScript.svalue[0], 1); // one pass only
    EXPECT_EQ(theScript.svalue[1], 3);
    EXPECT_EQ(theScript.svector[0][0], 42);
    EXPECT_EQ(theScript.nvector[1], 1);
    EXPECT_EQ(theScript.svector[1].size(), 1u);
    EXPECT_EQ(theScript.filename, "fromlibrary");
    EXPECT_EQ(ReportedMessages().size(), 1u) << AllMessages();
}

} // namespace
} // namespace tervo::testing
