// The reader of a definition file, shared by its section readers: the line grammar (the next line
// that is neither a comment nor blank, a key as a prefix of the line, the numbers behind it), the
// key tables that each section reads its lines with, and the section readers themselves.
//
// A section is a run of lines "key : value(s) [unit]".  Each section has one table of its keys in
// the order in which they are tried: the first key that begins the line reads it, so a key that is
// the start of a longer one stands behind the longer one.  Lines that no key matches are passed over.
#pragma once

#include <array>
#include <string>
#include <string_view>

#include "cell/definition_file.h"
#include "platform/text_file.h"

namespace tervo::defread {

inline constexpr const char* kReadTitle =
    "Error whilst reading the def file (in ReadNonEmptyNonCommentLine()";
inline constexpr const char* kWarnTitle = "Warning whilst reading the def file";

// Skips to the first number of `s`, then reads numbers separated by white space, up to maxCount;
// stops at the first token that is not a number or not finite.  `end` receives the position behind
// the last number read (the length of `s` when none was read).
int ReadNumberRun(std::string_view s, double* values, int maxCount, size_t* end = nullptr);

// A line of white space alone.
bool IsBlankLine(const std::string& s);

// The text behind the first ':' of a line, trimmed; "" when there is none.
std::string AfterColon(std::string_view s);

// A bare name of a side file resolved into the given folder of the home tree; a path stays as it is.
std::string InHomeFolder(const std::string& folder, const std::string& name);

// The file part of a path.
std::string BaseName(const std::string& path);

// The physical range of a value read from the file.  A value outside it is refused with a warning
// and the field keeps what it held, as for a value that cannot be read.
enum class Range { Any, Positive, NonNegative, Fraction };

// No thin-film layer is thicker than this: beyond it the at most 100 points of a layer's mesh would
// leave steps of more than 10 um in its middle.
inline constexpr double MAX_LAYER_THICKNESS_M = 1e-3;

// The state of one reading of a file: the present line and where it stands, and what has been seen.
struct DefReader {
    TextFile file;
    std::string path;
    InputParameters& P;
    DefinitionWorkingSettings& S;
    int noRemarks = 0;
    std::string line;
    int lineNumber = 0;
    bool eof = false;
    bool failed = false;
    bool tunnelFlagLineSeen = false;
    bool workingPointLineRead = false;
    bool referenceLinesRead = false;
    std::string where; // the part of the cell being read ("layer 1 (CIGS)"), for messages

    DefReader(InputParameters& p, DefinitionWorkingSettings& s) : P(p), S(s) {}

    CellDefinition& cell() { return P.cellParas; }

    // The next non-empty line; a missing line is the failure of an incomplete file unless
    // endAllowed.  False at the end or on failure.
    bool Next(bool endAllowed = false);

    // "file", line n, part of the cell: the place of the present line, for messages.
    std::string Place() const;
    // Refuses the file, naming it and the line.
    void Fail(const std::string& what);
    // A reading warning about the present line: the file is still read.
    void Warn(const std::string& what);
    // Warns that the line holds no number where one is needed; the field keeps its value.
    void WarnNoNumber();
    // Warns that no key of the section begins the line; the line is passed over.
    void WarnUnknownKey();
    // Warns that `value` lies outside `range`; the field keeps its value.  True when it lies inside.
    bool InRange(double value, Range range);

    // The first number of the line (or behind the colon); warns and keeps the field when none or
    // when it lies outside its range.  An integer is checked against lo .. hi before it is converted.
    bool Number(double& target, bool behindColon = false, Range range = Range::Any);
    bool Integer(int& target, bool behindColon = false, int lo = -1000000000, int hi = 1000000000);
    // A profile line: warns and keeps the profile when it holds no number or a value of a material
    // end or layer edge outside `range`.
    bool ProfileLine(Profile& target, Range range);

    // The key begins the line (blanks before it skipped): in any case, or exactly.
    bool Key(std::string_view key) const;
    bool KeyExact(std::string_view key) const;
    // The line holds the phrase anywhere, in any case.
    bool Holds(std::string_view phrase) const;
    std::string_view TrimLeft() const;
};

// A value of the file as an integer within lo .. hi; false (target untouched) for one outside, so
// that no value of a file, "1e400" included, reaches an integer conversion it does not fit.
bool ToBoundedInt(double value, int lo, int hi, int& target);

// A switch of the tunnelling of an element also switches the mechanism on for the whole cell, in
// files written before the cell had switches of its own.
void NoteTunnelFlagFromElement(DefReader& r, int value, int& flag);

// How a key of a table is compared with a line: as its start in any case, as its start exactly, or
// as a phrase anywhere in it (in any case).
enum class KeyMatch { NoCase, Exact, Anywhere };

// One key of a section table and what reads its line into the section's target.
template <typename Target>
struct KeyEntry {
    std::string_view key;
    KeyMatch match;
    void (*read)(DefReader& r, Target& target);
};

// Reads the line by the first entry of `table` whose key begins it; false when none does.
template <typename Target, size_t N>
bool ReadKeyedLine(DefReader& r, const std::array<KeyEntry<Target>, N>& table, Target& target) {
    for (const KeyEntry<Target>& entry : table) {
        const bool match = entry.match == KeyMatch::Exact    ? r.KeyExact(entry.key)
                           : entry.match == KeyMatch::NoCase ? r.Key(entry.key)
                                                             : r.Holds(entry.key);
        if (match) {
            entry.read(r, target);
            return true;
        }
    }
    return false;
}

// The defect type named anywhere in a line (the last of the types that it names), and the energy
// distribution named in a value (the first); -1 when it names none.
int TypeFromLine(const std::string& value);
int EnergyTypeFromLine(const std::string& value);
// The number of levels of a defect, within 1 .. MAX_LEVELS.
int LevelCount(const DefectLevels& d);

// ---- the sections, each in a file of its own -------------------------------------------------

// General and numerical settings (before the left contact) and the working point (behind the right
// contact).
void ReadConvergenceLine(DefReader& r);
void ReadWorkingPointLine(DefReader& r);

// A contact: its lines, then what follows from the lines that were there and those that were not.
struct ContactReadState {
    bool flatbandSeen = false;
    bool fiSeen = false;
};
void ReadContactLine(DefReader& r, ContactParameters& c, ContactReadState& st);
void FinishContact(ContactParameters& c, const ContactReadState& st);

// "layer n (name)" of the last layer read, for messages.
std::string LastLayerPlace(const CellDefinition& cell);

// A line that opens a layer.
bool StartsLayer(const DefReader& r);
// The sections bound to the last layer read; each starts at its opening line and ends on the line
// that opens the next section (true), or fails (false).
bool ReadLayerSection(DefReader& r);
bool ReadDefectSection(DefReader& r);
bool ReadMetaSection(DefReader& r);
bool ReadInterfacePropertiesSection(DefReader& r);
bool ReadInterfaceDefectSection(DefReader& r);
// What follows once the whole file is read: the composition law of each layer, the thickness in its
// profiles, the signs of the conventions.
void FinishLayers(DefReader& r);

} // namespace tervo::defread
