// The action list: the reader of the working points and sweeps (with its check of the files that it
// names) and the writer of what it read.
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz_support.h"
#include "run/control/action_list.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    tervo::fuzz::ResetProgramState();
    const std::string path = tervo::fuzz::WriteInput(data, size, "def/fuzz.act");
    tervo::SetActionPanelFromFile(path);
    tervo::SaveActionList(tervo::fuzz::Home() + "def/saved.act");
    return 0;
}
