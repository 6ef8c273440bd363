#include "Flash.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>

unsigned char Flash::Read(uint32_t address) const
{
    return Has(address) ? bytes[address - base] : kErased;
}

bool Flash::Write(uint32_t address, unsigned char byte)
{
    if (!Has(address))
        return false;
    bytes[address - base] = byte;
    return true;
}

void Flash::ErasePage(uint32_t address)
{
    const uint32_t page = address & ~(kPageSize - 1);
    for (uint32_t i = 0; i < kPageSize; ++i)
        Write(page + i, kErased);
}

bool Flash::Load(const std::string& path, uint32_t address)
{
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> content{std::istreambuf_iterator<char>(file), {}};
    const uint32_t offset = address - base;
    if (!file.is_open() || offset > bytes.size() || content.size() > bytes.size() - offset)
        return false;
    std::copy(content.begin(), content.end(), bytes.begin() + static_cast<std::ptrdiff_t>(offset));
    return true;
}

bool Flash::Save(const std::string& path) const
{
    const std::string fresh = path + ".new";
    std::ofstream file(fresh, std::ios::binary);
    for (const unsigned char byte : bytes)
        file.put(static_cast<char>(byte));
    file.close();
    return !file.fail() && std::rename(fresh.c_str(), path.c_str()) == 0;
}
