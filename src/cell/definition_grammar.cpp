// The line grammar of a definition file: comment lines and remarks, numbers behind a key, profile
// lines, and the reader's line-by-line state.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "cell/definition_reader.h"
#include "cell/grading.h"
#include "platform/analysis.h"
#include "platform/files.h"
#include "platform/format.h"
#include "platform/messages.h"
#include "platform/text_util.h"

namespace tervo {

std::vector<std::string> problemRemarks;
std::string problemRemarksName = "new problem";

void ResetRemarks(const std::string& problemName) {
    problemRemarks.clear();
    problemRemarksName = problemName;
}

namespace {

bool IsCommentCharacter(char c) {
    return c == '>' || c == '<' || c == '*' || c == '!' || c == '/' || c == '\\';
}

} // namespace

int ReadNonCommentLine(TextFile& file, std::string& buffer, int maximum, int noRemarks, int* lineNumber) {
    for (;;) {
        const int n = ReadLine(file, buffer, maximum);
        if (n < 0) return n;
        if (lineNumber) ++*lineNumber;
        if (!buffer.empty() && IsCommentCharacter(buffer[0])) {
            if (!noRemarks) problemRemarks.push_back(buffer.substr(1));
            continue;
        }
        return n;
    }
}

int ReadNonEmptyNonCommentLine(TextFile& file, std::string& buffer, int maximum, int noRemarks,
                               int reportIOErrors, int reportEnd, int* lineNumber) {
    for (;;) {
        const int n = ReadNonCommentLine(file, buffer, maximum, noRemarks, lineNumber);
        if (n == -1) {
            if (reportIOErrors)
                TERVOErrorMessage(defread::kReadTitle, "An error ocurred while reading the def-file: " +
                                                           IoErrorText(file.lastError));
            return -1;
        }
        if (n == -2) {
            if (reportEnd) TERVOErrorMessage(defread::kReadTitle, "The def-file is empty or incomplete.");
            return -2;
        }
        if (!defread::IsBlankLine(buffer)) return n;
    }
}

namespace defread {

bool IsBlankLine(const std::string& s) {
    return std::all_of(s.begin(), s.end(), [](unsigned char c) { return std::isspace(c) != 0; });
}

namespace {

// Position of the first character that starts a number at or after `from`, or npos.
size_t NumberStart(std::string_view s, size_t from) {
    for (size_t i = from; i < s.size(); ++i)
        if (NumberStartsAt(s, i)) return i;
    return std::string_view::npos;
}

// Reads one number at `pos`; advances pos.  False when there is none or it lies beyond the range
// of a double (a physical value of the file cannot be infinite).
bool ParseNumberAt(std::string_view s, size_t& pos, double& value) {
    double v = 0;
    const size_t used = ReadReal(s.substr(pos), v);
    if (used == 0 || !std::isfinite(v)) return false;
    value = v;
    pos += used;
    return true;
}

// Skips to the first number, then reads numbers separated by white space, up to maxCount; stops at
} // namespace

int ReadNumberRun(std::string_view s, double* values, int maxCount, size_t* end) {
    size_t pos = NumberStart(s, 0);
    int count = 0;
    if (end) *end = s.size();
    if (pos == std::string_view::npos) return 0;
    while (count < maxCount) {
        double v = 0;
        if (!ParseNumberAt(s, pos, v)) break;
        values[count++] = v;
        if (end) *end = pos;
        size_t next = pos;
        while (next < s.size() && (s[next] == ' ' || s[next] == '\t')) ++next;
        if (next == s.size() || NumberStart(s, next) != next) break;
        pos = next;
    }
    return count;
}

// The text behind the first ':' of a line, trimmed; "" when there is none.
std::string AfterColon(std::string_view s) {
    return TextBehindColon(s);
}

// Resolves a base name of a side file into the given folder of the home tree.
std::string InHomeFolder(const std::string& folder, const std::string& name) {
    if (name.empty() || name.find('/') != std::string::npos || name.find('\\') != std::string::npos)
        return name;
    return MakePathname(MakePathname(GetProjectDir(), folder), name);
}

std::string BaseName(const std::string& path) {
    std::string drive, folder, file;
    SplitPath(path, drive, folder, file);
    return file;
}

bool DefReader::Next(bool endAllowed) {
    const int n =
        ReadNonEmptyNonCommentLine(file, line, DEF_LINE_LIMIT, noRemarks, 1, endAllowed ? 0 : 1, &lineNumber);
    if (n == -2) {
        eof = true;
        if (!endAllowed) failed = true;
        return false;
    }
    if (n < 0) {
        failed = true;
        return false;
    }
    return true;
}

void DefReader::Fail(const std::string& what) {
    TERVOErrorMessage(kReadTitle, FmtStr("%s[q]<%s, line %i: %s", path, lineNumber, what));
    failed = true;
}

void DefReader::WarnNoNumber() {
    TERVOErrorMessage(kWarnTitle, FmtStr("%s[q]<%s, line %i: no number could be read in \"%s\"; the "
                                         "value is left as it was.",
                                         path, lineNumber, line));
}

bool DefReader::Number(double& target, bool behindColon) {
    double v = 0;
    bool ok = false;
    if (behindColon) {
        ok = NumberBehindColon(line, v);
    } else {
        double first[1];
        ok = ReadNumberRun(line, first, 1) == 1;
        if (ok) v = first[0];
    }
    if (!ok || !std::isfinite(v)) {
        WarnNoNumber();
        return false;
    }
    target = v;
    return true;
}

bool DefReader::Integer(int& target, bool behindColon) {
    double v = 0;
    if (!Number(v, behindColon)) return false;
    target = TruncateToInt(std::round(v));
    return true;
}

bool DefReader::Key(std::string_view key) const {
    return StartsWithNoCase(TrimLeft(), key);
}
bool DefReader::KeyExact(std::string_view key) const {
    return StartsWith(TrimLeft(), key);
}
bool DefReader::Holds(std::string_view phrase) const {
    return ContainsNoCase(line, phrase);
}
std::string_view DefReader::TrimLeft() const {
    std::string_view s(line);
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
    return s;
}

void NoteTunnelFlagFromElement(DefReader& r, int value, int& flag) {
    if (!r.tunnelFlagLineSeen && value == 1) flag = 1;
}

} // namespace defread

using defread::BaseName;
using defread::InHomeFolder;
using defread::ReadNumberRun;

void InputLineToProfile(const std::string& line, Profile& p) {
    std::array<double, 9> v;
    v.fill(-2.0);
    size_t end = 0;
    ReadNumberRun(line, v.data(), 9, &end);
    // Unread places keep the sentinel -2; a -2 in one of the last three places reads as absent.
    int count = 1;
    if (v[8] != -2.0)
        count = 9;
    else if (v[7] != -2.0)
        count = 8;
    else if (v[6] != -2.0)
        count = 7;
    if (count == 1) {
        const double a = v[0] == -2.0 ? p.pureA : v[0];
        p.pureA = p.pureB = p.lawPar1 = p.leftValue = p.rightValue = a;
        p.lawPar2 = p.lawPar3 = 1;
        p.law = LAW_UNIFORM;
        p.dependence = DEP_UNIFORM;
    } else if (count == 7) {
        p.pureA = v[0];
        p.pureB = v[1];
        p.lawPar1 = v[2];
        p.lawPar2 = p.lawPar3 = v[3];
        p.leftValue = v[4];
        p.rightValue = v[5];
        p.law = TruncateToInt(v[6]);
        p.dependence = DEP_COMPOSITION;
    } else {
        p.pureA = v[0];
        p.pureB = v[1];
        p.lawPar1 = v[2];
        p.lawPar2 = v[3];
        p.lawPar3 = v[4];
        p.leftValue = v[5];
        p.rightValue = v[6];
        p.law = TruncateToInt(v[7]);
        p.dependence = count == 9 ? TruncateToInt(v[8]) : DEP_COMPOSITION;
    }
    if (p.law < 0 || p.law >= NUMBER_OF_LAWS) p.law = LAW_UNIFORM;
    if (p.dependence < 0 || p.dependence > 2) p.dependence = DEP_COMPOSITION;
    SetProfileScaleParameters(p);
    if (count == 9 && p.law == LAW_FROM_FILE) {
        // The grading file stands behind the numbers, up to the next tab or "[".
        size_t a = end;
        while (a < line.size() && (line[a] == ' ' || line[a] == '\t')) ++a;
        size_t b = a;
        while (b < line.size() && line[b] != '\t' && line[b] != '[') ++b;
        const std::string name = TrimRight(std::string_view(line).substr(a, b - a));
        if (!name.empty()) {
            p.gradingFile = InHomeFolder("grading", name);
            p.fileState = 0;
        }
    }
}

void InputLineToShortProfile(const std::string& line, ShortProfile& sp) {
    Profile p;
    InputLineToProfile(line, p);
    sp.law = p.law;
    sp.dependence = p.dependence;
}

namespace {

std::string NumberFormat(int exponent, int width, int precision) {
    return exponent ? FmtStr("%%f[w%ip%ie2]", width, precision) : FmtStr("%%f[w%ip%i]", width, precision);
}

} // namespace

int ProfileToOutputLine(TextFile& file, const Profile& p, const std::string& name, const std::string& unit,
                        int exponent, int width, int precision) {
    const std::string num = NumberFormat(exponent, width, precision);
    std::string text = FmtStr("%s<%s :\t", name);
    for (double v : {p.pureA, p.pureB, p.lawPar1, p.lawPar2, p.lawPar3, p.leftValue, p.rightValue})
        text += FmtStr(num, v) + "\t";
    text += FmtStr("%i[w2]\t", p.law);
    text += FmtStr("%i[w2]\t", p.dependence);
    if (p.law == LAW_FROM_FILE) text += BaseName(p.gradingFile) + "\t";
    text += unit + "\n";
    return WriteText(file, text);
}
} // namespace tervo
