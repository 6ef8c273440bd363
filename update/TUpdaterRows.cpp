// The sender of the image: which rows go out for an address.

#include "TUpdater.h"

void TUpdater::SendIntelHex(TMidiCom* link, unsigned long address, int blockSize)
{
    if (hexFile == nullptr || blockSize < 1)
        return;
    if (address != sendedAddress)
        Seek(address);

    // A row that steps over a multiple doesn't end the block: the next row that ends on one does.
    const unsigned long block = blockSize;
    while (lineIndex < hexFile->lineCount) {
        SendRowWithItsBase(link);
        if (sendedAddress % block == 0)
            break;
    }
    if (lineIndex >= hexFile->lineCount)
        sending = false;
}

// Takes the present row into the addresses. True for an extended linear address record.
bool TUpdater::TrackRow()
{
    return hexFile->GetSendedAddress(hexFile->lines[lineIndex], &upperAddress, &sendedAddress);
}

void TUpdater::GoToFirstRow()
{
    upperAddress = 0;
    lineIndex = 0;
    sendedAddress = 0;
}

// Ends on the first row whose end lies above `address`, on an extended linear address record that
// lands on it, or after the last row.
void TUpdater::Seek(unsigned long address)
{
    GoToFirstRow();
    if (hexFile->lineCount == 0)
        return;
    bool isBase = TrackRow();
    while (sendedAddress <= address) {
        if (sendedAddress == address && isBase)
            return;
        if (++lineIndex >= hexFile->lineCount)
            return;
        isBase = TrackRow();
    }
}

// Sends the present row, unless it is empty. True for an extended linear address record.
bool TUpdater::SendRow(TMidiCom* link)
{
    const char* row = hexFile->lines[lineIndex];
    if (*row == '\0')
        return false;
    SendLine(link, row);
    return TrackRow();
}

// An extended linear address record alone doesn't end a block, although its address is a multiple
// of every block size: the row that follows it, if there is one, goes out with it.
void TUpdater::SendRowWithItsBase(TMidiCom* link)
{
    const bool isBase = SendRow(link);
    ++lineIndex;
    if (!isBase || lineIndex >= hexFile->lineCount)
        return;
    SendRow(link);
    ++lineIndex;
}
