// Runs a fuzz target on the files in the folders that its arguments name. A folder may be missing.

#include "FuzzInput.h"

extern "C" int LLVMFuzzerTestOneInput(const char* data, std::size_t size);

int main(int argc, char** argv)
{
    int inputs = 0;
    std::error_code ignored;
    for (int i = 1; i < argc; ++i) {
        for (const auto& entry : std::filesystem::directory_iterator(argv[i], ignored)) {
            const std::string input = ReadFile(entry.path());
            LLVMFuzzerTestOneInput(input.data(), input.size());
            ++inputs;
        }
    }
    return inputs > 0 ? 0 : 1;
}
