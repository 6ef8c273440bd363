// A stream of records as the CSP sends them: what is accepted is gap-free and kept byte for byte.

#include "FuzzInput.h"
#include "THexFile.h"
#include "TSStringList.h"

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
        if (result == 0 && file.GetNextAddress() % 0x10000 != 0)
            Require(file.GetNextAddress() - before < 0x100);
    }
    const MemoryFile saved;
    Require(file.SaveToFile(saved.Path().c_str()));
    Require(saved.Bytes() == accepted);
    return 0;
}
