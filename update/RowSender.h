#pragma once

#include "THexFile.h"
#include "TMidiCom.h"

// Sends an image to the CSP, row by row as the file has it, and keeps the place in it. It sends a
// block for each call; when to send one is the caller's decision.
class RowSender {
public:
    // Begins a transfer, at the first row.
    void Begin();

    // Takes the next row to be the first, whatever its address, and ends a transfer.
    void Rewind();

    // Ends a transfer, though rows may be left.
    void End() { sending = false; }

    // Rows of a transfer are left to be sent.
    bool IsSending() const { return sending; }

    // The address that follows the last row that was sent or passed.
    unsigned long Address() const { return sendedAddress; }

    // Sends rows from `address` on (a seek first, unless sending has got just there) until the
    // address that follows a row is a multiple of `blockSize`, or to the last row.
    void SendBlock(TMidiCom* midi, const THexFile& image, unsigned long address, int blockSize);

private:
    bool TrackRow(const THexFile& image);
    void Seek(const THexFile& image, unsigned long address);
    bool SendRow(TMidiCom* midi, const THexFile& image);
    void SendRowWithItsBase(TMidiCom* midi, const THexFile& image);
    void GoToFirstRow();

    unsigned long upperAddress = 0;   // upper 16 bits of the rows' addresses, the others 0
    unsigned long sendedAddress = 0;  // follows the last row that was sent or passed
    int lineIndex = 0;                // of the next row
    bool sending = false;
};
