// The format notation used by every reader and writer of TERVO's text files.
//
// Composing: "%s<" at the head of a format composes into the target (replacing it), "%s[a]<" appends
// to it; a format without a head composes the whole text.  Fields: %i integer, %f real, %s string,
// %c character, %x hexadecimal.  Modifiers in brackets, in any order: w width (w* from the arguments),
// p precision (p*; for %i it is the padding character, so %i[w2p0] gives "05"), e2 scientific with a
// two-digit exponent, q the text is taken unchanged, i offset into the target (i*), a append.
// In the text "%>" gives ">" and "%<" gives "<".
//
// Scanning: "%s>" at the head scans from the source string.  %i, %f and %s skip leading white
// space; %s then reads up to white space.  Modifiers: t<code> ends a string field at that character
// code instead (t58 the colon, t0 the end of the source), t# ends it where a number starts, d discards
// the field, x passes over the ending character, w width, i offset into the source.  White space in
// the format matches any run of white space, other text must match exactly.  The scan stops at the
// first field that is not satisfied: a number field that finds no number, a string field with
// nothing left to read.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace tervo {

// One argument of a composition.  Integers, reals, text and single characters.
using FmtValue = std::variant<long long, double, std::string, char>;

// Composes `format` with `args` into `target`: replaces it, or appends for "%s[a]<".
// Returns the number of characters written into the target, or -1 for a malformed format, a missing
// argument or one that does not fit its field (the target then holds what was composed so far).
int FmtV(std::string& target, std::string_view format, const std::vector<FmtValue>& args);

namespace detail {
inline FmtValue ToFmtValue(bool v) {
    return static_cast<long long>(v);
}
inline FmtValue ToFmtValue(short v) {
    return static_cast<long long>(v);
}
inline FmtValue ToFmtValue(unsigned short v) {
    return static_cast<long long>(v);
}
inline FmtValue ToFmtValue(int v) {
    return static_cast<long long>(v);
}
inline FmtValue ToFmtValue(long v) {
    return static_cast<long long>(v);
}
inline FmtValue ToFmtValue(long long v) {
    return v;
}
inline FmtValue ToFmtValue(unsigned v) {
    return static_cast<long long>(v);
}
inline FmtValue ToFmtValue(unsigned long v) {
    return static_cast<long long>(v);
}
inline FmtValue ToFmtValue(unsigned long long v) {
    return static_cast<long long>(v);
}
inline FmtValue ToFmtValue(float v) {
    return static_cast<double>(v);
}
inline FmtValue ToFmtValue(double v) {
    return v;
}
inline FmtValue ToFmtValue(char v) {
    return v;
}
inline FmtValue ToFmtValue(const char* v) {
    return std::string(v ? v : "");
}
inline FmtValue ToFmtValue(const std::string& v) {
    return v;
}
inline FmtValue ToFmtValue(std::string_view v) {
    return std::string(v);
}
} // namespace detail

// Fmt(target, "%s<clamp_psi : %f[w9p2e2] units kT", 0.5)
template <typename... Args>
int Fmt(std::string& target, std::string_view format, const Args&... args) {
    return FmtV(target, format, std::vector<FmtValue>{detail::ToFmtValue(args)...});
}

// The composed text itself: FmtStr("%i[w2p0]", 5) == "05".
template <typename... Args>
std::string FmtStr(std::string_view format, const Args&... args) {
    std::string out;
    FmtV(out, format, std::vector<FmtValue>{detail::ToFmtValue(args)...});
    return out;
}

// One target of a scan.  A null pointer is not allowed; a discarded field ("d") takes no target.
using ScanTarget = std::variant<int*, long*, long long*, double*, std::string*, char*>;

// Scans `source` by `format` ("%s>" head optional).  Returns the number of format fields that
// were satisfied, discarded fields included; -1 for a malformed format.
int ScanV(std::string_view source, std::string_view format, const std::vector<ScanTarget>& targets);

template <typename... Targets>
int Scan(std::string_view source, std::string_view format, Targets*... targets) {
    return ScanV(source, format, std::vector<ScanTarget>{ScanTarget(targets)...});
}

} // namespace tervo
