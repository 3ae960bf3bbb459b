// Runs a fuzz target's entry function over files and directories of inputs,
// so the normal build guards every kept crash and seed without libFuzzer.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
    namespace fs = std::filesystem;
    std::vector<fs::path> files;
    for (int i = 1; i < argc; ++i) {
        std::error_code ec;
        if (fs::is_directory(argv[i], ec)) {
            for (const auto& e : fs::directory_iterator(argv[i]))
                if (e.is_regular_file()) files.push_back(e.path());
        } else if (fs::exists(argv[i], ec)) {
            files.emplace_back(argv[i]);
        }
    }
    for (const auto& f : files) {
        std::ifstream in(f, std::ios::binary);
        std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        // A heap copy of the exact size, so reads past the end are caught.
        std::vector<std::uint8_t> copy(bytes.begin(), bytes.end());
        LLVMFuzzerTestOneInput(copy.data(), copy.size());
    }
    std::printf("replayed %zu inputs\n", files.size());
    return 0;
}
