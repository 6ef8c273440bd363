#include <cstddef>
#include <cstdint>
#include <filesystem>

#include <benchmark/benchmark.h>

#include "BenchData.h"
#include "IntelBin.h"
#include "RunLength.h"
#include "THexFile.h"

namespace {

constexpr std::size_t kLargeFile = std::size_t{8} << 20U;  // bytes of hex text
constexpr std::size_t kHexLine32 = 77;                     // a record of 32 bytes, its CR LF too
constexpr std::size_t kParameterSize = 0x60000;

void CountBytes(benchmark::State& state, const std::string& path)
{
    const auto size = static_cast<std::int64_t>(std::filesystem::file_size(path));
    state.SetBytesProcessed(state.iterations() * size);
}

void LoadAndScan(benchmark::State& state)
{
    const auto size = static_cast<std::size_t>(state.range(0));
    const std::string path =
        WriteHexFile("load.hex", HexRecords(FirmwareBytes(size / kHexLine32 * 32), 32));
    for (auto _ : state) {
        THexFile file;
        if (!file.LoadFromFile(path.c_str()))
            state.SkipWithError("not loaded");
        benchmark::DoNotOptimize(file.endAddress);
    }
    CountBytes(state, path);
}
BENCHMARK(LoadAndScan)->Arg(kLargeFile / 8)->Arg(kLargeFile);

void CheckIntelHex(benchmark::State& state)
{
    const auto records = HexRecords(FirmwareBytes(kParameterSize), 12);
    THexFile file;
    for (auto _ : state) {
        file.Reset();
        for (const std::string& record : records) {
            if (file.CheckIntelHex(record.c_str()) > 0)
                state.SkipWithError("refused");
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(records.size()));
}
BENCHMARK(CheckIntelHex);

// Each conversion is measured in the bytes that it reads. One write a byte is what the run-length
// coder makes by design, so it is bound by the system's calls.
void Conversion(benchmark::State& state, bool (*convert)(const char*, const char*),
                const char* source)
{
    const std::string hex = WriteHexFile("c.hex", HexRecords(FirmwareBytes(kParameterSize), 32));
    const std::string bin = BenchDirectory() + "/c.bin";
    const std::string rlg = BenchDirectory() + "/c.rlg";
    const std::string out = BenchDirectory() + "/c.out";
    if (!Intel2Bin(hex.c_str(), bin.c_str()) || !RL_Compress(bin.c_str(), rlg.c_str()))
        state.SkipWithError("no input");
    const std::string path = BenchDirectory() + source;
    for (auto _ : state) {
        if (!convert(path.c_str(), out.c_str()))
            state.SkipWithError("not converted");
    }
    CountBytes(state, path);
}
BENCHMARK_CAPTURE(Conversion, Intel2Bin, Intel2Bin, "/c.hex");
BENCHMARK_CAPTURE(Conversion, Bin2Intel, Bin2Intel, "/c.bin");
BENCHMARK_CAPTURE(Conversion, RL_Compress, RL_Compress, "/c.bin");
BENCHMARK_CAPTURE(Conversion, RL_Decompress, RL_Decompress, "/c.rlg");

}  // namespace
