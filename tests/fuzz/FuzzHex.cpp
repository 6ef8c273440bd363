// A firmware file of any content: the loader, its scan and the address of every row.

#include <cstring>

#include "FuzzInput.h"
#include "THexFile.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const MemoryFile source(data, size);
    THexFile file;
    if (!file.LoadFromFile(source.Path().c_str())) {
        Require(file.lineCount == 0 && file.maxLineLength == 0);
        return 0;
    }
    Require(file.maxLineLength <= 80);
    Require(std::memchr(file.versionText, 0, sizeof(file.versionText)) != nullptr);
    unsigned long upper = 0;
    unsigned long sended = 0;
    for (int i = 0; i < file.lineCount; ++i) {
        Require(std::strlen(file.lines[i]) < 80);
        const bool isBase = file.GetSendedAddress(file.lines[i], &upper, &sended);
        Require(upper % 0x10000 == 0 && sended <= 0xFFFFFFFFUL && (!isBase || sended == upper));
    }
    Require(file.LoadFromFile(source.Path().c_str()));
    return 0;
}
