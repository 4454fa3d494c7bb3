// Hands every file of the folders named on the command line to the fuzzer that this is linked to. A
// folder without a file fails: a corpus that was lost must not look like one that passed.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz/Fuzz.h"

namespace {

std::vector<std::uint8_t> contents(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

int replay(const char* folder) {
    int files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        if (!entry.is_regular_file()) continue;
        // Said before it runs, so that the last line of a failed run names the file.
        std::printf("%s\n", entry.path().filename().string().c_str());
        std::fflush(stdout);
        const std::vector<std::uint8_t> bytes = contents(entry.path());
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
        ++files;
    }
    return files;
}

}  // namespace

int main(int argc, char** argv) {
    bool empty = argc < 2;
    for (int i = 1; i < argc; ++i) {
        const int files = replay(argv[i]);
        std::printf("%s: %d files\n", argv[i], files);
        empty = empty || files == 0;
    }
    return empty ? 1 : 0;
}
