// Runs a fuzz target over the files of the folders that it is given.

#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const char* data, std::size_t size);

int main(int argc, char** argv)
{
    int inputs = 0;
    for (int i = 1; i < argc; ++i) {
        if (!std::filesystem::is_directory(argv[i]))
            continue;
        for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
            std::ifstream file(entry.path(), std::ios::binary);
            const std::vector<char> input{std::istreambuf_iterator<char>(file), {}};
            LLVMFuzzerTestOneInput(input.data(), input.size());
            ++inputs;
        }
    }
    return inputs > 0 ? 0 : 1;
}
