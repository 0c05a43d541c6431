// Runs a fuzz target over the folders given, as a test: every file, and its beginnings. Those of a long one are picked.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

constexpr size_t kBeginnings = 64;  // of a file

size_t Replay(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    const std::string content(std::istreambuf_iterator<char>(file), {});
    const size_t step = 1 + content.size() / kBeginnings;
    size_t inputs = 0;
    for (size_t missing = 0; missing <= content.size(); missing += step, ++inputs) {
        // In a buffer of its own, so that a step beyond it shows under a sanitizer.
        const std::vector<uint8_t> input(content.begin(), content.end() - static_cast<std::ptrdiff_t>(missing));
        LLVMFuzzerTestOneInput(input.data(), input.size());
    }
    return inputs;
}

}  // namespace

int main(int count, char** folders) {
    size_t inputs = 0;
    for (int i = 1; i < count; ++i) {
        if (std::filesystem::exists(folders[i])) {
            for (const auto& entry : std::filesystem::directory_iterator(folders[i])) {
                inputs += Replay(entry.path());
            }
        }
    }
    std::printf("%zu inputs\n", inputs);
    return inputs > 0 ? 0 : 1;
}
