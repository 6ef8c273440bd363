// A stream of records as the CSP sends them: what is accepted is gap-free and kept byte for byte.

#include "FuzzInput.h"
#include "THexFile.h"
#include "TSStringList.h"

namespace {

// The byte at a place of a record, in upper-case digits; any other digit is 0.
std::uint32_t ByteAt(const std::string& record, std::size_t place)
{
    static const std::string digits = "0123456789ABCDEF";
    std::uint32_t value = 0;
    for (std::size_t i = place; i < place + 2; ++i) {
        const std::size_t digit = digits.find(record.at(i));
        value = value * 16 + static_cast<std::uint32_t>(digit == std::string::npos ? 0 : digit);
    }
    return value;
}

// That the record begins where the last one has ended, and where the next one has to.
void RequireInOrder(const std::string& record, std::uint32_t before, const THexFile& file)
{
    const std::uint32_t count = ByteAt(record, 1);
    const std::uint32_t next = file.GetNextAddress();
    if (ByteAt(record, 7) == 4) {
        Require(next == (ByteAt(record, 9) << 24U | ByteAt(record, 11) << 16U));
        return;
    }
    Require((file.baseAddress | ByteAt(record, 3) << 8U | ByteAt(record, 5)) == before);
    Require(next == before + count);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    THexFile file;
    Feed feed(data, size);
    std::string accepted;
    while (!feed.IsEmpty()) {
        // An exact copy, so that a look behind the line's NUL is seen.
        const std::string line = feed.Line() + "\r\n";
        const std::uint32_t before = file.GetNextAddress();
        const int kept = file.checkedLines->count;
        const int result = file.CheckIntelHex(line.c_str());
        Require(file.checkedLines->count == kept + (result <= 0 ? 1 : 0));
        if (result > 0)
            Require(file.GetNextAddress() == before);
        else
            accepted += line.substr(0, line.find('\0'));
        if (result == 0)
            RequireInOrder(line, before, file);
    }
    const MemoryFile saved;
    Require(file.SaveToFile(saved.Path().c_str()));
    Require(saved.Bytes() == accepted);
    return 0;
}
