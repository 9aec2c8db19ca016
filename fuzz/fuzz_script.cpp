// The script file: the tokeniser, the command table and every command that reads or sets something
// (load, save, set, get, action, math, loop, clear, ...).  Scripts that would reach outside the
// fuzzing process are not run: a line that starts another program, a user library, another script or
// a simulation (which is no reading and takes seconds), or that names a path with a folder in it, so
// that every file a script loads or saves is a bare name in the temporary home folder.
#include <cstddef>
#include <cstdint>
#include <string>

#include "cell/definition_file.h"
#include "fuzz_support.h"
#include "platform/text_file.h"
#include "script/script_runner.h"

namespace {

bool MayRun(const std::string& path) {
    // The lines exactly as the run loop reads and splits them.
    tervo::TextFile file = tervo::OpenFile(path, tervo::FileMode::Read);
    std::string line;
    for (;;) {
        const int read = tervo::ReadNonEmptyNonCommentLine(file, line, tervo::SCRIPT_LINE_LIMIT, 1, 0, 0);
        if (read < 0) return true;
        if (read == 0) continue;
        std::string command, argument, value;
        tervo::InterpretScriptLine(line, &command, &argument, &value);
        const std::string word = tervo::ScriptCommandWord(tervo::ScriptCommandCode(command));
        if (word == "calculate" || word.rfind("run", 0) == 0) return false;
        const std::string rest = argument + " " + value;
        if (rest.find('/') != std::string::npos || rest.find("..") != std::string::npos) return false;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    tervo::fuzz::ResetProgramState();
    tervo::InitialiseScriptVariables(tervo::theScript);
    tervo::ClearScriptGraph(tervo::theScript);
    const std::string path = tervo::fuzz::WriteInput(data, size, "script/fuzz.script");
    if (!MayRun(path)) return -1; // not kept in the corpus
    tervo::RunScriptFile(path, 1);
    return 0;
}
