#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// A directory for files, removed at the end of the program.
const std::string& BenchDirectory();

// Bytes that look like firmware: runs, tables and noise, the same in every run.
std::vector<unsigned char> FirmwareBytes(std::size_t size);

constexpr std::uint32_t kImageStart = 0x90040000;

// The records of an Intel HEX text from kImageStart on, with an end-of-file record, each ending in
// CR LF.
std::vector<std::string> HexRecords(const std::vector<unsigned char>& bytes, std::size_t perRecord);

// Writes the records as a file in the run's directory and returns its path.
std::string WriteHexFile(const char* name, const std::vector<std::string>& records);
