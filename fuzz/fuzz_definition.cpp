// The definition file: the whole loader of a cell (the reader, the conversion into the session's
// cell, the contacts' work functions) and, for a file that loaded, the writer of the loaded cell.
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz_support.h"
#include "run/control/problem.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    tervo::fuzz::ResetProgramState();
    const std::string path = tervo::fuzz::WriteInput(data, size, "def/fuzz.def");
    if (tervo::Laad_data_uit_file(path) == 0)
        tervo::SaveDefinitionFileToPath(tervo::fuzz::Home() + "def/saved.def");
    return 0;
}
