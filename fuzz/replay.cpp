// Runs a fuzz target over its corpus as a test: every file, and every beginning of it.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main() {
    size_t inputs = 0;
    for (const auto& entry : std::filesystem::directory_iterator(KZ_CORPUS)) {
        std::ifstream file(entry.path(), std::ios::binary);
        const std::string content(std::istreambuf_iterator<char>(file), {});
        for (size_t length = 0; length <= content.size(); ++length, ++inputs) {
            // In a buffer of its own, so that a step beyond it shows under a sanitizer.
            const std::vector<uint8_t> input(content.data(), content.data() + length);
            LLVMFuzzerTestOneInput(input.data(), input.size());
        }
    }
    std::printf("%zu inputs\n", inputs);
    return inputs > 0 ? 0 : 1;
}
