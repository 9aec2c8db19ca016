// Small text helpers that the keyword-driven readers share: case-insensitive prefix and phrase
// tests, the first number of a line, and the value behind a colon.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tervo {

// FindPattern(text, start, length, pattern, caseSensitive, fromRight): index of the pattern within
// text[start, start+length) (length -1: to the end), or -1 when it is not there.
int FindPattern(std::string_view text, int start, int length, std::string_view pattern, bool caseSensitive,
                bool fromRight);

bool StartsWithNoCase(std::string_view text, std::string_view prefix);
bool ContainsNoCase(std::string_view text, std::string_view phrase);
bool StartsWith(std::string_view text, std::string_view prefix);
bool Contains(std::string_view text, std::string_view phrase);

// The first number in `text` (skipping everything in front of it), as a real.  False if none.
bool FirstNumber(std::string_view text, double& value);
// The same behind the first ':' of the text.
bool NumberBehindColon(std::string_view text, double& value);
// The text behind the first ':' with leading and trailing white space removed ("" without a colon).
std::string TextBehindColon(std::string_view text);

// Reads up to `maxCount` numbers from `text`: skips everything up to the first number, then reads
// numbers separated only by white space and stops at the first token that is not a number, so that a
// unit behind the values ("1e25\t2e25\t[/m^3]") is never taken for one.  The count read.
int ReadNumbers(std::string_view text, double* values, int maxCount);

// True when a number starts at text[index]: a digit, or '+', '-' or '.' directly followed by a digit,
// or "-." followed by a digit.  This is where a "t#" scan field ends.
bool NumberStartsAt(std::string_view text, std::size_t index);

// Reads a real at the very start of `text` (optional sign, digits, point, exponent; no locale).
// The number of characters taken, 0 when no number stands there (value then untouched).
std::size_t ReadReal(std::string_view text, double& value);

// Reads a decimal integer at the very start of `text` (optional sign).  Values beyond the range of
// long long are clamped.  The number of characters taken, 0 when none (value then untouched).
std::size_t ReadInteger(std::string_view text, long long& value);

// True for the blank, tab, line end, vertical tab and form feed.
bool IsWhite(char c);

std::string TrimRight(std::string_view text);
std::string Trim(std::string_view text);
std::string ToLower(std::string_view text);

} // namespace tervo
