#include "script/script_values.h"

#include <cmath>
#include <limits>

#include "platform/format.h"
#include "platform/messages.h"
#include "platform/text_util.h"

namespace tervo {

namespace {

// The slot forms "Lvalue", "Lindex", "Lvector[": the keyword begins at the second character.
bool SlotForm(const std::string& text, const char* keyword) {
    return text.size() > 1 && StartsWithNoCase(std::string_view(text).substr(1), keyword);
}

// A real truncated toward zero into an integer; values beyond the range of int are held at its ends.
int Truncate(double value) {
    if (std::isnan(value)) return 0;
    const double t = std::trunc(value);
    if (t >= static_cast<double>(std::numeric_limits<int>::max())) return std::numeric_limits<int>::max();
    if (t <= static_cast<double>(std::numeric_limits<int>::min())) return std::numeric_limits<int>::min();
    return static_cast<int>(t);
}

// The text behind the first '[' of a vector form ("" without one).
std::string IndexText(const std::string& text) {
    const size_t bracket = text.find('[');
    return bracket == std::string::npos ? std::string() : text.substr(bracket + 1);
}

// How the index of a vector form was given.
enum class IndexForm { Integer, Computed };

// The index behind the bracket: an integer written out, "last", or a value of its own (truncated).
int VectorIndex(const std::string& indexText, const std::vector<double>& vector, ScriptVariables& script,
                const std::string& commandLine, IndexForm& form) {
    long long integer = 0;
    const std::string text = Trim(indexText);
    if (ReadInteger(text, integer) > 0) {
        form = IndexForm::Integer;
        if (integer > std::numeric_limits<int>::max()) return std::numeric_limits<int>::max();
        if (integer < std::numeric_limits<int>::min()) return std::numeric_limits<int>::min();
        return static_cast<int>(integer);
    }
    form = IndexForm::Computed;
    if (StartsWithNoCase(text, "last")) return static_cast<int>(vector.size()) - 1;
    return Truncate(ScriptValueToNumerical(text, script, commandLine));
}

} // namespace

double ScriptValueToNumerical(const std::string& rawValue, ScriptVariables& script,
                              const std::string& commandLine) {
    const std::string value = Trim(rawValue);
    if (SlotForm(value, "value") || SlotForm(value, "index") || SlotForm(value, "vector[")) {
        const int slot = GetSCRmode(value[0]);
        if (slot < 0) {
            TERVOErrorMessage("Error in interpreting value of Set or Math command",
                              FmtStr("%s<Command line: %s[q]", commandLine));
            return -1.0;
        }
        const size_t k = static_cast<size_t>(slot);
        if (SlotForm(value, "value")) return script.svalue[k];
        if (SlotForm(value, "index")) return script.sindex[k];

        const std::vector<double>& vector = script.svector[k];
        const int last = static_cast<int>(vector.size()) - 1;
        IndexForm form = IndexForm::Integer;
        const int index = VectorIndex(IndexText(value), vector, script, commandLine, form);
        if (index < 0 || index > last) {
            if (form == IndexForm::Integer) {
                TERVOErrorMessage("Error in interpreting value of Set or Math command",
                                  FmtStr("%s<Command line: %s[q]\nIndex of scriptvariable %s[q] out of "
                                         "range\nIndex = %i; min = 0; max = %i",
                                         commandLine, value.substr(0, value.find('[')), index, last));
            } else {
                TERVOErrorMessage("Error in the interpretation of a vector-value",
                                  FmtStr("%s<Command line: %s[q]\nvector-value not recognised: value = %s",
                                         commandLine, value));
            }
            return -1.0;
        }
        return vector[static_cast<size_t>(index)];
    }
    if (StartsWithNoCase(value, "mode")) return script.mode;
    if (StartsWithNoCase(value, "loopcounter")) return script.loopcounter;
    if (StartsWithNoCase(value, "maxiteration")) return script.maxiteration;
    if (StartsWithNoCase(value, "looperror")) return script.looperror;
    if (!value.empty() && (value[0] == 'n' || value[0] == 'N')) {
        const int slot = value.size() > 1 ? GetSCRmode(value[1]) : -1;
        if (slot < 0) {
            TERVOErrorMessage("Error in interpreting value of Set, Get or Math command",
                              FmtStr("%s<Command line: %s[q]", commandLine));
            return -1.0;
        }
        return script.nvector[static_cast<size_t>(slot)];
    }
    if (value.empty()) return -1.0;
    double number = 0;
    if (ReadReal(value, number) == 0) {
        TERVOErrorMessage(
            "Error in the value of Set, Get or Math command",
            FmtStr("%s<Command line: %s[q]\nvalue not recognised: value = %s", commandLine, value));
        return -1.0;
    }
    return number;
}

void PostProcesValue(double number, const std::string& rawTarget, ScriptVariables& script,
                     const std::string& argument) {
    const std::string target = Trim(rawTarget);
    const std::string commandLine = FmtStr("%s[q]<get %s %s", argument, target);

    if (SlotForm(target, "value") || SlotForm(target, "index") || SlotForm(target, "vector")) {
        const int slot = GetSCRmode(target[0]);
        if (slot < 0) {
            TERVOErrorMessage("Error in interpreting value of Get command",
                              FmtStr("%s<Command line: %s", commandLine));
            return;
        }
        const size_t k = static_cast<size_t>(slot);
        if (SlotForm(target, "value")) {
            script.svalue[k] = number;
            return;
        }
        if (SlotForm(target, "index")) {
            script.sindex[k] = Truncate(number);
            return;
        }
        std::vector<double>& vector = script.svector[k];
        if (!SlotForm(target, "vector[")) {
            // Without a bracket the number is pushed in at the front.
            vector.insert(vector.begin(), number);
            script.nvector[k] = static_cast<int>(vector.size());
            return;
        }
        const int last = static_cast<int>(vector.size()) - 1;
        IndexForm form = IndexForm::Integer;
        const int index = VectorIndex(IndexText(target), vector, script, commandLine, form);
        if (index == -1) {
            vector.push_back(number);
            script.nvector[k] = static_cast<int>(vector.size());
            return;
        }
        if (index < 0 || index > last) {
            if (form == IndexForm::Integer) {
                TERVOErrorMessage("Error in interpreting target of Get command",
                                  FmtStr("%s<Command line: %s\nIndex of target xvector out of range\nIndex = "
                                         "%i; min = 0; max = %i",
                                         commandLine, index, last));
            } else {
                TERVOErrorMessage("Error in the interpretation of a vector-value",
                                  FmtStr("%s<Command line: %s\nthe index of the target-vector is not "
                                         "recognised: value = %s",
                                         commandLine, target));
            }
            return;
        }
        vector[static_cast<size_t>(index)] = number;
        return;
    }

    struct IntegerTarget {
        const char* name;
        int* field;
    };
    const IntegerTarget integers[] = {
        {"mode", &script.mode}, {"loopcounter", &script.loopcounter}, {"maxiteration", &script.maxiteration}};
    for (const IntegerTarget& t : integers) {
        if (!StartsWithNoCase(target, t.name)) continue;
        *t.field = Truncate(number);
        if (*t.field < 0) {
            TERVOErrorMessage("Warning in the target value of Get command",
                              FmtStr(std::string("%s<Command line: %s\na negative ") + t.name +
                                         " parameter was passed: mode = %i",
                                     commandLine, *t.field));
        }
        return;
    }

    if (!target.empty() && (target[0] == 'n' || target[0] == 'N')) {
        const int slot = target.size() > 1 ? GetSCRmode(target[1]) : -1;
        if (slot < 0) {
            TERVOErrorMessage("Error in interpreting value of Set, Get or Math command",
                              FmtStr("%s<Command line: %s[q]", commandLine));
            return;
        }
        // A negative length leaves an empty vector.
        ResizeScriptVector(script, slot, Truncate(number));
        return;
    }

    TERVOErrorMessage("Error in the target of Get command",
                      FmtStr("%s<Command line: %s\nTarget not recognised: target = %s", commandLine, target));
}

} // namespace tervo
