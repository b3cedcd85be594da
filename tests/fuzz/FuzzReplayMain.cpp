// Replays fuzz inputs (files, or every file of a folder) through a fuzz entry point, so the
// entry points build and run in ordinary builds too.
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

bool replay(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    if (!in)
        return false;
    const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    return true;
}

} // namespace

int main(int argc, char** argv) {
    std::size_t replayed = 0;
    for (int i = 1; i < argc; ++i) {
        const std::filesystem::path path(argv[i]);
        if (std::filesystem::is_directory(path)) {
            for (const auto& entry : std::filesystem::directory_iterator(path))
                if (entry.is_regular_file() && replay(entry.path()))
                    ++replayed;
        } else if (replay(path)) {
            ++replayed;
        } else {
            std::cerr << "cannot read " << path << "\n";
            return 1;
        }
    }
    std::cout << "replayed " << replayed << " inputs\n";
    return replayed > 0 ? 0 : 1;
}
