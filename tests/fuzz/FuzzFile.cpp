// Any bytes as a firmware file, as a stream of records and as a compressed file: rows and addresses
// are bounded, accepted records are saved byte for byte, and what is converted and back is the
// same.

#include <cstring>

#include "FuzzInput.h"
#include "HexCheck.h"
#include "IntelBin.h"
#include "RunLength.h"
#include "THexFile.h"

static void Load(const char* path)
{
    THexFile file;
    Require(file.LoadFromFile(path) || (file.lineCount == 0 && file.maxLineLength == 0));
    Require(std::memchr(file.versionText, 0, sizeof(file.versionText)) != nullptr);
    unsigned long upper = 0;
    unsigned long sended = 0;
    for (int i = 0; i < file.lineCount; ++i) {
        Require(std::strlen(file.lines[i]) < 80);
        const bool isBase = file.GetSendedAddress(file.lines[i], &upper, &sended);
        Require(upper % 0x10000 == 0 && sended <= 0xFFFFFFFFUL && (!isBase || sended == upper));
    }
}

static void Receive(std::string records)
{
    THexFile file;
    std::string accepted;
    while (!records.empty()) {
        const std::string line = TakeLine(records) + "\r\n";
        const std::uint32_t before = file.GetNextAddress();
        const int result = file.CheckIntelHex(line.c_str());
        const std::uint32_t moved = file.GetNextAddress() - before;
        if (result <= 0)
            accepted += line.substr(0, line.find('\0'));
        // An accepted base record moves to a 64 KiB boundary, data by its count.
        Require(moved == 0 ||
                (result == 0 && (moved <= 0xFF || file.GetNextAddress() % 0x10000 == 0)));
    }
    const MemoryFile saved;
    Require(file.SaveToFile(saved.Path()) && saved.Bytes() == accepted);
}

// A hex file made from a binary one with data becomes the same binary one again.
static void Convert(const std::string& input)
{
    Require(RunLengthExpand(RunLengthCode(input), input.size()) == input);
    static_cast<void>(BinaryFromHex(input));
    const auto binary = RunLengthExpand(input, std::string::npos);
    if (binary && binary->size() > 2)
        Require(BinaryFromHex(*HexFromBinary(*binary)) == binary);
}

extern "C" int LLVMFuzzerTestOneInput(const char* data, std::size_t size)
{
    const std::string input(data, size);
    Load(MemoryFile(input).Path());
    Receive(input);
    Convert(input);
    Require(CheckHex(input).findings.size() <= HexReport::kMostFindings);
    return 0;
}
