// The format notation, composed and scanned, on the formats the result and settings files use.
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>

#include "platform/format.h"

using namespace tervo;

TEST(Fmt, NumbersTextAndLiteralsMatchTheFileFormatsCharacterForCharacter) {
    // Numbers wider than their field are written whole (never truncated, never asterisks); "*" takes a
    // width from the arguments; a double to %i is truncated toward zero, an integer to %f converted.
    const std::tuple<const char*, double, const char*> reals[] = {
        {"%f[w9p3e2]", 0.0, "0.000e+00"}, {"%f[w9p3e2]", 1e-300, "1.000e-300"},
        {"%f[w8p4]", -4.5, " -4.5000"},   {"%f[w7p3]", -12345.678, "-12345.678"},
        {"%f[w3p0]", 10.0, " 10"},        {"%f[p2]", 449.999, "450.00"}};
    for (const auto& [format, value, expected] : reals) EXPECT_EQ(FmtStr(format, value), expected) << format;
    const std::tuple<const char*, int, const char*> integers[] = {
        {"%i[w2p0]", 5, "05"}, {"%i[w4]", 2026, "2026"}, {"%i[w2]", 3, " 3"}, {"%i[w3p0]", -5, "-05"},
        {"%i[w3]", -5, " -5"}, {"%i[w1]", 12, "12"},     {"%x", 255, "ff"}};
    for (const auto& [format, value, expected] : integers)
        EXPECT_EQ(FmtStr(format, value), expected) << format;
    const std::pair<std::string, const char*> cases[] = {
        {FmtStr("%f[w*p*]|", 8, 2, 3.14159), "    3.14|"},
        {FmtStr("%i", 2.9), "2"},
        {FmtStr("%i", -2.9), "-2"},
        {FmtStr("%f", 2), "2.000000"},
        {FmtStr("%s[w5]|", "abcdefg"), "abcde|"},
        {FmtStr("%s[w5]|", "ab"), "ab   |"},
        {FmtStr("%s[]\t", "x"), "x\t"},
        {FmtStr("%cvalue\t%f[w14e2p6]\t", 'V', 0.25), "Vvalue\t  2.500000e-01\t"},
        {FmtStr("%s<%> %s%s", "a", "b"), "> ab"},
        {FmtStr("(state %s) %[Acceptor%]", "1"), "(state 1) [Acceptor]"}};
    for (const auto& [actual, expected] : cases) EXPECT_EQ(actual, expected);
}

// What Fmt answers (the length of what it composed) and what the target then holds, as
// "answer:target".  "%s<" at the head replaces
// the target, "%s[a]<" appends, "q" limits it to the width (which "*" takes from the arguments
// first); without a head the whole format replaces it.  A missing argument, an unknown conversion, a
// text for a number or an open bracket answer -1 and keep the text so far.
TEST(Fmt, HeadReplacesAppendsAndLimitsTheTargetAndBadCallsKeepTheTextSoFar) {
    std::string target = "old text";
    auto fmt = [&target](auto... args) { return std::to_string(Fmt(target, args...)) + ":" + target; };
    EXPECT_EQ(fmt("%s<bulk"), "4:bulk");
    EXPECT_EQ(fmt("%s[a]<\nIteration count: %i", 12), "20:bulk\nIteration count: 12");
    EXPECT_EQ(fmt("%s[w10q]<%s", "abcdefghijklmno"), "10:abcdefghij");
    EXPECT_EQ(fmt("%s[w*q]<net Gn%i,%i,%i (#/cm3.s)", 8, 1, 2, 3), "8:net Gn1,");
    EXPECT_EQ(fmt("Argument not recognised: %s", "xyz"), "28:Argument not recognised: xyz");
    EXPECT_EQ(fmt("a=%i b=%i", 1), "-1:a=1 b=");
    EXPECT_EQ(fmt("%s<x%q"), "-1:x");
    EXPECT_EQ(fmt("%f", "text"), "-1:");
    EXPECT_EQ(fmt("%f[w9"), "-1:");
}

TEST(Scan, NumbersTextAndLiterals) {
    // Source, format, fields satisfied, the number read (or the one before when none is).  A discarded
    // text field that reads the whole line is satisfied, as is an empty one before a number at the
    // start; "-y" is no number, "-.5" is; words are no numbers.
    const std::tuple<const char*, const char*, int, double> numbers[] = {
        {"Nc : 1.0e25 [/m^3]", "%s>%s[t#d]%f", 2, 1e25},
        {"no number here", "%s>%s[t#d]%f", 1, 1e25},
        {"5.0", "%s>%s[t#d]%f", 2, 5.0},
        {"x-y -.5 eV", "%s>%s[dt#]%f", 2, -0.5},
        {"1.000e+05", "%f", 1, 1e5},
        {"1e+005", "%f", 1, 1e5},
        {"-2", "%f", 1, -2.0},
        {".5", "%f", 1, 0.5},
        {"5.", "%f", 1, 5.0},
        {"  +3e-2", "%f", 1, 0.03},
        {"nan 1", "%f", 0, 0.03}};
    double d = -1.0;
    for (const auto& [source, format, fields, value] : numbers) {
        EXPECT_EQ(Scan(source, format, &d), fields) << source;
        EXPECT_DOUBLE_EQ(d, value) << source;
    }
    int n = 0, b = 0;
    std::string s, key;
    EXPECT_EQ(Scan("spectrum file :AM1_5G 1 sun.spe", "%s>%s[xdt58]%s[t0]", &s), 2);
    EXPECT_EQ(s, "AM1_5G 1 sun.spe");
    EXPECT_EQ(Scan("my key: value", "%s>%s[t58]", &key), 1);
    EXPECT_EQ(key, "my key");
    EXPECT_EQ(Scan("3,4", "%s>%i , %i", &n, &b), 2); // white space in the format matches none too
    EXPECT_EQ(b, 4);
    EXPECT_EQ(Scan("3;4", "%s>%i,%i", &n, &b), 1); // the literal does not match: stop
    EXPECT_EQ(Scan("7", "%q", &d), -1);
    EXPECT_EQ(Scan("7 8", "%i %i", &n), -1); // a target is missing
}
