#pragma once

#include <cstdint>
#include <string>
#include <vector>

// The CSP's flash, erased (FF) when new. Files are its bare bytes.
class Flash {
public:
    static constexpr uint32_t kPageSize = 0x10000;

    Flash(uint32_t firstAddress, uint32_t size) : base(firstAddress), bytes(size, kErased) {}

    uint32_t Base() const { return base; }
    // FF outside.
    unsigned char Read(uint32_t address) const;
    // False outside, and nothing is kept.
    bool Write(uint32_t address, unsigned char byte);
    // Erases the page of `address`.
    void ErasePage(uint32_t address);

    // False when the file can't be read or doesn't fit from `address` on.
    bool Load(const std::string& path, uint32_t address);
    // Replaces the file atomically, so that a reader never sees half of it.
    bool Save(const std::string& path) const;

private:
    static constexpr unsigned char kErased = 0xFF;

    bool Has(uint32_t address) const { return address - base < bytes.size(); }

    uint32_t base;
    std::vector<unsigned char> bytes;
};
