#pragma once

#include <cstdint>

// What the readers of Intel HEX files have in common. HexRecord.h shows a record.

constexpr char kCr = '\r';
constexpr char kLf = '\n';
constexpr std::int32_t kLongestLine = 80;  // bytes, the line end included

constexpr std::uint32_t kVersionAddress = 0x90040400;
constexpr int kWriteBlock = 0x2000;  // bytes of flash between two answers of the CSP
