// The format notation: composing text from values and scanning values out of text.
//
// Every number that TERVO writes to a file goes through FormatReal or FormatInteger below, so that
// all files agree to the digit.  Reals are turned into text with std::to_chars, which is exact and
// does not depend on the locale; the same holds for reading them back (std::from_chars).
#include "platform/format.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <system_error>
#include <type_traits>

#include "platform/text_util.h"

namespace tervo {

namespace {

constexpr int kNoTerminator = -1;      // a scanned string ends at white space
constexpr int kNumberTerminator = -2;  // "t#": a scanned string ends where a number starts
constexpr int kLargestCount = 1000000; // widths, precisions and offsets are capped here
constexpr int kLargestPrecision = 400; // a double has no more than ~17 significant digits anyway

struct Modifiers {
    int width = -1;                 // w
    int precision = -1;             // p; for %i and %x the value 0 asks for padding with '0'
    int offset = -1;                // i
    int exponentDigits = -1;        // e<n>: scientific notation with at least n exponent digits; -1 fixed
    bool append = false;            // a
    bool quote = false;             // q: the text is taken as it is (nothing else is done to it anyway)
    bool discard = false;           // d
    bool passEnd = false;           // x
    int terminator = kNoTerminator; // t<code> or t#
    std::vector<char> stars;        // 'w', 'p', 'i' for each "*" in the order written
};

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

bool ReadCount(std::string_view format, std::size_t& pos, int& value) {
    if (pos >= format.size() || !IsDigit(format[pos])) return false;
    long long n = 0;
    while (pos < format.size() && IsDigit(format[pos])) {
        n = std::min<long long>(n * 10 + (format[pos] - '0'), kLargestCount);
        ++pos;
    }
    value = static_cast<int>(n);
    return true;
}

// Reads the modifiers "[...]" that may stand at format[pos]; pos ends behind them.  False for an
// unknown modifier or a missing closing bracket.
bool ParseModifiers(std::string_view format, std::size_t& pos, Modifiers& m) {
    if (pos >= format.size() || format[pos] != '[') return true;
    ++pos;
    while (true) {
        if (pos >= format.size()) return false;
        const char c = format[pos++];
        switch (c) {
        case ']':
            return true;
        case 'w':
        case 'p':
        case 'i': {
            int& field = c == 'w' ? m.width : (c == 'p' ? m.precision : m.offset);
            if (pos < format.size() && format[pos] == '*') {
                ++pos;
                m.stars.push_back(c);
                field = 0;
            } else if (!ReadCount(format, pos, field)) {
                return false;
            }
            break;
        }
        case 'e': {
            int digits = 2;
            if (pos < format.size() && IsDigit(format[pos])) ReadCount(format, pos, digits);
            m.exponentDigits = std::min(digits, 10);
            break;
        }
        case 'a':
            m.append = true;
            break;
        case 'q':
            m.quote = true;
            break;
        case 'd':
            m.discard = true;
            break;
        case 'x':
            m.passEnd = true;
            break;
        case 't': {
            if (pos < format.size() && format[pos] == '#') {
                ++pos;
                m.terminator = kNumberTerminator;
            } else {
                int code = 0;
                if (!ReadCount(format, pos, code) || code > 255) return false;
                m.terminator = code;
            }
            break;
        }
        default:
            return false;
        }
    }
}

bool IsFieldLetter(char c) {
    return c == 'i' || c == 'f' || c == 's' || c == 'c' || c == 'x';
}

// "%%", "%<", "%>", "%[" and "%]" stand for the character itself.
bool IsEscapedLiteral(char c) {
    return c == '%' || c == '<' || c == '>' || c == '[' || c == ']';
}

// A double cast to an integer, truncated toward zero and kept inside the range (NaN gives 0).
long long TruncateToInteger(double d) {
    if (std::isnan(d)) return 0;
    if (d >= 9.2233720368547748e18) return std::numeric_limits<long long>::max();
    if (d <= -9.2233720368547758e18) return std::numeric_limits<long long>::min();
    return static_cast<long long>(d);
}

// ---- composing -------------------------------------------------------------------------------

std::string FormatReal(double value, int precision, int exponentDigits) {
    precision = std::clamp(precision, 0, kLargestPrecision);
    std::string text(static_cast<std::size_t>(precision) + 400, '\0');
    const auto format = exponentDigits >= 0 ? std::chars_format::scientific : std::chars_format::fixed;
    const auto result = std::to_chars(text.data(), text.data() + text.size(), value, format, precision);
    text.resize(static_cast<std::size_t>(result.ptr - text.data()));
    if (exponentDigits < 0) return text;

    // to_chars writes at least two exponent digits; bring them to the number asked for without ever
    // dropping a significant digit (1e-300 keeps its three).
    const std::size_t e = text.find('e');
    if (e == std::string::npos || e + 2 > text.size()) return text; // inf or nan
    const std::size_t firstDigit = e + 2;
    std::string digits = text.substr(firstDigit);
    const std::size_t wanted = static_cast<std::size_t>(std::max(exponentDigits, 1));
    while (digits.size() > wanted && digits.front() == '0') digits.erase(0, 1);
    if (digits.size() < wanted) digits.insert(0, wanted - digits.size(), '0');
    return text.substr(0, firstDigit) + digits;
}

std::string FormatInteger(long long value, int width, bool zeroPadding, bool hexadecimal) {
    const bool negative = value < 0 && !hexadecimal;
    unsigned long long magnitude = static_cast<unsigned long long>(value);
    if (negative) magnitude = 0ULL - magnitude;
    char buffer[32];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, magnitude, hexadecimal ? 16 : 10);
    std::string digits(buffer, result.ptr);
    const std::size_t length = digits.size() + (negative ? 1 : 0);
    const std::size_t w = width > 0 ? static_cast<std::size_t>(width) : 0;
    if (w > length) {
        // Zeros go between the sign and the digits ("-05"), blanks in front of the sign ("  -5").
        if (zeroPadding) {
            digits.insert(0, w - length, '0');
        } else {
            return std::string(w - length, ' ') + (negative ? "-" : "") + digits;
        }
    }
    return (negative ? "-" : "") + digits;
}

std::string RightJustify(std::string text, int width) {
    if (width > 0 && text.size() < static_cast<std::size_t>(width)) {
        text.insert(0, static_cast<std::size_t>(width) - text.size(), ' ');
    }
    return text;
}

struct ArgCursor {
    const std::vector<FmtValue>& args;
    std::size_t next = 0;
};

bool NextInteger(ArgCursor& cursor, long long& value) {
    if (cursor.next >= cursor.args.size()) return false;
    const FmtValue& arg = cursor.args[cursor.next++];
    if (const auto* i = std::get_if<long long>(&arg)) {
        value = *i;
    } else if (const auto* d = std::get_if<double>(&arg)) {
        value = TruncateToInteger(*d);
    } else if (const auto* c = std::get_if<char>(&arg)) {
        value = static_cast<unsigned char>(*c);
    } else {
        return false;
    }
    return true;
}

bool NextReal(ArgCursor& cursor, double& value) {
    if (cursor.next >= cursor.args.size()) return false;
    const FmtValue& arg = cursor.args[cursor.next++];
    if (const auto* d = std::get_if<double>(&arg)) {
        value = *d;
    } else if (const auto* i = std::get_if<long long>(&arg)) {
        value = static_cast<double>(*i);
    } else if (const auto* c = std::get_if<char>(&arg)) {
        value = static_cast<unsigned char>(*c);
    } else {
        return false;
    }
    return true;
}

// The text of an argument for %s: strings as they are, a number as %i or %f would write it.
bool NextText(ArgCursor& cursor, std::string& value) {
    if (cursor.next >= cursor.args.size()) return false;
    const FmtValue& arg = cursor.args[cursor.next++];
    if (const auto* s = std::get_if<std::string>(&arg)) {
        value = *s;
    } else if (const auto* c = std::get_if<char>(&arg)) {
        value = std::string(1, *c);
    } else if (const auto* i = std::get_if<long long>(&arg)) {
        value = FormatInteger(*i, 0, false, false);
    } else {
        value = FormatReal(std::get<double>(arg), 6, -1);
    }
    return true;
}

bool NextCharacter(ArgCursor& cursor, std::string& value) {
    if (cursor.next >= cursor.args.size()) return false;
    const FmtValue& arg = cursor.args[cursor.next++];
    if (const auto* c = std::get_if<char>(&arg)) {
        value = std::string(1, *c);
    } else if (const auto* s = std::get_if<std::string>(&arg)) {
        value = s->substr(0, 1);
    } else if (const auto* i = std::get_if<long long>(&arg)) {
        value = std::string(1, static_cast<char>(*i));
    } else {
        return false;
    }
    return true;
}

bool ResolveStars(Modifiers& m, ArgCursor& cursor) {
    for (const char letter : m.stars) {
        long long v = 0;
        if (!NextInteger(cursor, v)) return false;
        // A negative width or offset from the arguments means "none".
        const int n = v < 0 ? -1 : static_cast<int>(std::min<long long>(v, kLargestCount));
        if (letter == 'w') m.width = n;
        if (letter == 'p') m.precision = n;
        if (letter == 'i') m.offset = n;
    }
    return true;
}

bool AppendField(char letter, const Modifiers& m, ArgCursor& cursor, std::string& out) {
    switch (letter) {
    case 'i':
    case 'x': {
        long long v = 0;
        if (!NextInteger(cursor, v)) return false;
        out += FormatInteger(v, m.width, m.precision == 0, letter == 'x');
        return true;
    }
    case 'f': {
        double v = 0.0;
        if (!NextReal(cursor, v)) return false;
        out += RightJustify(FormatReal(v, m.precision >= 0 ? m.precision : 6, m.exponentDigits), m.width);
        return true;
    }
    case 's':
    case 'c': {
        std::string text;
        if (!(letter == 's' ? NextText(cursor, text) : NextCharacter(cursor, text))) return false;
        if (m.offset >= 0) text.erase(0, std::min(text.size(), static_cast<std::size_t>(m.offset)));
        // Text is left-justified in its width and cut to it.
        if (m.width >= 0) text.resize(static_cast<std::size_t>(m.width), ' ');
        out += text;
        return true;
    }
    default:
        return false;
    }
}

// Puts the composed text into the target as the head asks; the number of characters written.
int StoreComposed(std::string& target, const std::string& composed, const Modifiers& head) {
    std::string base;
    if (head.append) {
        base = target;
    } else if (head.offset >= 0) {
        base = target.substr(0, std::min(target.size(), static_cast<std::size_t>(head.offset)));
        base.resize(static_cast<std::size_t>(head.offset), ' ');
    }
    std::string result = base + composed;
    if (head.width >= 0 && result.size() > static_cast<std::size_t>(head.width)) {
        result.resize(static_cast<std::size_t>(head.width));
    }
    const std::size_t written = result.size() > base.size() ? result.size() - base.size() : 0;
    target = std::move(result);
    return static_cast<int>(written);
}

// A composition that cannot go on keeps what was composed so far and answers -1.
int Failed(std::string& target, const std::string& composed, const Modifiers& head) {
    StoreComposed(target, composed, head);
    return -1;
}

// ---- scanning --------------------------------------------------------------------------------

struct ScannedValue {
    enum class Kind { Integer, Real, Text, Character } kind = Kind::Integer;
    long long integer = 0;
    double real = 0.0;
    std::string text;
    char character = '\0';
};

template <typename Int>
Int ClampTo(long long v) {
    if (v > static_cast<long long>(std::numeric_limits<Int>::max())) return std::numeric_limits<Int>::max();
    if (v < static_cast<long long>(std::numeric_limits<Int>::min())) return std::numeric_limits<Int>::min();
    return static_cast<Int>(v);
}

// Stores a scanned value in its target.  Numbers go into any numeric target (a real into an integer
// is truncated toward zero); text into a string or a character.  False for a null or unfit target.
bool Assign(const ScanTarget& target, const ScannedValue& value) {
    using Kind = ScannedValue::Kind;
    return std::visit(
        [&value](auto* pointer) -> bool {
            using T = std::remove_pointer_t<decltype(pointer)>;
            if (pointer == nullptr) return false;
            if constexpr (std::is_same_v<T, std::string>) {
                if (value.kind == Kind::Text)
                    *pointer = value.text;
                else if (value.kind == Kind::Character)
                    *pointer = std::string(1, value.character);
                else
                    return false;
            } else if constexpr (std::is_same_v<T, char>) {
                if (value.kind == Kind::Character)
                    *pointer = value.character;
                else if (value.kind == Kind::Text)
                    *pointer = value.text.empty() ? '\0' : value.text.front();
                else if (value.kind == Kind::Integer)
                    *pointer = static_cast<char>(value.integer);
                else
                    return false;
            } else if constexpr (std::is_same_v<T, double>) {
                if (value.kind == Kind::Real)
                    *pointer = value.real;
                else if (value.kind == Kind::Integer)
                    *pointer = static_cast<double>(value.integer);
                else if (value.kind == Kind::Character)
                    *pointer = static_cast<unsigned char>(value.character);
                else
                    return false;
            } else {
                if (value.kind == Kind::Integer)
                    *pointer = ClampTo<T>(value.integer);
                else if (value.kind == Kind::Real)
                    *pointer = ClampTo<T>(TruncateToInteger(value.real));
                else if (value.kind == Kind::Character)
                    *pointer = static_cast<unsigned char>(value.character);
                else
                    return false;
            }
            return true;
        },
        target);
}

// "*" modifiers of a scan take their number from the next target, which must hold an integer.
bool ResolveScanStars(Modifiers& m, const std::vector<ScanTarget>& targets, std::size_t& next) {
    for (const char letter : m.stars) {
        if (next >= targets.size()) return false;
        long long v = 0;
        const ScanTarget& t = targets[next++];
        if (const auto* i = std::get_if<int*>(&t); i && *i)
            v = **i;
        else if (const auto* l = std::get_if<long*>(&t); l && *l)
            v = **l;
        else if (const auto* ll = std::get_if<long long*>(&t); ll && *ll)
            v = **ll;
        else
            return false;
        const int n = v < 0 ? -1 : static_cast<int>(std::min<long long>(v, kLargestCount));
        if (letter == 'w') m.width = n;
        if (letter == 'p') m.precision = n;
        if (letter == 'i') m.offset = n;
    }
    return true;
}

void SkipWhite(std::string_view source, std::size_t& at) {
    while (at < source.size() && IsWhite(source[at])) ++at;
}

// Reads one field at source[at]; at moves behind what was taken.  False when the field is not
// satisfied (no number where one is asked for, nothing left for a string or character).
bool ScanField(char letter, const Modifiers& m, std::string_view source, std::size_t& at, ScannedValue& out) {
    using Kind = ScannedValue::Kind;
    if (letter == 'c') {
        if (at >= source.size()) return false;
        out.kind = Kind::Character;
        out.character = source[at++];
        return true;
    }
    SkipWhite(source, at);
    const std::size_t limit =
        m.width >= 0 ? std::min(source.size(), at + static_cast<std::size_t>(m.width)) : source.size();
    const std::string_view window = source.substr(at, limit - at);

    if (letter == 'f') {
        const std::size_t used = ReadReal(window, out.real);
        if (used == 0) return false;
        out.kind = Kind::Real;
        at += used;
        return true;
    }
    if (letter == 'i') {
        const std::size_t used = ReadInteger(window, out.integer);
        if (used == 0) return false;
        out.kind = Kind::Integer;
        at += used;
        return true;
    }
    if (letter == 'x') {
        unsigned long long v = 0;
        const auto result = std::from_chars(window.data(), window.data() + window.size(), v, 16);
        if (result.ec == std::errc::invalid_argument) return false;
        if (result.ec == std::errc::result_out_of_range) v = std::numeric_limits<unsigned long long>::max();
        out.kind = Kind::Integer;
        out.integer = static_cast<long long>(v);
        at += static_cast<std::size_t>(result.ptr - window.data());
        return true;
    }

    // %s: up to the ending character (white space by default, the code of t, or the start of a
    // number for t#), at most w characters.
    const std::size_t start = at;
    bool stoppedAtEnding = false;
    while (at < limit) {
        const char c = source[at];
        bool ends = false;
        if (m.terminator == kNumberTerminator)
            ends = NumberStartsAt(source, at);
        else if (m.terminator >= 0)
            ends = static_cast<unsigned char>(c) == m.terminator;
        else
            ends = IsWhite(c);
        if (ends) {
            stoppedAtEnding = true;
            break;
        }
        ++at;
    }
    // An empty field is satisfied when it stopped at its ending character (a number directly at the
    // start of "%s[t#d]%f"), not when the source had nothing left.
    if (at == start && at >= source.size()) return false;
    out.kind = Kind::Text;
    out.text = std::string(source.substr(start, at - start));
    if (stoppedAtEnding && m.passEnd) ++at;
    return true;
}

} // namespace

