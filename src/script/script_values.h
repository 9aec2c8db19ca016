// The two small grammars that the whole script language shares: what a numeric value may be, and
// where a single number may be stored.
//
// A value is a script variable (xvalue, yindex, zvector[i], mode, loopcounter, maxiteration,
// looperror, nx for the length of vector x) or a plain number.  The index of a vector element is an
// integer, "last", or itself a value, so zvector[xindex] and zvector[nz] work; there are no
// expressions.
#pragma once

#include <string>

#include "script/script_runner.h"

namespace tervo {

// Decodes a value, case-insensitively.  An empty value gives -1.0 without a message; any other
// failure gives -1.0 after a message that quotes `commandLine`.
double ScriptValueToNumerical(const std::string& value, ScriptVariables& script,
                              const std::string& commandLine);

// Stores `number` into the variable that `target` names: Lvalue, Lindex (truncated), Lvector[i]
// (i = -1 appends), Lvector without a bracket (pushes at the front), mode, loopcounter, maxiteration
// (truncated; a negative number is stored and warned about), nL (resizes vector L).  `argument` is
// the argument of the `get` line, quoted in messages.
void PostProcesValue(double number, const std::string& target, ScriptVariables& script,
                     const std::string& argument);

} // namespace tervo
