// Replays fuzz inputs without the fuzzing engine: each file named on the command line, or each file
// of each folder named, is given once to the target.  Built with any compiler, so that the kept
// corpus and the regression cases run as ordinary tests (and under the sanitizers).
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

void Replay(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(in), {}};
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

} // namespace

int main(int argc, char** argv) {
    int count = 0;
    for (int i = 1; i < argc; ++i) {
        // Absolute, since a target works in a temporary folder of its own.
        std::error_code ec;
        const std::filesystem::path given = std::filesystem::absolute(argv[i], ec);
        if (std::filesystem::is_directory(given, ec)) {
            std::vector<std::filesystem::path> files;
            for (const auto& entry : std::filesystem::directory_iterator(given))
                if (entry.is_regular_file()) files.push_back(entry.path());
            std::sort(files.begin(), files.end()); // the same order on every machine
            for (const auto& f : files) {
                Replay(f);
                ++count;
            }
        } else if (std::filesystem::is_regular_file(given, ec)) {
            Replay(given);
            ++count;
        }
    }
    std::printf("%d inputs replayed\n", count);
    return 0;
}
