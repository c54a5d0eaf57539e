// Runs a fuzz target once over every file of the given files and directories,
// in name order: how seeds and kept crash inputs are replayed by the ordinary
// test build (any compiler, no libFuzzer).
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
    namespace fs = std::filesystem;
    std::vector<fs::path> inputs;
    for (int i = 1; i < argc; ++i) {
        fs::path p(argv[i]);
        if (fs::is_directory(p)) {
            for (const auto& entry : fs::directory_iterator(p)) {
                // Dot files (the placeholders that keep empty folders in git) are not inputs.
                if (entry.is_regular_file() && entry.path().filename().string()[0] != '.') {
                    inputs.push_back(entry.path());
                }
            }
        } else if (fs::is_regular_file(p)) {
            inputs.push_back(p);
        }
    }
    std::sort(inputs.begin(), inputs.end());
    for (const fs::path& p : inputs) {
        std::ifstream in(p, std::ios::binary);
        std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        std::printf("%s (%zu bytes)\n", p.filename().string().c_str(), bytes.size());
        std::fflush(stdout);
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    }
    std::printf("%zu inputs replayed\n", inputs.size());
    return inputs.empty() ? 1 : 0;
}
