#include "BenchData.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace {

constexpr std::size_t kPage = 0x10000;

struct Directory {
    std::string path = "/tmp/diag_bench.XXXXXX";
    Directory()
    {
        if (mkdtemp(path.data()) == nullptr)
            std::abort();
    }
    ~Directory() { std::filesystem::remove_all(path); }
};

std::string Record(unsigned type, unsigned address, const unsigned char* data, std::size_t count)
{
    std::string text(count * 2 + 14, '\0');
    unsigned sum = static_cast<unsigned>(count) + (address >> 8U) + (address & 0xFFU) + type;
    int at = std::snprintf(text.data(), text.size(), ":%02zX%04X%02X", count, address, type);
    for (std::size_t i = 0; i < count; ++i) {
        sum += data[i];
        at += std::snprintf(text.data() + at, 3, "%02X", data[i]);
    }
    at += std::snprintf(text.data() + at, 5, "%02X\r\n", (0U - sum) & 0xFFU);
    text.resize(static_cast<std::size_t>(at));
    return text;
}

}  // namespace

const std::string& BenchDirectory()
{
    static const Directory directory;
    return directory.path;
}

std::vector<unsigned char> FirmwareBytes(std::size_t size)
{
    std::vector<unsigned char> bytes(size);
    std::uint32_t state = 1;
    for (std::size_t i = 0; i < size; ++i) {
        state = state * 1664525U + 1013904223U;
        // A quarter of each 4 KiB is erased flash, which run-length coding shortens.
        bytes[i] = i % 4096 < 1024 ? 0xFF : static_cast<unsigned char>(state >> 24U);
    }
    return bytes;
}

std::vector<std::string> HexRecords(const std::vector<unsigned char>& bytes, std::size_t perRecord)
{
    std::vector<std::string> records;
    for (std::size_t at = 0; at < bytes.size();) {
        if (at % kPage == 0) {
            const std::uint32_t upper = (kImageStart + static_cast<std::uint32_t>(at)) >> 16U;
            const unsigned char base[] = {static_cast<unsigned char>(upper >> 8U),
                                          static_cast<unsigned char>(upper)};
            records.push_back(Record(4, 0, base, sizeof(base)));
        }
        const std::size_t count = std::min({perRecord, bytes.size() - at, kPage - at % kPage});
        records.push_back(Record(0, static_cast<unsigned>(at % kPage), bytes.data() + at, count));
        at += count;
    }
    records.push_back(Record(1, 0, nullptr, 0));
    return records;
}

std::string WriteHexFile(const char* name, const std::vector<std::string>& records)
{
    std::string path = BenchDirectory() + "/" + name;
    std::ofstream file(path, std::ios::binary);
    for (const std::string& record : records)
        file << record;
    return path;
}
