// The generation file G(x): read with an attenuation, and the current it stands for.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "setup/absorption.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    tervo::fuzz::ResetMessages();
    const std::string path = tervo::fuzz::WriteInput(data, size, "generation/fuzz.gen");
    std::vector<double> x, G;
    if (tervo::GetGenerationFromFile(path, 50.0, x, G) > 0) tervo::GenerationFileCurrent(x, G);
    return 0;
}
