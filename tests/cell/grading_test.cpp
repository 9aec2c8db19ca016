// Graded properties: every law against its closed form, the robustness of the exponential, log,
// power and beta laws, grading files with their option lines, end values, and the description of
// defect densities from before version 2.7.
#include "cell/grading.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <numbers>
#include <string>
#include <vector>

#include "cell/expect_values.h"
#include "platform/files.h"
#include "platform/messages.h"

namespace tervo {
namespace {

namespace fs = std::filesystem;
using namespace tervo::test;

// A profile over position with end values a (x = 0) and b (x = W).
Profile PositionProfile(int law, double a, double b, double p1 = 0, double p2 = 0, double p3 = 0) {
    Profile p;
    InitialiseProfile(p);
    p.law = law;
    p.dependence = DEP_POSITION;
    p.leftValue = a;
    p.rightValue = b;
    p.lawPar1 = p1;
    p.lawPar2 = p2;
    p.lawPar3 = p3;
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

void ExpectRelNear(double expected, double actual, double rel) {
    EXPECT_NEAR(actual, expected, std::fabs(expected) * rel) << "expected " << expected;
}

TEST(GradingLaws, EachLawFollowsItsClosedForm) {
    const double a = 1.1e16, b = 3e18;
    struct Case {
        int law;
        double p1, p2, p3;
        double (*expected)(double t, double x, double a, double b);
    };
    const Case cases[] = {
        {LAW_LINEAR, 0, 0, 0, [](double t, double, double a, double b) { return a + (b - a) * t; }},
        {LAW_ALPHA, 0, 0, 0, [](double t, double, double a, double b) { return a + (b - a) * t; }},
        // Bowing 4e18: the parabola dips below the minimal value 1e15 near the left end.
        {LAW_PARABOLIC, 4e18, 1e15, 0,
         [](double t, double, double a, double b) {
             return std::max(a + (b - a) * t - 4e18 * t * (1 - t), 1e15);
         }},
        {LAW_LOGARITHMIC, 0, 0, 0,
         [](double t, double, double a, double b) {
             return std::exp((1 - t) * std::log(a) + t * std::log(b));
         }},
        {LAW_EXPONENTIAL, 1e15, 0.4, 0.25,
         [](double, double x, double a, double b) {
             return 1e15 + (a - 1e15) * std::sinh((kW - x) / 0.4) / std::sinh(kW / 0.4) +
                    (b - 1e15) * std::sinh(x / 0.25) / std::sinh(kW / 0.25);
         }},
        // I_t(3, 1) = t^3.
        {LAW_BETA, 3, 1, 0, [](double t, double, double a, double b) { return a + (b - a) * t * t * t; }},
        {LAW_POWER, 2.5, 0, 0,
         [](double t, double, double a, double b) {
             return std::pow((1 - t) * std::pow(a, 0.4) + t * std::pow(b, 0.4), 2.5);
         }},
    };
    for (const Case& c : cases) {
        Profile p = PositionProfile(c.law, a, b, c.p1, c.p2, c.p3);
        const auto r = Evaluate(p, kX);
        for (size_t i = 0; i < kX.size(); ++i) ExpectRelNear(c.expected(kX[i] / kW, kX[i], a, b), r[i], 1e-7);
        EXPECT_NEAR(r.front(), a, a * 1e-15) << "law " << c.law;
        EXPECT_NEAR(r.back(), b, b * 1e-15) << "law " << c.law;
    }

    // Effective medium over the composition (W = 1): (w + sqrt(8ab + w^2))/4.
    Profile em;
    InitialiseProfile(em);
    em.law = LAW_EFFECTIVE_MEDIUM;
    em.dependence = DEP_COMPOSITION;
    em.pureA = 10;
    em.pureB = 4;
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
    Profile tiny = PositionProfile(LAW_EXPONENTIAL, a, b, bg, 1e-9, 0.0);
    const auto r = Evaluate(tiny, {0.0, 0.002, 1.0, 1.999, 2.0});
    ExpectRelNear(bg + (a - bg) * std::exp(-2.0), r[1], 1e-12);
    EXPECT_EQ(r[2], bg); // both flanks more than 80 lengths away
    ExpectRelNear(bg + (b - bg) * std::exp(-1.0), r[3], 1e-12);
    EXPECT_EQ(r[0], a);
    EXPECT_EQ(r[4], b);
    // Very long lengths make both flanks linear.
    Profile huge = PositionProfile(LAW_EXPONENTIAL, a, b, bg, 1e6, 1e6);
    const auto h = Evaluate(huge, kX);
    for (size_t i = 0; i < kX.size(); ++i) ExpectRelNear(a + (b - a) * kX[i] / kW, h[i], 1e-9);

    // Logarithmic with a zero end: a becomes the larger of 1e-10 and 1e-10 of b.
    Profile lg = PositionProfile(LAW_LOGARITHMIC, 0.0, 1e18);
    const auto l = Evaluate(lg, kX);
    EXPECT_EQ(l.front(), 1e8);
    ExpectRelNear(std::pow(1e8, 1 - 1.1 / kW) * std::pow(1e18, 1.1 / kW), l[2], 1e-12);

    // Beta function: exact ends (0.1 + 0.2 * 1 is not exactly 0.3); parameters clipped to 0.001..1000.
    Profile beta = PositionProfile(LAW_BETA, 0.1, 0.3, 0.0, 1e9);
    Profile limits = PositionProfile(LAW_BETA, 0.1, 0.3, 0.001, 1000);
    const auto rb = Evaluate(beta, kX), rl = Evaluate(limits, kX);
    EXPECT_EQ(rb.front(), 0.1);
    EXPECT_EQ(rb.back(), 0.3);
    for (size_t i = 0; i < kX.size(); ++i) EXPECT_DOUBLE_EQ(rb[i], rl[i]);

    // Power law: m below 0.001 acts as 0.001; a^(1/m) would overflow, the law does not.
    Profile pw = PositionProfile(LAW_POWER, 1e20, 1e21, 1e-8);
    ExpectRelNear(1e21 * std::pow(0.5, 0.001), Evaluate(pw, {0.0, 1.0, 2.0})[1], 1e-12);

    // One mesh point in a layer: no width, every law gives the left value.
    for (int law : {LAW_LINEAR, LAW_LOGARITHMIC, LAW_EXPONENTIAL, LAW_BETA, LAW_POWER, LAW_PARABOLIC2}) {
        Profile p = PositionProfile(law, 7.0, 9.0, 1.0, 1.0, 1.0);
        EXPECT_EQ(Evaluate(p, {1.3, 1.3})[1], 7.0) << "law " << law;
    }
}

TEST(GradingLaws, Parabolic2InsideOutsideAndAtAnEnd) {
    const double a = 3.0, b = 5.0, ym = 1.0;
    auto quadratic = [&](double x, double xm) {
        const double d = x < xm ? (0 - xm) : (kW - xm);
        return (x - xm) * (x - xm) * ((x < xm ? a : b) - ym) / (d * d) + ym;
    };
    Profile inside = PositionProfile(LAW_PARABOLIC2, a, b, 0.5, ym);
    const auto r = Evaluate(inside, kX);
    for (size_t i = 0; i < kX.size(); ++i) EXPECT_NEAR(r[i], quadratic(kX[i], 0.5), 1e-12);

    // Extremum outside the range: a quartic in (x - p1) through both ends.
    Profile outside = PositionProfile(LAW_PARABOLIC2, a, b, -1.0, ym);
    const auto o = Evaluate(outside, kX);
    EXPECT_NEAR(o.front(), a, 1e-12);
    EXPECT_NEAR(o.back(), b, 1e-12);
    const double d0 = 1, d1 = 9, Q = kW * 4 * d1 * d0, u = 2.1 * 2.1;
    const double C = (d0 * (b - ym) - d1 * (a - ym)) / Q, E = (d1 * d1 * (a - ym) - d0 * d0 * (b - ym)) / Q;
    EXPECT_NEAR(o[2], (u * C + E) * u + ym, 1e-12);

    // Extremum at an end: that side's coefficient has a zero denominator and counts as 0.
    for (double xm : {0.0, kW}) {
        Profile atEnd = PositionProfile(LAW_PARABOLIC2, a, b, xm, ym);
        const auto e = Evaluate(atEnd, kX);
        EXPECT_EQ(xm == 0 ? e.front() : e.back(), ym);
        EXPECT_NEAR(e[2], quadratic(1.1, xm), 1e-12);
    }
}

TEST(GradingLaws, UniformLawsAndWhichLawsWriteBack) {
    Profile p0 = PositionProfile(LAW_UNIFORM, 2.0, 6.0);
    Profile p10 = PositionProfile(LAW_UNIFORM_PURE_B, 2.0, 6.0);
    Profile p11 = PositionProfile(LAW_UNIFORM_Y, 2.0, 6.0);
    // Written back although the flag is 0.
    ExpectExact(Evaluate(p0, kX)[2], 2.0, Evaluate(p10, kX)[2], 6.0, Evaluate(p11, kX)[2], 4.0, p0.rightValue,
                2.0, p10.leftValue, 6.0, p11.leftValue, 4.0);

    // Over the composition the abscissae are y; first and last results are the layer's ends.
    const std::vector<double> y = {0.2, 0.5, 0.7};
    for (int law : {LAW_LINEAR, LAW_EFFECTIVE_MEDIUM, LAW_ALPHA}) {
        Profile p;
        InitialiseProfile(p);
        p.law = law;
        p.dependence = DEP_COMPOSITION;
        p.pureA = 1.0;
        p.pureB = 3.0;
        p.leftValue = p.rightValue = -1;
        Evaluate(p, y, 0);
        EXPECT_EQ(p.leftValue, -1);
        const auto r = Evaluate(p, y, 1);
        EXPECT_EQ(p.leftValue, law == LAW_LINEAR ? r[0] : -1) << "law " << law;
        EXPECT_EQ(p.rightValue, law == LAW_LINEAR ? r[2] : -1) << "law " << law;
    }
}

TEST(GradingLaws, TableIsLinearAndHeldBeyondItsEnds) {
    Profile p;
    InitialiseProfile(p);
    p.law = LAW_TABLE;
    p.dependence = DEP_POSITION;
    p.xlist = {0.5, 1.0, 2.0};
    p.ylist = {10, 20, 0};
    p.npoints = 3;
    const auto r = Evaluate(p, {0.0, 0.75, 1.5, 3.0});
    ExpectExact(r[0], 10, r[3], 0);
    ExpectWithin(1e-12, r[1], 15, r[2], 10);
}

TEST(IncompleteBeta, KnownValuesAndSymmetry) {
    for (double x : {0.05, 0.3, 0.5, 0.77, 0.99}) {
        EXPECT_NEAR(IncompleteBeta(1, 1, x), x, 1e-7);
        EXPECT_NEAR(IncompleteBeta(2, 2, x), 3 * x * x - 2 * x * x * x, 1e-7);
        EXPECT_NEAR(IncompleteBeta(3.5, 1, x), std::pow(x, 3.5), 1e-7);
        EXPECT_NEAR(IncompleteBeta(1, 4, x), 1 - std::pow(1 - x, 4), 1e-7);
        EXPECT_NEAR(IncompleteBeta(2.7, 0.6, x), 1 - IncompleteBeta(0.6, 2.7, 1 - x), 1e-7);
    }
    EXPECT_NEAR(IncompleteBeta(7, 7, 0.5), 0.5, 1e-7);
    EXPECT_EQ(IncompleteBeta(2, 3, 0), 0);
    EXPECT_EQ(IncompleteBeta(2, 3, -1), 0);
    EXPECT_EQ(IncompleteBeta(2, 3, 1), 1);
    EXPECT_NEAR(gammaln(5), std::log(24.0), 1e-10);
    EXPECT_NEAR(gammaln(0.5), 0.5 * std::log(std::numbers::pi), 1e-10);
    EXPECT_NEAR(gammaln(10.3), std::lgamma(10.3), 1e-9);
}

TEST(TableInterpolation, LinInterpCodesAndExtrapolation) {
    const double x[] = {1, 2, 4};
    const double y[] = {10, 20, 0};
    // Columns: points used, abscissa, return code, value (outside the table: the line through the
    // nearest two points).
    const double cases[][4] = {{3, 3.0, 1, 10}, {3, 2.0, 1, 20}, {3, 0.0, -2, 0}, {3, 5.0, -2, -10}};
    for (const auto& c : cases) {
        double v = 0;
        EXPECT_EQ(LinInterp(x, y, static_cast<int>(c[0]), c[1], v), c[2]) << "x = " << c[1];
        EXPECT_DOUBLE_EQ(v, c[3]) << "x = " << c[1];
    }
    double v = 0;
    EXPECT_EQ(LinInterp(x, y, 1, 7.0, v), 1);
    EXPECT_EQ(v, 10);
    EXPECT_EQ(LinInterp(x, y, 0, 1.0, v), -1);
    const double unsorted[] = {1, 3, 3};
    EXPECT_EQ(LinInterp(unsorted, y, 3, 2.0, v), -3);
    EXPECT_STREQ(LinInterpMessage(-3), "Error in LinInterp: x array does not rise monotonically");
}

TEST(TableInterpolation, LogInterpOnTheLogarithm) {
    const double x[] = {0, 1, 2};
    const double falls[] = {1e10, 1e12, 1e11}, rises[] = {1e12, 1e11, 1e10}, zero[] = {0, 1, 2};
    // A table that falls outward keeps its end value, one that rises outward is continued on the
    // logarithm; a non-positive value inside the interval gives -4.
    const struct {
        const double* y;
        double x;
        int code;
        double value, rel; // rel 0: the exact value
    } cases[] = {{falls, 0.5, 1, 1e11, 1e-12}, {falls, 1.5, 1, std::sqrt(1e23), 1e-12},
                 {falls, -1.0, -2, 1e10, 0},   {rises, -1.0, -2, 1e13, 1e-12},
                 {rises, 3.0, -2, 1e10, 0},    {zero, -1, -2, 0, 0}};
    for (const auto& c : cases) {
        double v = -1;
        EXPECT_EQ(LogInterp(x, c.y, 3, c.x, v), c.code) << "x = " << c.x;
        EXPECT_NEAR(v, c.value, c.rel * c.value) << "x = " << c.x;
    }
    double v = 0;
    EXPECT_EQ(LogInterp(x, zero, 3, 0.5, v), -4);
}

// ---------------------------------------------------------------------------------------------
// Grading files.

class GradingFiles : public ::testing::Test {
protected:
    // A home tree of its own for each test, so that tests may run side by side.
    void SetUp() override {
        const std::string test = ::testing::UnitTest::GetInstance()->current_test_info()->name();
        home = fs::temp_directory_path() / ("tervo_grading_" + test);
        fs::remove_all(home);
        fs::create_directories(home / "grading");
        previousHome = GetProjectDir();
        SetProjectDir(home.string());
        ClearReportedMessages();
    }
    void TearDown() override {
        SetProjectDir(previousHome);
        fs::remove_all(home);
    }

    std::string Write(const std::string& name, const std::string& text) {
        const fs::path path = home / "grading" / name;
        std::ofstream(path) << text;
        return path.string();
    }

    Profile FileProfile(const std::string& name, int variableId, int dependence) {
        Profile p;
        InitialiseProfile(p);
        p.law = LAW_FROM_FILE;
        p.dependence = dependence;
        p.variableId = variableId;
        p.gradingFile = name;
        p.fileState = 0;
        p.thickness = 2.0;
        return p;
    }

    fs::path home;
    std::string previousHome;
};

TEST_F(GradingFiles, BareNameIsFoundInTheGradingFolderWithDefaultOptions) {
    const std::string path = Write("doping.grd", "position (um)\tNd (m-3)\n"
                                                 "# a comment\n"
                                                 "\n"
                                                 "0.0  1e22\n"
                                                 "1.0\n" // one number: not data
                                                 "1.0\t1e24  trailing words\n");
    Profile nd = FileProfile("doping.grd", VAR_ND, DEP_POSITION);
    const auto r = Evaluate(nd, {0.0, 0.5, 1.0});
    EXPECT_EQ(nd.gradingFile, path);
    EXPECT_EQ(nd.fileState, 2);
    EXPECT_EQ(nd.logInterpolation, 1); // the default of a density
    EXPECT_EQ(nd.relativePosition, 0);
    ExpectRelNear(1e22, r[0], 1e-12);
    ExpectRelNear(1e23, r[1], 1e-12);
    ExpectRelNear(1e24, r[2], 1e-12);
    EXPECT_TRUE(ReportedMessages().empty());

    // An energy interpolates linearly by default; beyond the file it is extrapolated.
    Write("gap.grad", "0 1.0\n1 2.0\n");
    Profile eg = FileProfile("gap.grad", VAR_EG, DEP_COMPOSITION);
    const auto g = Evaluate(eg, {0.25, 1.5});
    EXPECT_EQ(eg.logInterpolation, 0);
    EXPECT_NEAR(g[0], 1.25, 1e-12);
    EXPECT_NEAR(g[1], 2.5, 1e-12);
}

TEST_F(GradingFiles, OptionLinesSetInterpolationAndPositions) {
    // Case-insensitive, first of each kind wins.
    Write("lin.grd", "Interpolation: LIN\ninterpolation: log\n0 1e22\n1 1e24\n");
    Profile lin = FileProfile("lin.grd", VAR_ND, DEP_POSITION);
    EXPECT_NEAR(Evaluate(lin, {0.5})[0], 0.5 * (1e22 + 1e24), 1e10);
    EXPECT_EQ(lin.logInterpolation, 0);

    // A name with a folder stays as it is.
    const std::string path = Write("log.grd", "INTERPOLATION: log\n0 1.0\n1 100.0\n");
    Profile lg = FileProfile(path, VAR_EG, DEP_COMPOSITION);
    EXPECT_NEAR(Evaluate(lg, {0.5})[0], 10.0, 1e-12);
    EXPECT_EQ(lg.gradingFile, path);
    // Once read, the options are the profile's own (a panel may change them).
    lg.logInterpolation = 0;
    EXPECT_NEAR(Evaluate(lg, {0.5})[0], 50.5, 1e-12);

    // Relative positions are fractions of the thickness (2 µm here).
    for (const char* option : {"position: rel", "thickness: rel", "Position: Rel"}) {
        Write("rel.grd", std::string(option) + "\n0 1.0\n0.5 3.0\n1 2.0\n");
        Profile p = FileProfile("rel.grd", VAR_EG, DEP_POSITION);
        const auto r = Evaluate(p, {0.5, 1.0, 1.5});
        EXPECT_EQ(p.relativePosition, 1) << option;
        EXPECT_NEAR(r[0], 2.0, 1e-12) << option;
        EXPECT_NEAR(r[1], 3.0, 1e-12) << option;
        EXPECT_NEAR(r[2], 2.5, 1e-12) << option;
    }
    Write("abs.grd", "thickness: abs\nposition: rel\n0 1.0\n1 3.0\n");
    Profile ab = FileProfile("abs.grd", VAR_EG, DEP_POSITION);
    EXPECT_NEAR(Evaluate(ab, {0.5})[0], 2.0, 1e-12);
    EXPECT_EQ(ab.relativePosition, 0);

    // Relative positions do not apply to a composition abscissa.
    Write("relY.grd", "position: rel\n0 1.0\n1 3.0\n");
    Profile ry = FileProfile("relY.grd", VAR_EG, DEP_COMPOSITION);
    EXPECT_NEAR(Evaluate(ry, {0.5})[0], 2.0, 1e-12);
}

TEST_F(GradingFiles, UnsortedDataIsReportedAndGivesZeros) {
    const std::string path = Write("unsorted.grd", "0 1\n0.5 2\n0.5 3\n1 4\n");
    Profile p = FileProfile("unsorted.grd", VAR_EG, DEP_POSITION);
    const auto r = Evaluate(p, {0.0, 0.5, 1.0});
    for (double v : r) EXPECT_EQ(v, 0.0);
    ASSERT_EQ(ReportedMessages().size(), 1u);
    EXPECT_EQ(ReportedMessages()[0].title, "Error whilst reading gradingfile");
    const std::string& text = ReportedMessages()[0].text;
    const std::string head =
        "Unsorted data in " + path + "!\nposition values should be given in an increasing order.\nvalue[2]=";
    EXPECT_EQ(text.substr(0, head.size()), head);
    EXPECT_NE(text.find("should be larger than value[1]="), std::string::npos);
    EXPECT_EQ(text.back(), '!');

    ClearReportedMessages();
    Profile y = FileProfile("unsorted.grd", VAR_EG, DEP_COMPOSITION);
    Evaluate(y, {0.0});
    ASSERT_EQ(ReportedMessages().size(), 1u);
    EXPECT_NE(
        ReportedMessages()[0].text.find("\ncomposition values should be given in an increasing order.\n"),
        std::string::npos);
}

TEST_F(GradingFiles, NoUsefulDataIsReportedAndResultsStay) {
    const std::string path = Write("empty.grd", "interpolation: log\nonly text here\n");
    Profile p = FileProfile("empty.grd", VAR_EG, DEP_POSITION);
    const auto r = Evaluate(p, {0.0, 1.0});
    EXPECT_EQ(r[0], -999.0);
    ASSERT_EQ(ReportedMessages().size(), 1u);
    EXPECT_EQ(ReportedMessages()[0].title, "Error whilst reading gradingfile");
    EXPECT_EQ(ReportedMessages()[0].text, "No useful data available in " + path);
    EXPECT_EQ(p.fileState, 0);

    ClearReportedMessages();
    Profile missing = FileProfile("nowhere.grd", VAR_EG, DEP_POSITION);
    Evaluate(missing, {0.0});
    ASSERT_EQ(ReportedMessages().size(), 1u);
    EXPECT_EQ(ReportedMessages()[0].text,
              "No useful data available in " + (home / "grading" / "nowhere.grd").string());
}

TEST_F(GradingFiles, EndValuesOfALayerComeFromTheFilesInUserUnits) {
    LayerParameters layer;
    InitialiseLayerParameters(layer, 0, 1);
    layer.material.d = 2.0; // µm, user form

    // Composition graded by a file over relative position: y from 0.2 to 0.6.
    Write("y.grd", "position: rel\n0 0.2\n1 0.6\n");
    layer.composition.law = LAW_FROM_FILE;
    layer.composition.dependence = DEP_POSITION;
    layer.composition.gradingFile = "y.grd";
    layer.composition.fileState = 0;
    layer.composition.pureA = 0.3;
    layer.composition.pureB = 0.4;

    // Nd from a file in /m^3 over absolute position in µm.
    Write("nd.grd", "0 1e22\n2 1e24\n");
    Profile& nd = layer.material.Nd;
    nd.law = LAW_FROM_FILE;
    nd.dependence = DEP_POSITION;
    nd.gradingFile = "nd.grd";
    nd.fileState = 0;

    // Eg linear in y.
    Profile& eg = layer.material.Eg;
    eg.law = LAW_LINEAR;
    eg.dependence = DEP_COMPOSITION;
    eg.pureA = 1.0;
    eg.pureB = 2.0;

    // Nd comes out in /cm^3.
    RecalculateLeftRightValues(layer, -1);
    ExpectExact(layer.composition.pureA, 0, layer.composition.pureB, 1, nd.thickness, 2.0);
    ExpectWithin(1e-12, layer.composition.leftValue, 0.2, layer.composition.rightValue, 0.6, eg.leftValue,
                 1.2, eg.rightValue, 1.6, eg.pureA, 1.0, eg.pureB, 2.0);
    ExpectRelative(1e-12, nd.leftValue, 1e16, nd.rightValue, 1e18);

    // One id at a time leaves the others alone.
    eg.pureB = 3.0;
    nd.leftValue = 5;
    RecalculateLeftRightValues(layer, VAR_EG);
    EXPECT_NEAR(eg.rightValue, 2.2, 1e-12);
    EXPECT_EQ(nd.leftValue, 5);

    // The Nt of a level in the same way.
    Profile& nt = layer.srh[0][0].Nt;
    nt.law = LAW_LINEAR;
    nt.dependence = DEP_COMPOSITION;
    nt.pureA = 1e14;
    nt.pureB = 3e14;
    RecalculateLeftRightNtValue(nt, layer);
    ExpectRelative(1e-12, nt.leftValue, 1.4e14, nt.rightValue, 2.2e14);
}

// ---------------------------------------------------------------------------------------------
// Copies, units and the old description.

TEST(GradingCopies, CopyScalesValuesAndOnlyUnitParameters) {
    Profile from = PositionProfile(LAW_EXPONENTIAL, 2, 4, 1, 0.5, 0.7);
    from.pureA = 3;
    SetProfileScaleParameters(from); // law 4: lawPar1 carries the unit, lawPar2 not
    from.xlist = {1, 2};
    from.ylist = {3, 4};
    from.npoints = 2;
    Profile to;
    CopyProfile(to, from, 10);
    ExpectExact(to.leftValue, 20, to.rightValue, 40, to.pureA, 30, to.lawPar1, 10, to.lawPar2, 0.5,
                to.lawPar3, 0.7);
    EXPECT_TRUE(to.xlist.empty()); // a table only travels with law 13
    from.law = LAW_TABLE;
    CopyProfile(to, from, 2);
    EXPECT_EQ(to.ylist, (std::vector<double>{6, 8}));
    EXPECT_EQ(to.npoints, 2);
    ConvertTotalProfile_to_PeakProfile(to, 4);
    EXPECT_EQ(to.leftValue, 16);
    ConvertPeakProfile_to_TotalProfile(to, 4);
    EXPECT_EQ(to.leftValue, 4);

    // Writing Eg into a layer moves the cut-off wavelengths of the absorption with it.
    LayerParameters layer;
    InitialiseLayerParameters(layer, 0, 1);
    Profile eg = layer.material.Eg;
    eg.pureA = 1.24;
    eg.pureB = 2.48;
    ASSERT_EQ(WriteGradingInfoToMaterial(layer, VAR_EG, eg), 0);
    ExpectWithin(1e-9, layer.material.absorption.pureA, 1239.977 / 1.24, layer.material.absorption.pureB,
                 1239.977 / 2.48);
    Profile out;
    ASSERT_EQ(GetProfileFromLayer(layer, VAR_EG, out), 0);
    EXPECT_EQ(out.pureB, 2.48);
    EXPECT_EQ(GetProfileFromLayer(layer, 99, out), -1);

    double v[2] = {1e22, 2e22}; // /m^3 to /cm^3
    out.variableId = VAR_NA;
    Convert_m_To_cm_Units(out, v, 2);
    EXPECT_EQ(v[1], 2e16);
}

BulkRecombinationParameters LevelWithPeak(double peak) {
    BulkRecombinationParameters level;
    InitialiseBulkRecombinationParameters(level, 0, 0);
    level.energy.peakToTotal = peak;
    return level;
}

TEST(OldDefectDescription, ExponentialRisesFromTheBackground) {
    BulkRecombinationParameters e = LevelWithPeak(1);
    e.profile = SPATIAL_EXPONENTIAL;
    e.Nleft = 1e14;
    e.Nright = 1e16;
    e.Lkar = 0.2;
    CopyTERVO27Data_to_NtProfile(e);
    const auto r = Evaluate(e.Nt, {0, 0.5, 1.0});
    ExpectExact(e.Nt.law, LAW_EXPONENTIAL, e.Nt.lawPar1, 1e14, e.Nt.lawPar3, 0.2, e.Nt.lawPar2, 200,
                e.Nt.unitPar1, 1, r[0], 1e14, r[2], 1e16);
    ExpectRelNear(1e14 + (1e16 - 1e14) * std::sinh(0.5 / 0.2) / std::sinh(1.0 / 0.2), r[1], 1e-9);
}

TEST(OldDefectDescription, RoundTripKeepsTheProfile) {
    struct Case {
        int law;
        int dependence;
        double left, right, p1, p2, p3;
        int oldProfile;
    };
    const Case cases[] = {
        {LAW_UNIFORM, DEP_UNIFORM, 3e14, 3e14, 3e14, 1, 1, SPATIAL_HOMOGENOUS},
        {LAW_LINEAR, DEP_POSITION, 3e14, 9e14, 3e14, 1, 1, SPATIAL_LINEAR},
        {LAW_EXPONENTIAL, DEP_POSITION, 3e14, 9e16, 3e14, 150, 0.15, SPATIAL_EXPONENTIAL},
        {LAW_EXPONENTIAL, DEP_POSITION, 9e16, 3e14, 3e14, 0.15, 150, SPATIAL_EXPONENTIAL},
    };
    for (const Case& c : cases) {
        BulkRecombinationParameters level = LevelWithPeak(2.5);
        Profile& nt = level.Nt;
        nt.law = c.law;
        nt.dependence = c.dependence;
        nt.pureA = nt.leftValue = c.left;
        nt.pureB = nt.rightValue = c.right;
        nt.lawPar1 = c.p1;
        nt.lawPar2 = c.p2;
        nt.lawPar3 = c.p3;
        SetProfileScaleParameters(nt);
        const Profile before = nt;

        SCOPED_TRACE("law " + std::to_string(c.law));
        CopyNtProfile_to_TERVO27Data(level);
        EXPECT_EQ(level.profile, c.oldProfile);
        ExpectDoubles(level.Nleft, 2.5 * c.left, level.Nright, 2.5 * c.right);
        nt = Profile{};
        CopyTERVO27Data_to_NtProfile(level);
        ExpectExact(nt.law, before.law, nt.dependence, before.dependence, nt.unitPar1, before.unitPar1);
        ExpectDoubles(nt.leftValue, before.leftValue, nt.rightValue, before.rightValue, nt.pureA,
                      before.pureA, nt.pureB, before.pureB, nt.lawPar1, before.lawPar1, nt.lawPar2,
                      before.lawPar2, nt.lawPar3, before.lawPar3);
    }
}

} // namespace
} // namespace tervo
