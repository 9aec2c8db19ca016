// Cells across the ranges that researchers use complete their light I-V; a point that is not a
// solution is never written as a number, and a figure past a cut curve is not given.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "run/results/result_list.h"
#include "support/program_run.h"
#include "support/stress_set.h"

namespace fs = std::filesystem;
using namespace tervo;
using namespace tervo::test;

namespace {

const fs::path kSource = TERVO_SOURCE_DIR;

std::string Shipped(const fs::path& file) {
    return ReadFile(kSource / file);
}

// Runs `cell` (definition text) under the shipped light I-V in a fresh home; the exit status, what it
// printed and its convergence record.
struct Outcome {
    int status = -1;
    std::string out, conv, iv;
};

Outcome LightIV(const std::string& name, const std::string& cell,
                const std::vector<std::string>& options = {},
                const std::string& actions = "examples/actions/light_iv.act") {
    ProgramHome home;
    WriteFile(home / (name + ".def"), cell);
    WriteFile(home / "light_iv.act", Shipped(actions));
    std::vector<std::string> arguments = options;
    arguments.insert(arguments.end(),
                     {"--home", home.path.string(), home / (name + ".def"), home / "light_iv.act"});
    Outcome r;
    r.status = RunProgram(arguments, &r.out);
    const fs::path conv = home.path / "results" / (name + ".conv");
    if (fs::exists(conv)) r.conv = ReadFile(conv);
    const fs::path iv = home.path / "results" / (name + ".iv");
    if (fs::exists(iv)) r.iv = ReadFile(iv);
    return r;
}

} // namespace

TEST(StressSet, EveryCheapVariantCompletesItsWholeSweep) {
    for (const StressVariant& v : StressGrid(true)) {
        SCOPED_TRACE(v.Name());
        const std::string cell = StressDefinition(Shipped(v.BaseCell()), v);
        ASSERT_FALSE(cell.empty());
        const Outcome r = LightIV(v.Name(), cell, {}, v.Actions());
        EXPECT_EQ(r.status, 0) << r.out;
        EXPECT_EQ(r.conv.find("\tcut"), std::string::npos) << r.conv;
        EXPECT_EQ(r.out.find("n/a"), std::string::npos) << r.out;
    }
}

TEST(StressSet, WithoutRetriesACurveIsCutAndItsFiguresPastTheCutAreNotGiven) {
    const StressVariant v{3, 1e16, 0};
    const Outcome r = LightIV(v.Name(), StressDefinition(Shipped("home/def/cigs.def"), v), {"--no-recovery"});
    EXPECT_EQ(r.status, 1);
    // The sweep walks up from 0 V: cut at its upper end, it has no point below 0 V either, so both the
    // short-circuit current and Voc would rest on extrapolation past the cut.
    EXPECT_NE(r.out.find("Jsc = n/a (curve cut at V = 0.8900 V)"), std::string::npos) << r.out;
    EXPECT_NE(r.conv.find("I-V\t31\t9.200000e-01\t-1\t"), std::string::npos) << r.conv;
    EXPECT_NE(r.iv.find("\nJsc =\tn/a (curve cut at V = 0.8900 V)\n"), std::string::npos) << r.iv;
}

// A damaged graded cell whose adaptive mesh once refined the interval at a contact without end, down
// to steps of 1e-21 m: there the link currents were rounding errors, the median current of the stack
// 0, and the states stopped moving without being solutions (its curve was written as 0.000 from some
// voltage on, with a Voc and an FF above the ideal-diode limit).  The mesh now stops at steps of
// 0.1 nm, every point of the curve is solved, and no point is zero but where the curve crosses it.
TEST(StressSet, AMeshThatRefinesWithoutEndNoLongerLeavesStatesThatAreNoSolution) {
    for (const std::string recovery : {"--no-recovery", "--scheme"}) {
        ProgramHome home;
        fs::copy_file(kSource / "tests/app/data/zero_curve.def", home / "zero_curve.def");
        WriteFile(home / "light_iv.act", Shipped("examples/actions/light_iv.act"));
        std::vector<std::string> arguments{recovery};
        if (recovery == "--scheme") arguments.push_back("11");
        arguments.insert(arguments.end(),
                         {"--home", home.path.string(), home / "zero_curve.def", home / "light_iv.act"});
        std::string out;
        EXPECT_EQ(RunProgram(arguments, &out), 3) << out; // the damaged lines are reported
        const std::string conv = ReadFile(home / "results/zero_curve.conv");
        EXPECT_EQ(conv.find("\tcut"), std::string::npos) << conv;
        std::istringstream rows(ReadFile(home / "results/zero_curve.iv"));
        int points = 0;
        for (std::string line; std::getline(rows, line);) {
            // A row of the curve: nine numbers, the voltage and the current first.
            std::istringstream fields(line);
            std::vector<double> row;
            for (double x = 0; fields >> x;) row.push_back(x);
            if (row.size() != 9 || !fields.eof()) continue;
            ++points;
            EXPECT_NE(row[1], 0.0) << "V = " << row[0];
        }
        EXPECT_EQ(points, 41) << recovery;
    }
}

// A damaged graded cell whose adaptive mesh at the end of the upper branch differs from that of the
// short circuit: the lower branch, which starts from the short circuit again, must carry the light of
// that mesh at once (it once started in the dark, and its first points were written as the dark
// current of a solved dark state).
TEST(StressSet, TheSecondBranchOfASweepStartsUnderTheSameLight) {
    const Outcome r = LightIV("lost_light", Shipped("tests/app/data/lost_light.def"));
    ASSERT_NE(r.status, 2) << r.out;
    std::istringstream rows(r.iv);
    int reverse = 0;
    for (std::string line; std::getline(rows, line);) {
        double V = 0, J = 0;
        if (std::sscanf(line.c_str(), "%lf %lf", &V, &J) != 2 || V >= 0 ||
            line.find('\t') == std::string::npos)
            continue;
        ++reverse;
        EXPECT_NEAR(J, -40.40, 0.05) << "V = " << V; // the photocurrent, as at every reverse-bias point
    }
    EXPECT_EQ(reverse, 4);
}
