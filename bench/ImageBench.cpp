#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <limits>
#include <string>

#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include "BenchData.h"
#include "FileBytes.h"
#include "IntelBin.h"
#include "OutputFile.h"
#include "RunLength.h"
#include "THexFile.h"
#include "TSStringList.h"
#include "UniqueFd.h"

namespace {

constexpr std::size_t kLargeFile = std::size_t{8} << 20U;  // bytes of hex text
constexpr std::size_t kHexLine32 = 77;                     // a record of 32 bytes, its CR LF too
constexpr std::size_t kParameterSize = 0x60000;
constexpr std::size_t kParameterRecord = 12;  // data bytes of a record that is read back
constexpr std::size_t kWrittenRecord = 32;

// Freed memory stays with the process, so that a round doesn't pay for pages that the last one has
// returned.
const bool keepsMemory = mallopt(M_MMAP_THRESHOLD, 32 << 20) == 1 &&
                         mallopt(M_TRIM_THRESHOLD, std::numeric_limits<int>::max()) == 1;

void CountBytes(benchmark::State& state, const std::string& path)
{
    const auto size = static_cast<std::int64_t>(std::filesystem::file_size(path));
    state.SetBytesProcessed(state.iterations() * size);
}

std::string LargeFile(std::size_t size)
{
    return WriteHexFile("load.hex", HexRecords(FirmwareBytes(size / kHexLine32 * 32), 32));
}

FileBytes Load(const std::string& path)
{
    const UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    FileBytes bytes;
    if (!file || !ReadWholeFile(file.Get(), bytes))
        std::abort();
    return bytes;
}

void LoadFromFile(benchmark::State& state)
{
    const std::string path = LargeFile(static_cast<std::size_t>(state.range(0)));
    while (state.KeepRunning()) {
        THexFile file;
        if (!file.LoadFromFile(path.c_str()))
            state.SkipWithError("not loaded");
        benchmark::DoNotOptimize(file.endAddress);
    }
    CountBytes(state, path);
}
BENCHMARK(LoadFromFile)->Arg(kLargeFile)->Arg(kLargeFile / 8);

// Calls the function with each line of the text, with its line end.
template <typename Take>
void ForEachLine(const FileBytes& text, Take take)
{
    const unsigned char* const end = text.data.get() + text.size;
    for (const unsigned char* at = text.data.get(); at != end;) {
        const void* const lf = std::memchr(at, '\n', static_cast<std::size_t>(end - at));
        const auto* const next = static_cast<const unsigned char*>(lf) + 1;
        take(at, static_cast<std::size_t>(next - at));
        at = next;
    }
}

// Reads the file, counts its lines and copies them into rows as long as the longest, without
// parsing them.
void LoadBare(benchmark::State& state)
{
    const std::string path = LargeFile(static_cast<std::size_t>(state.range(0)));
    while (state.KeepRunning()) {
        const FileBytes text = Load(path);
        std::size_t rows = 0;
        std::size_t longest = 0;
        ForEachLine(text, [&](const unsigned char*, std::size_t size) {
            ++rows;
            longest = std::max(longest, size);
        });
        auto* const block = static_cast<unsigned char*>(std::calloc(rows, longest));
        unsigned char* row = block;
        ForEachLine(text, [&](const unsigned char* line, std::size_t size) {
            std::memcpy(row, line, size);
            row += longest;
        });
        benchmark::DoNotOptimize(block);
        std::free(block);
    }
    CountBytes(state, path);
}
BENCHMARK(LoadBare)->Name("LoadFromFile:bare")->Arg(kLargeFile)->Arg(kLargeFile / 8);

void CheckIntelHex(benchmark::State& state)
{
    const auto records = HexRecords(FirmwareBytes(kParameterSize), kParameterRecord);
    THexFile file;
    while (state.KeepRunning()) {
        file.Reset();
        for (const std::string& record : records) {
            if (file.CheckIntelHex(record.c_str()) > 0)
                state.SkipWithError("refused");
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(records.size()));
    state.SetLabel("records");
}
BENCHMARK(CheckIntelHex);

// Keeps the records without parsing them.
void KeepBare(benchmark::State& state)
{
    const auto records = HexRecords(FirmwareBytes(kParameterSize), kParameterRecord);
    TSStringList list;
    while (state.KeepRunning()) {
        list.Clear();
        for (const std::string& record : records)
            list.TSList::Add(new TSString(record.c_str()));
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(records.size()));
    state.SetLabel("records");
}
BENCHMARK(KeepBare)->Name("CheckIntelHex:bare");

// The inputs of the conversions: an image as large as the parameters, in three forms.
struct Forms {
    Forms()
    {
        WriteHexFile("c.hex", HexRecords(FirmwareBytes(kParameterSize), kWrittenRecord));
        if (!Intel2Bin(hex.c_str(), bin.c_str()) || !RL_Compress(bin.c_str(), rlg.c_str()))
            std::abort();
    }
    const std::string hex = BenchDirectory() + "/c.hex";
    const std::string bin = BenchDirectory() + "/c.bin";
    const std::string rlg = BenchDirectory() + "/c.rlg";
    const std::string out = BenchDirectory() + "/c.out";
};

// Conversions are measured by the bytes that they read.
template <typename Convert>
void Measure(benchmark::State& state, const std::string& source, Convert convert)
{
    while (state.KeepRunning()) {
        if (!convert())
            state.SkipWithError("not converted");
    }
    CountBytes(state, source);
}

// Writes `size` bytes in pieces of `piece`.
bool WritePieces(const std::string& path, std::size_t size, std::size_t piece)
{
    const char bytes[kHexLine32] = {};
    const UniqueFd output(CreateOutputFile(path.c_str()));
    for (std::size_t done = 0; done < size; done += piece) {
        if (!WriteWhole(output.Get(), bytes, piece))
            return false;
    }
    return true;
}

void Intel2BinBench(benchmark::State& state)
{
    const Forms forms;
    Measure(state, forms.hex, [&] { return Intel2Bin(forms.hex.c_str(), forms.out.c_str()); });
}
BENCHMARK(Intel2BinBench)->Name("Intel2Bin");

// Keeps the file as a list of lines, like Intel2Bin.
void Intel2BinBare(benchmark::State& state)
{
    const Forms forms;
    Measure(state, forms.hex, [&] {
        TSStringList list;
        list.LoadFromFile(forms.hex.c_str());
        return WritePieces(forms.out, kParameterSize, kWrittenRecord);
    });
}
BENCHMARK(Intel2BinBare)->Name("Intel2Bin:bare");

void Bin2IntelBench(benchmark::State& state)
{
    const Forms forms;
    Measure(state, forms.bin, [&] { return Bin2Intel(forms.bin.c_str(), forms.out.c_str()); });
}
BENCHMARK(Bin2IntelBench)->Name("Bin2Intel");

void Bin2IntelBare(benchmark::State& state)
{
    const Forms forms;
    Measure(state, forms.bin, [&] {
        const UniqueFd input(open(forms.bin.c_str(), O_RDONLY | O_CLOEXEC));
        char data[kWrittenRecord];
        while (read(input.Get(), data, sizeof(data)) > 0) {
        }
        return WritePieces(forms.out, kParameterSize / kWrittenRecord * kHexLine32, kHexLine32);
    });
}
BENCHMARK(Bin2IntelBare)->Name("Bin2Intel:bare");

// The run-length coder makes one write per byte by design.
void RunLength(benchmark::State& state, bool (*convert)(const char*, const char*),
               const std::string Forms::*source)
{
    const Forms forms;
    const std::string& path = forms.*source;
    Measure(state, path, [&] { return convert(path.c_str(), forms.out.c_str()); });
}
BENCHMARK_CAPTURE(RunLength, RL_Compress, RL_Compress, &Forms::bin)->Name("RL_Compress");
BENCHMARK_CAPTURE(RunLength, RL_Decompress, RL_Decompress, &Forms::rlg)->Name("RL_Decompress");

void RunLengthBare(benchmark::State& state, const std::string Forms::*source,
                   const std::string Forms::*target)
{
    const Forms forms;
    const auto size = static_cast<std::size_t>(std::filesystem::file_size(forms.*target));
    Measure(state, forms.*source, [&] {
        benchmark::DoNotOptimize(Load(forms.*source).size);
        return WritePieces(forms.out, size, 1);
    });
}
BENCHMARK_CAPTURE(RunLengthBare, RL_Compress, &Forms::bin, &Forms::rlg)->Name("RL_Compress:bare");
BENCHMARK_CAPTURE(RunLengthBare, RL_Decompress, &Forms::rlg, &Forms::bin)
    ->Name("RL_Decompress:bare");

}  // namespace