int FmtV(std::string& target, std::string_view format, const std::vector<FmtValue>& args) {
    ArgCursor cursor{args};
    Modifiers head;
    std::size_t pos = 0;
    if (format.substr(0, 2) == "%s") {
        std::size_t p = 2;
        Modifiers m;
        if (ParseModifiers(format, p, m) && p < format.size() && format[p] == '<') {
            head = m;
            pos = p + 1;
            if (!ResolveStars(head, cursor)) return Failed(target, "", head);
        }
    }

    std::string out;
    while (pos < format.size()) {
        const char c = format[pos];
        if (c != '%') {
            out += c;
            ++pos;
            continue;
        }
        if (pos + 1 >= format.size()) return Failed(target, out, head);
        const char letter = format[pos + 1];
        pos += 2;
        if (IsEscapedLiteral(letter)) {
            out += letter;
            continue;
        }
        Modifiers m;
        if (!IsFieldLetter(letter) || !ParseModifiers(format, pos, m) || !ResolveStars(m, cursor) ||
            !AppendField(letter, m, cursor, out)) {
            return Failed(target, out, head);
        }
    }
    return StoreComposed(target, out, head);
}

int ScanV(std::string_view source, std::string_view format, const std::vector<ScanTarget>& targets) {
    std::size_t pos = 0;
    std::size_t nextTarget = 0;
    if (format.substr(0, 2) == "%s") {
        std::size_t p = 2;
        Modifiers m;
        if (ParseModifiers(format, p, m) && p < format.size() && format[p] == '>') {
            if (!ResolveScanStars(m, targets, nextTarget)) return -1;
            pos = p + 1;
            if (m.offset >= 0)
                source.remove_prefix(std::min(source.size(), static_cast<std::size_t>(m.offset)));
            if (m.width >= 0) source = source.substr(0, static_cast<std::size_t>(m.width));
        }
    }

    std::size_t at = 0;
    int satisfied = 0;
    while (pos < format.size()) {
        const char c = format[pos];
        if (IsWhite(c)) {
            // White space in the format matches any run of white space in the source, even none.
            while (pos < format.size() && IsWhite(format[pos])) ++pos;
            SkipWhite(source, at);
            continue;
        }
        if (c != '%') {
            if (at >= source.size() || source[at] != c) return satisfied;
            ++at;
            ++pos;
            continue;
        }
        if (pos + 1 >= format.size()) return -1;
        const char letter = format[pos + 1];
        pos += 2;
        if (IsEscapedLiteral(letter)) {
            if (at >= source.size() || source[at] != letter) return satisfied;
            ++at;
            continue;
        }
        Modifiers m;
        if (!IsFieldLetter(letter) || !ParseModifiers(format, pos, m) ||
            !ResolveScanStars(m, targets, nextTarget)) {
            return -1;
        }
        if (m.offset >= 0) at = std::min(source.size(), static_cast<std::size_t>(m.offset));
        ScannedValue value;
        if (!ScanField(letter, m, source, at, value)) return satisfied;
        if (!m.discard) {
            if (nextTarget >= targets.size() || !Assign(targets[nextTarget++], value)) return -1;
        }
        ++satisfied;
    }
    return satisfied;
}

} // namespace tervo
