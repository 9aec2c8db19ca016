// Graded properties: every law against its closed form, the robustness of the exponential, log,
// power and beta laws, grading files with their option lines, end values, and the description of
// defect densities from before version 2.7.
#include "cell/grading.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include "cell/expect_values.h"
#include "platform/files.h"
#include "platform/messages.h"
#include "support/temp_folder.h"

// Profiles are built with designated initializers; the members not named keep their defaults.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

using namespace tervo;
using namespace tervo::test;

namespace {

// A profile over position with end values a (x = 0) and b (x = W).
Profile Pos(int law, double a, double b, double p1 = 0, double p2 = 0, double p3 = 0) {
    Profile p{.law = law, .dependence = DEP_POSITION, .lawPar1 = p1, .lawPar2 = p2, .lawPar3 = p3};
    std::tie(p.leftValue, p.rightValue) = std::pair(a, b);
    return p;
}

std::vector<double> Evaluate(Profile& p, const std::vector<double>& x, int writeBack = 0) {
    std::vector<double> r(x.size(), -999.0);
    interpolation(p, x.data(), r.data(), writeBack, static_cast<int>(x.size()));
    return r;
}

// Positions in µm over a layer of 2 µm, ends included.
const std::vector<double> kX = {0.0, 0.3, 1.1, 1.75, 2.0};
constexpr double kW = 2.0;

TEST(GradingLaws, EachLawFollowsItsClosedForm) {
    const double a = 1.1e16, b = 3e18;
    const struct {
        int law;
        double p1, p2, p3;
        std::function<double(double t)> expected; // t = x / W
    } cases[] = {
        {LAW_LINEAR, 0, 0, 0, [&](double t) { return a + (b - a) * t; }},
        {LAW_ALPHA, 0, 0, 0, [&](double t) { return a + (b - a) * t; }},
        // Bowing 4e18: the parabola dips below the minimal value 1e15 near the left end.
        {LAW_PARABOLIC, 4e18, 1e15, 0,
         [&](double t) { return std::max(a + (b - a) * t - 4e18 * t * (1 - t), 1e15); }},
        {LAW_LOGARITHMIC, 0, 0, 0,
         [&](double t) { return std::exp((1 - t) * std::log(a) + t * std::log(b)); }},
        {LAW_EXPONENTIAL, 1e15, 0.4, 0.25,
         [&](double t) {
             return 1e15 + (a - 1e15) * std::sinh((1 - t) * kW / 0.4) / std::sinh(kW / 0.4) +
                    (b - 1e15) * std::sinh(t * kW / 0.25) / std::sinh(kW / 0.25);
         }},
        {LAW_BETA, 3, 1, 0, [&](double t) { return a + (b - a) * t * t * t; }}, // I_t(3, 1) = t^3
        {LAW_POWER, 2.5, 0, 0,
         [&](double t) { return std::pow((1 - t) * std::pow(a, 0.4) + t * std::pow(b, 0.4), 2.5); }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE("law " + std::to_string(c.law));
        Profile p = Pos(c.law, a, b, c.p1, c.p2, c.p3);
        const auto r = Evaluate(p, kX);
        for (size_t i = 0; i < kX.size(); ++i) ExpectRelative(1e-7, r[i], c.expected(kX[i] / kW));
        ExpectRelative(1e-15, r.front(), a, r.back(), b);
    }

    // Effective medium over the composition (W = 1): (w + sqrt(8ab + w^2))/4.
    Profile em{.law = LAW_EFFECTIVE_MEDIUM, .dependence = DEP_COMPOSITION, .pureA = 10, .pureB = 4};
    const std::vector<double> y = {0, 0.25, 0.6, 1};
    const auto re = Evaluate(em, y);
    for (size_t i = 0; i < y.size(); ++i) {
        const double w = 16 * (1 - y[i]) - 2 * y[i];
        EXPECT_NEAR(re[i], (w + std::sqrt(320 + w * w)) / 4, 1e-12);
    }
    EXPECT_NEAR(re.back(), 4, 1e-12);
}

TEST(GradingLaws, RobustAtTheLimitsOfTheirParameters) {
    // Exponential: lengths below 0.001 act as 0.001, W/L = 2000 gives pure decays without overflow.
    const double a = 1e21, b = 1e23, bg = 1e15;
    Profile tiny = Pos(LAW_EXPONENTIAL, a, b, bg, 1e-9, 0.0);
    const auto r = Evaluate(tiny, {0.0, 0.002, 1.0, 1.999, 2.0});
    ExpectRelative(1e-12, r[1], bg + (a - bg) * std::exp(-2.0), r[3], bg + (b - bg) * std::exp(-1.0));
    ExpectExact(r[2], bg, r[0], a, r[4], b); // r[2]: both flanks more than 80 lengths away
    // Very long lengths make both flanks linear.
    Profile huge = Pos(LAW_EXPONENTIAL, a, b, bg, 1e6, 1e6);
    const auto h = Evaluate(huge, kX);
    for (size_t i = 0; i < kX.size(); ++i) ExpectRelative(1e-9, h[i], a + (b - a) * kX[i] / kW);

    // Logarithmic with a zero end: a becomes the larger of 1e-10 and 1e-10 of b.
    Profile lg = Pos(LAW_LOGARITHMIC, 0.0, 1e18);
    const auto l = Evaluate(lg, kX);
    EXPECT_EQ(l.front(), 1e8);
    ExpectRelative(1e-12, l[2], std::pow(1e8, 1 - 1.1 / kW) * std::pow(1e18, 1.1 / kW));

    // Beta function: exact ends (0.1 + 0.2 * 1 is not exactly 0.3); parameters clipped to 0.001..1000.
    Profile beta = Pos(LAW_BETA, 0.1, 0.3, 0.0, 1e9), limits = Pos(LAW_BETA, 0.1, 0.3, 0.001, 1000);
    const auto rb = Evaluate(beta, kX), rl = Evaluate(limits, kX);
    ExpectExact(rb.front(), 0.1, rb.back(), 0.3);
    for (size_t i = 0; i < kX.size(); ++i) EXPECT_DOUBLE_EQ(rb[i], rl[i]);

    // Power law: m below 0.001 acts as 0.001; a^(1/m) would overflow, the law does not.
    Profile pw = Pos(LAW_POWER, 1e20, 1e21, 1e-8);
    ExpectRelative(1e-12, Evaluate(pw, {0.0, 1.0, 2.0})[1], 1e21 * std::pow(0.5, 0.001));

    // One mesh point in a layer: no width, every law gives the left value.
    for (int law : {LAW_LINEAR, LAW_LOGARITHMIC, LAW_EXPONENTIAL, LAW_BETA, LAW_POWER, LAW_PARABOLIC2}) {
        Profile p = Pos(law, 7.0, 9.0, 1.0, 1.0, 1.0);
        EXPECT_EQ(Evaluate(p, {1.3, 1.3})[1], 7.0) << "law " << law;
    }
}

TEST(GradingLaws, Parabolic2InsideOutsideAndAtAnEnd) {
    const double a = 3.0, b = 5.0, ym = 1.0;
    auto quadratic = [&](double x, double xm) {
        const double d = x < xm ? (0 - xm) : (kW - xm);
        return (x - xm) * (x - xm) * ((x < xm ? a : b) - ym) / (d * d) + ym;
    };
    Profile inside = Pos(LAW_PARABOLIC2, a, b, 0.5, ym);
    const auto r = Evaluate(inside, kX);
    for (size_t i = 0; i < kX.size(); ++i) EXPECT_NEAR(r[i], quadratic(kX[i], 0.5), 1e-12);

    // Extremum outside the range: a quartic in (x - p1) through both ends.
    Profile outside = Pos(LAW_PARABOLIC2, a, b, -1.0, ym);
    const auto o = Evaluate(outside, kX);
    const double d0 = 1, d1 = 9, Q = kW * 4 * d1 * d0, u = 2.1 * 2.1;
    const double C = (d0 * (b - ym) - d1 * (a - ym)) / Q, E = (d1 * d1 * (a - ym) - d0 * d0 * (b - ym)) / Q;
    ExpectWithin(1e-12, o.front(), a, o.back(), b, o[2], (u * C + E) * u + ym);

    // Extremum at an end: that side's coefficient has a zero denominator and counts as 0.
    for (double xm : {0.0, kW}) {
        Profile atEnd = Pos(LAW_PARABOLIC2, a, b, xm, ym);
        const auto e = Evaluate(atEnd, kX);
        EXPECT_EQ(xm == 0 ? e.front() : e.back(), ym);
        EXPECT_NEAR(e[2], quadratic(1.1, xm), 1e-12);
    }
}

TEST(GradingLaws, UniformLawsTablesAndWhichLawsWriteBack) {
    Profile p0 = Pos(LAW_UNIFORM, 2.0, 6.0), p10 = Pos(LAW_UNIFORM_PURE_B, 2.0, 6.0),
            p11 = Pos(LAW_UNIFORM_Y, 2.0, 6.0);
    // Written back although the flag is 0.
    ExpectExact(Evaluate(p0, kX)[2], 2.0, Evaluate(p10, kX)[2], 6.0, Evaluate(p11, kX)[2], 4.0, p0.rightValue,
                2.0, p10.leftValue, 6.0, p11.leftValue, 4.0);

    // Over the composition the abscissae are y; first and last results are the layer's ends.
    const std::vector<double> y = {0.2, 0.5, 0.7};
    for (int law : {LAW_LINEAR, LAW_EFFECTIVE_MEDIUM, LAW_ALPHA}) {
        SCOPED_TRACE("law " + std::to_string(law));
        Profile p{.law = law, .dependence = DEP_COMPOSITION, .pureA = 1, .pureB = 3};
        p.leftValue = p.rightValue = -1;
        Evaluate(p, y, 0);
        EXPECT_EQ(p.leftValue, -1);
        const auto r = Evaluate(p, y, 1);
        ExpectExact(p.leftValue, law == LAW_LINEAR ? r[0] : -1, p.rightValue, law == LAW_LINEAR ? r[2] : -1);
    }

    // A table is linear between its points and held beyond its ends.
    Profile t{.law = LAW_TABLE, .dependence = DEP_POSITION, .xlist = {0.5, 1, 2}, .ylist = {10, 20, 0}};
    t.npoints = 3;
    const auto r = Evaluate(t, {0.0, 0.75, 1.5, 3.0});
    ExpectExact(r[0], 10, r[3], 0);
    ExpectWithin(1e-12, r[1], 15, r[2], 10);
}

TEST(IncompleteBeta, KnownValuesAndSymmetry) {
    for (double x : {0.05, 0.3, 0.5, 0.77, 0.99})
        ExpectWithin(1e-7, IncompleteBeta(7, 7, x), 1 - IncompleteBeta(7, 7, 1 - x), IncompleteBeta(1, 1, x),
                     x, IncompleteBeta(2, 2, x), 3 * x * x - 2 * x * x * x, IncompleteBeta(3.5, 1, x),
                     std::pow(x, 3.5), IncompleteBeta(1, 4, x), 1 - std::pow(1 - x, 4),
                     IncompleteBeta(2.7, 0.6, x), 1 - IncompleteBeta(0.6, 2.7, 1 - x));
    ExpectExact(IncompleteBeta(2, 3, 0), 0, IncompleteBeta(2, 3, -1), 0, IncompleteBeta(2, 3, 1), 1);
}

TEST(TableInterpolation, LinearAndLogarithmicCodesAndExtrapolation) {
    const double x[] = {0, 1, 2}, unsorted[] = {0, 2, 2};
    const double lin[] = {10, 20, 0}, falls[] = {1e10, 1e12, 1e11}, rises[] = {1e12, 1e11, 1e10},
                 zero[] = {0, 1, 2};
    // Outside the table LinInterp follows the line through the nearest two points; LogInterp keeps
    // the end value of a table that falls outward and continues one that rises outward on the
    // logarithm.  One point: its value.
    // Logarithmic, table, points used, abscissa, return code, value, relative precision (0: exact).
    const std::tuple<bool, const double*, int, double, int, double, double> cases[] = {
        {false, lin, 3, 1.5, 1, 10, 0},
        {false, lin, 3, 1.0, 1, 20, 0},
        {false, lin, 3, -1.0, -2, 0, 0},
        {false, lin, 3, 3.0, -2, -20, 0},
        {false, lin, 1, 7.0, 1, 10, 0},
        {true, falls, 3, 0.5, 1, 1e11, 1e-12},
        {true, falls, 3, 1.5, 1, 3.1622776601683795e11, 1e-12},
        {true, falls, 3, -1.0, -2, 1e10, 0},
        {true, rises, 3, -1.0, -2, 1e13, 1e-12},
        {true, rises, 3, 3.0, -2, 1e10, 0},
        {true, zero, 3, -1, -2, 0, 0}};
    for (const auto& [log, y, n, at, code, value, rel] : cases) {
        SCOPED_TRACE((log ? "log, x = " : "linear, x = ") + std::to_string(at));
        double v = -1;
        EXPECT_EQ((log ? LogInterp : LinInterp)(x, y, n, at, v), code);
        EXPECT_NEAR(v, value, rel * std::fabs(value));
    }
    // No points, abscissae that do not rise, a non-positive value inside the interval on the logarithm.
    double v = 0;
    ExpectExact(LinInterp(x, lin, 0, 1.0, v), -1, LinInterp(unsorted, lin, 3, 1.0, v), -3,
                LogInterp(x, zero, 3, 0.5, v), -4);
    EXPECT_STREQ(LinInterpMessage(-3), "Error in LinInterp: x array does not rise monotonically");
}

// Grading files, in a home tree of its own for each test so that tests may run side by side.
class GradingFiles : public ::testing::Test {
protected:
    void SetUp() override {
        std::filesystem::create_directories(home.path / "grading");
        SetProjectDir(home.path.string());
        ClearReportedMessages();
    }
    void TearDown() override { SetProjectDir(previousHome); }
    std::string Write(const std::string& name, const std::string& text) {
        WriteFile(home / ("grading/" + name), text);
        return home / ("grading/" + name);
    }
    // A profile from a grading file over a layer of 2 µm.
    static Profile File(const std::string& name, int id, int dependence) {
        Profile p{.law = LAW_FROM_FILE, .dependence = dependence, .gradingFile = name, .variableId = id};
        p.thickness = 2;
        return p;
    }
    void ExpectOneReport(const std::string& title, const std::string& text) {
        ASSERT_EQ(ReportedMessages().size(), 1u);
        EXPECT_EQ(ReportedMessages()[0].title, title);
        EXPECT_EQ(ReportedMessages()[0].text, text);
        ClearReportedMessages();
    }
    TempFolder home;
    std::string previousHome = GetProjectDir();
};

TEST_F(GradingFiles, BareNameIsFoundInTheGradingFolderAndOptionLinesSetInterpolationAndPositions) {
    // Comments, empty lines, one-number lines and trailing words are no data.
    const std::string path = Write(
        "doping.grd", "position (um)\tNd (m-3)\n# a comment\n\n0.0  1e22\n1.0\n1.0\t1e24  trailing words\n");
    Profile nd = File("doping.grd", VAR_ND, DEP_POSITION);
    const auto r = Evaluate(nd, {0.0, 0.5, 1.0});
    EXPECT_EQ(nd.gradingFile, path);
    // A density interpolates on the logarithm by default.
    ExpectExact(nd.fileState, 2, nd.logInterpolation, 1, nd.relativePosition, 0);
    ExpectRelative(1e-12, r[0], 1e22, r[1], 1e23, r[2], 1e24);
    EXPECT_TRUE(ReportedMessages().empty());

    // File text, property, dependence, where and what it gives, and the options then held (log,
    // relative).  An energy interpolates linearly by default and is extrapolated beyond the file;
    // option lines are case-insensitive and the first of each kind wins; relative positions are
    // fractions of the thickness (2 µm here) and do not apply to a composition abscissa.
    const std::tuple<const char*, int, int, double, double, int, int> cases[] = {
        {"0 1.0\n1 2.0\n", VAR_EG, DEP_COMPOSITION, 0.25, 1.25, 0, 0},
        {"0 1.0\n1 2.0\n", VAR_EG, DEP_COMPOSITION, 1.5, 2.5, 0, 0},
        {"Interpolation: LIN\ninterpolation: log\n0 1e22\n1 1e24", VAR_ND, DEP_POSITION, 0.5, 5.05e23, 0, 0},
        {"INTERPOLATION: log\n0 1.0\n1 100.0\n", VAR_EG, DEP_COMPOSITION, 0.5, 10.0, 1, 0},
        {"position: rel\n0 1.0\n0.5 3.0\n1 2.0\n", VAR_EG, DEP_POSITION, 1.0, 3.0, 0, 1},
        {"thickness: rel\n0 1.0\n0.5 3.0\n1 2.0\n", VAR_EG, DEP_POSITION, 1.5, 2.5, 0, 1},
        {"Position: Rel\n0 1.0\n0.5 3.0\n1 2.0\n", VAR_EG, DEP_POSITION, 0.5, 2.0, 0, 1},
        {"thickness: abs\nposition: rel\n0 1.0\n1 3.0\n", VAR_EG, DEP_POSITION, 0.5, 2.0, 0, 0},
        {"position: rel\n0 1.0\n1 3.0\n", VAR_EG, DEP_COMPOSITION, 0.5, 2.0, 0, 1}};
    for (const auto& [text, id, dependence, x, value, log, relative] : cases) {
        SCOPED_TRACE(text);
        Write("case.grd", text);
        Profile p = File("case.grd", id, dependence);
        ExpectRelative(1e-14, Evaluate(p, {x})[0], value);
        ExpectExact(p.logInterpolation, log, p.relativePosition, relative);
    }

    // A name with a folder stays as it is; once read, the options are the profile's own (a panel may
    // change them).
    const std::string log = Write("log.grd", "INTERPOLATION: log\n0 1.0\n1 100.0\n");
    Profile lg = File(log, VAR_EG, DEP_COMPOSITION);
    Evaluate(lg, {0.5});
    EXPECT_EQ(lg.gradingFile, log);
    lg.logInterpolation = 0;
    EXPECT_NEAR(Evaluate(lg, {0.5})[0], 50.5, 1e-12);
}

TEST_F(GradingFiles, UnsortedEmptyAndMissingFilesAreReported) {
    const std::string path = Write("unsorted.grd", "0 1\n0.5 2\n0.5 3\n1 4\n");
    for (int dependence : {DEP_POSITION, DEP_COMPOSITION}) {
        Profile p = File("unsorted.grd", VAR_EG, dependence);
        EXPECT_EQ(Evaluate(p, {0.0, 0.5, 1.0}), std::vector<double>(3, 0.0)); // zeros
        ExpectOneReport(
            "Error whilst reading gradingfile",
            "Unsorted data in " + path + "!\n" + (dependence ? "position" : "composition") +
                " values should be given in an increasing order.\nvalue[2]=0.500000 should be larger "
                "than value[1]=0.500000!");
    }
    // No useful data: reported, and the results stay.
    const std::string empty = Write("empty.grd", "interpolation: log\nonly text here\n");
    Profile e = File("empty.grd", VAR_EG, DEP_POSITION);
    EXPECT_EQ(Evaluate(e, {0.0, 1.0})[0], -999.0);
    ExpectOneReport("Error whilst reading gradingfile", "No useful data available in " + empty);
    EXPECT_EQ(e.fileState, 0);
    Profile missing = File("nowhere.grd", VAR_EG, DEP_POSITION);
    Evaluate(missing, {0.0});
    ExpectOneReport("Error whilst reading gradingfile",
                    "No useful data available in " + home / "grading/nowhere.grd");
}

TEST_F(GradingFiles, EndValuesOfALayerComeFromTheFilesInUserUnits) {
    LayerParameters layer;
    InitialiseLayerParameters(layer, 0, 1);
    layer.material.d = 2.0; // µm, user form
    Profile &y = layer.composition, &nd = layer.material.Nd, &eg = layer.material.Eg,
            &nt = layer.srh[0][0].Nt;
    // Composition by a file over relative position, from 0.2 to 0.6; Nd in /m^3 over absolute
    // position in µm; Eg and the Nt of a level linear in y.
    Write("y.grd", "position: rel\n0 0.2\n1 0.6\n");
    Write("nd.grd", "0 1e22\n2 1e24\n");
    for (auto [p, name] : {std::pair{&y, "y.grd"}, {&nd, "nd.grd"}}) {
        p->law = LAW_FROM_FILE;
        p->dependence = DEP_POSITION;
        p->gradingFile = name;
    }
    std::tie(y.pureA, y.pureB) = std::pair(0.3, 0.4);
    for (auto [p, A, B] : {std::tuple{&eg, 1.0, 2.0}, {&nt, 1e14, 3e14}}) {
        p->law = LAW_LINEAR;
        p->dependence = DEP_COMPOSITION;
        std::tie(p->pureA, p->pureB) = std::pair(A, B);
    }

    // Nd comes out in /cm^3.
    RecalculateLeftRightValues(layer, -1);
    ExpectExact(y.pureA, 0, y.pureB, 1, nd.thickness, 2.0);
    ExpectWithin(1e-12, y.leftValue, 0.2, y.rightValue, 0.6, eg.leftValue, 1.2, eg.rightValue, 1.6, eg.pureA,
                 1.0, eg.pureB, 2.0);
    ExpectRelative(1e-12, nd.leftValue, 1e16, nd.rightValue, 1e18);
    RecalculateLeftRightNtValue(nt, layer);
    ExpectRelative(1e-12, nt.leftValue, 1.4e14, nt.rightValue, 2.2e14);

    // One id at a time leaves the others alone.
    std::tie(eg.pureB, nd.leftValue) = std::pair(3.0, 5.0);
    RecalculateLeftRightValues(layer, VAR_EG);
    EXPECT_NEAR(eg.rightValue, 2.2, 1e-12);
    EXPECT_EQ(nd.leftValue, 5);
}

// The description of defect densities from before version 2.7: a spatial form with Nleft, Nright
// and Lkar, in peak densities.  An exponential rises from the background at the lower end, whose
// flank is made a thousand times longer.
TEST(OldDefectDescription, RoundTripsKeepTheProfile) {
    // Law, dependence, left, right, three parameters, and the old form.
    const std::tuple<int, int, double, double, double, double, double, int> cases[] = {
        {LAW_UNIFORM, DEP_UNIFORM, 3e14, 3e14, 3e14, 1, 1, SPATIAL_HOMOGENOUS},
        {LAW_LINEAR, DEP_POSITION, 3e14, 9e14, 3e14, 1, 1, SPATIAL_LINEAR},
        {LAW_EXPONENTIAL, DEP_POSITION, 3e14, 9e16, 3e14, 150, 0.15, SPATIAL_EXPONENTIAL},
        {LAW_EXPONENTIAL, DEP_POSITION, 9e16, 3e14, 3e14, 0.15, 150, SPATIAL_EXPONENTIAL}};
    for (const auto& [law, dependence, left, right, p1, p2, p3, oldForm] : cases) {
        SCOPED_TRACE("law " + std::to_string(law));
        BulkRecombinationParameters level;
        InitialiseBulkRecombinationParameters(level, 0, 0);
        level.energy.peakToTotal = 2.5;
        Profile& nt = level.Nt = Pos(law, left, right, p1, p2, p3);
        nt.dependence = dependence;
        nt.pureA = left;
        nt.pureB = right;
        SetProfileScaleParameters(nt);
        const Profile before = nt;
        CopyNtProfile_to_TERVO27Data(level);
        EXPECT_EQ(level.profile, oldForm);
        ExpectDoubles(level.Nleft, 2.5 * left, level.Nright, 2.5 * right);
        nt = Profile{};
        CopyTERVO27Data_to_NtProfile(level);
        ExpectExact(nt.law, before.law, nt.dependence, before.dependence, nt.unitPar1, before.unitPar1);
        ExpectDoubles(nt.leftValue, left, nt.rightValue, right, nt.pureA, left, nt.pureB, right, nt.lawPar1,
                      p1, nt.lawPar2, p2, nt.lawPar3, p3);
    }
}

} // namespace
