#pragma once

#include <cstddef>
#include <cstdint>

class HexRecord;
class TSStringList;

// A firmware or parameter image as Intel HEX text, the form in which it lives from file to wire: a
// record of HexRecord.h in each line.
// Two halves share an object and nothing else: the loaded half holds a file that is to be sent, the
// checked half gathers records that are being received.
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

    THexFile();
    ~THexFile();
    THexFile(const THexFile&) = delete;
    THexFile& operator=(const THexFile&) = delete;

    // Loads a file of any content into rows and scans it. An earlier file's rows are released
    // first. False, with nothing loaded, when the file can't be read whole, when a line has over 80
    // bytes with its line end, or when there is no memory for it. Bytes behind the last LF are left
    // out. An LF right behind a line end goes with it, so that such an empty line gets no row: the
    // rows behind it move up, and what is left over at the end is empty.
    bool LoadFromFile(const char* path);

    // Scans the rows for startAddress, endAddress and versionText. LoadFromFile calls it.
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

    static constexpr int kVersionSize = 256;

    std::uint32_t baseAddress;   // of the checked half; the low 16 bits are 0
    std::uint32_t nextAddress;   // of the checked half
    TSStringList* checkedLines;  // owned
    std::int32_t maxLineLength;  // bytes, the line end included
    std::int32_t lineCount;
    std::uint32_t startAddress;      // the first upper address that isn't 0
    std::uint32_t endAddress;        // behind the last data record, in the order of the file
    char versionText[kVersionSize];  // the data of the record at 0x90040400, empty without one
    char** lines;                    // owned; lineCount rows of maxLineLength + 1 bytes, NUL-ended

private:
    void DropRows();
    bool MakeRows(std::int32_t count, std::ptrdiff_t longest);
    void FillRows(const char* text, const char* end);
    void ScanData(const HexRecord& record, std::uint32_t upper);
    void TakeVersion(const HexRecord& record);
    int CheckData(const char* text);
    int CheckUpperAddress(const char* text);
    int Accept(const char* text, RecordResult result);
};
