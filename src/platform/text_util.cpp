// Text helpers shared by the keyword-driven readers.  Numbers are read without any locale, so that a
// settings file reads the same on every machine.
#include "platform/text_util.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <system_error>

namespace tervo {

namespace {

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

char LowerAscii(char c) {
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

bool SameChar(char a, char b, bool caseSensitive) {
    return caseSensitive ? a == b : LowerAscii(a) == LowerAscii(b);
}

bool MatchesAt(std::string_view text, std::size_t at, std::string_view pattern, bool caseSensitive) {
    for (std::size_t k = 0; k < pattern.size(); ++k) {
        if (!SameChar(text[at + k], pattern[k], caseSensitive)) return false;
    }
    return true;
}

// Index of the first place where a number starts, or npos.
std::size_t FirstNumberStart(std::string_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (NumberStartsAt(text, i)) return i;
    }
    return std::string_view::npos;
}

} // namespace

bool IsWhite(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

bool NumberStartsAt(std::string_view text, std::size_t index) {
    if (index >= text.size()) return false;
    const char c = text[index];
    if (IsDigit(c)) return true;
    if ((c == '+' || c == '-' || c == '.') && index + 1 < text.size() && IsDigit(text[index + 1]))
        return true;
    return c == '-' && index + 2 < text.size() && text[index + 1] == '.' && IsDigit(text[index + 2]);
}

std::size_t ReadReal(std::string_view text, double& value) {
    std::size_t k = 0;
    bool negative = false;
    if (k < text.size() && (text[k] == '+' || text[k] == '-')) {
        negative = text[k] == '-';
        ++k;
    }
    // The mantissa must begin with a digit or with a point and a digit: this keeps words such as
    // "nan" or "information" from being read as numbers.
    if (k >= text.size()) return 0;
    if (!IsDigit(text[k]) && !(text[k] == '.' && k + 1 < text.size() && IsDigit(text[k + 1]))) return 0;

    const char* first = text.data() + k;
    const char* last = text.data() + text.size();
    double v = 0.0;
    const auto [ptr, ec] = std::from_chars(first, last, v, std::chars_format::general);
    if (ec == std::errc::invalid_argument) return 0;
    if (ec == std::errc::result_out_of_range) {
        // Beyond the range of a double: a negative exponent underflows to zero, anything else
        // overflows to infinity.
        const std::string_view used(first, static_cast<std::size_t>(ptr - first));
        const std::size_t e = used.find_first_of("eE");
        const bool tiny = e != std::string_view::npos && e + 1 < used.size() && used[e + 1] == '-';
        v = tiny ? 0.0 : std::numeric_limits<double>::infinity();
    }
    value = negative ? -v : v;
    return static_cast<std::size_t>(ptr - text.data());
}

std::size_t ReadInteger(std::string_view text, long long& value) {
    std::size_t k = 0;
    bool negative = false;
    if (k < text.size() && (text[k] == '+' || text[k] == '-')) {
        negative = text[k] == '-';
        ++k;
    }
    if (k >= text.size() || !IsDigit(text[k])) return 0;
    const unsigned long long limit =
        static_cast<unsigned long long>(std::numeric_limits<long long>::max()) + (negative ? 1ULL : 0ULL);
    unsigned long long magnitude = 0;
    for (; k < text.size() && IsDigit(text[k]); ++k) {
        const unsigned digit = static_cast<unsigned>(text[k] - '0');
        if (magnitude > (limit - digit) / 10) {
            magnitude = limit; // clamp, but keep consuming the digits of this number
        } else {
            magnitude = magnitude * 10 + digit;
        }
    }
    if (negative) {
        value =
            magnitude == limit ? std::numeric_limits<long long>::min() : -static_cast<long long>(magnitude);
    } else {
        value = static_cast<long long>(magnitude);
    }
    return k;
}

int FindPattern(std::string_view text, int start, int length, std::string_view pattern, bool caseSensitive,
                bool fromRight) {
    if (start < 0 || static_cast<std::size_t>(start) > text.size()) return -1;
    const std::size_t from = static_cast<std::size_t>(start);
    std::size_t to = text.size();
    if (length >= 0) to = std::min(to, from + static_cast<std::size_t>(length));
    if (pattern.empty() || pattern.size() > to - from) return -1;
    const std::size_t lastStart = to - pattern.size();
    if (fromRight) {
        for (std::size_t at = lastStart + 1; at-- > from;) {
            if (MatchesAt(text, at, pattern, caseSensitive)) return static_cast<int>(at);
        }
    } else {
        for (std::size_t at = from; at <= lastStart; ++at) {
            if (MatchesAt(text, at, pattern, caseSensitive)) return static_cast<int>(at);
        }
    }
    return -1;
}

bool StartsWithNoCase(std::string_view text, std::string_view prefix) {
    return prefix.size() <= text.size() && MatchesAt(text, 0, prefix, false);
}

bool ContainsNoCase(std::string_view text, std::string_view phrase) {
    return FindPattern(text, 0, -1, phrase, false, false) >= 0;
}

bool StartsWith(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

bool Contains(std::string_view text, std::string_view phrase) {
    return text.find(phrase) != std::string_view::npos;
}

bool FirstNumber(std::string_view text, double& value) {
    const std::size_t at = FirstNumberStart(text);
    if (at == std::string_view::npos) return false;
    return ReadReal(text.substr(at), value) > 0;
}

bool NumberBehindColon(std::string_view text, double& value) {
    const std::size_t colon = text.find(':');
    if (colon == std::string_view::npos) return false;
    return FirstNumber(text.substr(colon + 1), value);
}

std::string TextBehindColon(std::string_view text) {
    const std::size_t colon = text.find(':');
    if (colon == std::string_view::npos) return "";
    return Trim(text.substr(colon + 1));
}

int ReadNumbers(std::string_view text, double* values, int maxCount) {
    std::size_t at = FirstNumberStart(text);
    int count = 0;
    while (count < maxCount && at != std::string_view::npos) {
        double v = 0.0;
        const std::size_t used = ReadReal(text.substr(at), v);
        if (used == 0) break;
        values[count++] = v;
        at += used;
        // A number glued to other text ("5V") ends the list; so does anything behind the white space
        // that is not a number.
        if (at < text.size() && !IsWhite(text[at])) break;
        while (at < text.size() && IsWhite(text[at])) ++at;
        if (!NumberStartsAt(text, at)) break;
    }
    return count;
}

std::string TrimRight(std::string_view text) {
    std::size_t end = text.size();
    while (end > 0 && IsWhite(text[end - 1])) --end;
    return std::string(text.substr(0, end));
}

std::string Trim(std::string_view text) {
    std::size_t begin = 0;
    while (begin < text.size() && IsWhite(text[begin])) ++begin;
    return TrimRight(text.substr(begin));
}

std::string ToLower(std::string_view text) {
    std::string out(text);
    for (char& c : out) c = LowerAscii(c);
    return out;
}

} // namespace tervo
