// The script language itself: taking a line apart, comments, the keyword tests of the command and
// action tables, the forms of a value and of a target.
#include <gtest/gtest.h>

#include <string>

#include "script/load_save_commands.h"
#include "script/script_runner.h"
#include "script/script_values.h"
#include "script_test_home.h"

namespace tervo::testing {
namespace {

TEST(ScriptTokenising, LinesArgumentsAndComments) {
    std::string line = "  action\tworkingpoint.voltage   0.5   V  ";
    std::string command, argument, value;
    InterpretScriptLine(line, &command, &argument, &value);
    EXPECT_EQ(command + "|" + argument + "|" + value, "action|workingpoint.voltage|0.5   V  ");

    auto clean = [](std::string v) {
        RemoveCommentsFromValue(v);
        return v;
    };
    EXPECT_EQ(clean("file.def // my cell"), "file.def");
    EXPECT_EQ(clean("..\\cells\\a.def"), ""); // a relative path upward cannot be written
    EXPECT_EQ(clean("xvector[yvector[0]]"), "xvector[yvector[0]]"); // "]]" is no comment
    EXPECT_EQ(clean("3 -- three"), "3");
    EXPECT_EQ(clean("aa bb  "), "aa bb"); // doubled letters are text; trailing blanks go

    std::string p1, p2, p3, p4;
    InterpretScriptVariable("a.b..d.e", p1, p2, p3, p4);
    EXPECT_EQ(p1 + "|" + p2 + "|" + p3 + "|" + p4, "a|b||d"); // the fifth part is dropped
}

TEST(ScriptTokenising, KeywordsMatchByPrefixInAnyCaseAndTableOrderDecides) {
    const int set = ScriptCommandCode("set");
    EXPECT_EQ(ScriptCommandWord(set), std::string("set"));
    EXPECT_EQ(ScriptCommandCode("Settle"), set);
    EXPECT_EQ(ScriptCommandWord(ScriptCommandCode("RunScript")), std::string("runscript"));
    EXPECT_EQ(ScriptCommandWord(ScriptCommandCode("runsys")), std::string("run"));
    EXPECT_EQ(ScriptCommandCode("//"), -1);

    auto action = [](const std::string& argument) { return ActionKeywordWord(ActionKeywordCode(argument)); };
    EXPECT_EQ(action("Darkness"), "dark");
    EXPECT_EQ(action("iv.stopafterVoc"), "iv.stopafterVoc"); // not "iv.stopV"
    EXPECT_EQ(action("cf.points"), "");                      // the per-decade count is named in full
    EXPECT_EQ(action("initialworkpoint.temperature"), "");
}

class ScriptValues : public ScriptHome {
protected:
    ScriptVariables s;
    void SetUp() override {
        ScriptHome::SetUp();
        InitialiseScriptVariables(s);
        s.svector[0] = {10, 11, 12};
        s.svector[1] = {1.9, 7, 8, 9};
        s.nvector[1] = 4;
        s.sindex[1] = 2;
        s.svalue[2] = -4.5;
        s.looperror = 0.25;
    }
    double V(const std::string& text) { return ScriptValueToNumerical(text, s, "cmd " + text); }
};

TEST_F(ScriptValues, VariablesNumbersAndIndices) {
    EXPECT_EQ(V("ZVALUE"), -4.5);
    EXPECT_EQ(V("xvector[last]"), 12);
    EXPECT_EQ(V("xvector[yindex]"), 12);
    EXPECT_EQ(V("xvector[yvector[0]]"), 11); // 1.9 truncated
    EXPECT_EQ(V("yvector[nx]"), 9);
    EXPECT_EQ(V("yvector[last-1]"), 9); // no expressions
    EXPECT_EQ(V("maxiteration") + V("looperror"), 25.25);
    EXPECT_EQ(V("2.5e3 V"), 2500);
    EXPECT_EQ(V(""), -1.0);
    EXPECT_TRUE(ReportedMessages().empty()) << AllMessages();

    // A value that is not understood counts as -1 and reports itself.
    for (const char* value : {"qvalue", "nq", "xvector[3]", "xvector[nx]", "volts"}) {
        ClearReportedMessages();
        EXPECT_EQ(V(value), -1.0) << value;
        EXPECT_EQ(ReportedMessages().size(), 1u) << value;
    }
    EXPECT_EQ(ReportedMessages()[0].text, "Command line: cmd volts\nvalue not recognised: value = volts");
}

TEST_F(ScriptValues, TargetsStoreTruncateAppendPushAndRefuse) {
    PostProcesValue(-2.7, "windex", s, "a");
    EXPECT_EQ(s.sindex[5], -2);
    PostProcesValue(5, "xvector[-1]", s, "a"); // appends
    PostProcesValue(6, "xvector", s, "a");     // pushes at the front
    PostProcesValue(7, "xvector[last]", s, "a");
    EXPECT_EQ(s.svector[0], (std::vector<double>{6, 10, 11, 12, 7}));
    EXPECT_EQ(s.nvector[0], 5);
    PostProcesValue(4.9, "nz", s, "a");
    EXPECT_EQ(s.svector[2], (std::vector<double>(4, 0.0)));
    EXPECT_TRUE(ReportedMessages().empty()) << AllMessages();

    // A target that is not understood leaves every vector alone and reports itself.
    const auto vectors = s.svector;
    for (const char* target : {"qvalue", "xvector[5]", "xvector[nx]", "volts"}) {
        ClearReportedMessages();
        PostProcesValue(1, target, s, "a");
        EXPECT_EQ(ReportedMessages().size(), 1u) << target;
    }
    EXPECT_EQ(ReportedMessages()[0].text, "Command line: get a volts\nTarget not recognised: target = volts");
    EXPECT_EQ(s.svector, vectors);
    PostProcesValue(-3, "loopcounter", s, "a");
    EXPECT_EQ(s.loopcounter, -3); // stored all the same
    EXPECT_EQ(
        Count("Warning in the target value of Get command",
              "Command line: get a loopcounter\na negative loopcounter parameter was passed: mode = -3"),
        1);
}

} // namespace
} // namespace tervo::testing
