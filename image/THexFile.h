#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string_view>

#include "TSStringList.h"

class HexRecord;

// A firmware or parameter image as Intel HEX text, the form in which it lives from file to wire: a
// record of HexRecord.h in each line.
//
// Two halves share an object and nothing else: the loaded half contains a file that is to be sent,
// the checked half gathers records that are being received.
class THexFile {
public:
    // The results of CheckIntelHex.
    enum RecordResult {
        LastAccepted = -1,
        Accepted = 0,
        NotARecord = 1,
        CutShort = 2,
        UnknownType = 3,
        BadChecksum = 4,
        WrongAddress = 5
    };

    THexFile() = default;
    ~THexFile() = default;
    THexFile(const THexFile&) = delete;
    THexFile& operator=(const THexFile&) = delete;

    // Loads a file of any content into rows and scans it. An earlier file's rows are released
    // first. False, with nothing loaded, when the file can't be read to its end, when a line has
    // over 80 bytes with its line end, or when there is no memory for it. Bytes after the last LF
    // are left out. An LF right after a line end goes with it, so that such an empty line gets no
    // row: the rows after it move up, and what is left over at the end is empty.
    bool LoadFromFile(const char* path);

    // The same for the text of a file that is in memory already.
    bool LoadFromText(std::string_view text);

    // Scans the rows for startAddress, endAddress and versionText, each up to its first NUL.
    // Loading does so with all bytes of a row; after it, this is for the unit's other programs.
    void GetStartEndAddress();

    // Follows the addresses of records that are sent one after the other. Data set `sendedAddress`
    // to the address that follows them; an upper address sets both. True for an upper address. Data
    // or a checksum may be missing. Any other record, and one that ends before its type or before
    // the two bytes of an upper address, changes nothing.
    bool GetSendedAddress(const char* record, unsigned long* upperAddress,
                          unsigned long* sendedAddress) const;

    // Appends one received record to the checked lines, with whatever line end it has, if it goes
    // on where the last one ended. Returns a RecordResult; anything above 0 is a refusal.
    int CheckIntelHex(const char* record);

    // Writes the checked lines. False when the file doesn't open.
    bool SaveToFile(const char* path);

    // Starts the checked half anew.
    void Reset();

    // Where the next data record must begin.
    std::uint32_t GetNextAddress() const;

    static constexpr int kVersionSize = 256;  // bytes of the longest version text and its NUL

    // The checked half.
    std::uint32_t baseAddress = 0;  // of the last upper address; the low 16 bits are 0
    std::uint32_t nextAddress = 0;  // where the next data record must begin
    std::unique_ptr<TSStringList> checkedLines = std::make_unique<TSStringList>();  // never null

    // The loaded half.
    std::int32_t maxLineLength = 0;       // bytes, the line end included; 0 when there are no rows
    std::int32_t lineCount = 0;           // rows
    std::uint32_t startAddress = 0;       // the first upper address that isn't 0
    std::uint32_t endAddress = 0;         // follows the last data record, in the order of the file
    char versionText[kVersionSize] = {};  // the data at 0x90040400; empty without a record there
    char** lines = nullptr;               // rows of maxLineLength + 1 bytes, NUL-ended; null: none

private:
    struct Free {
        void operator()(void* block) const { std::free(block); }
    };

    struct LineTable;

    void DropImage();
    bool MakeRows(std::int32_t count, std::size_t longest);
    void FillRows(std::string_view text, const LineTable& table);
    void ScanRow(std::string_view row, std::uint32_t& upper);
    void ScanData(const HexRecord& record, std::uint32_t upper);
    void TakeVersion(const HexRecord& record);
    RecordResult Check(const HexRecord& record);
    RecordResult CheckData(const HexRecord& record);
    RecordResult CheckUpperAddress(const HexRecord& record);

    std::unique_ptr<char*, Free> memory;  // of `lines` and of the rows
};
