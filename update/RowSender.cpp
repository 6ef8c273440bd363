#include "RowSender.h"

#include "Console.h"

void RowSender::Begin()
{
    GoToFirstRow();
    sending = true;
}

void RowSender::Rewind()
{
    lineIndex = 0;
    sending = false;
}

void RowSender::SendBlock(TMidiCom* midi, const THexFile& image, unsigned long address,
                          int blockSize)
{
    if (blockSize < 1)
        return;
    if (address != sendedAddress)
        Seek(image, address);

    // A row that steps over a multiple doesn't end the block: the next row that ends on one does.
    const unsigned long block = blockSize;
    while (lineIndex < image.lineCount) {
        SendRowWithItsBase(midi, image);
        if (sendedAddress % block == 0)
            break;
    }
    if (lineIndex >= image.lineCount)
        sending = false;
}

// Takes the present row into the addresses. True for an extended linear address record.
bool RowSender::TrackRow(const THexFile& image)
{
    return image.GetSendedAddress(image.lines[lineIndex], &upperAddress, &sendedAddress);
}

void RowSender::GoToFirstRow()
{
    upperAddress = 0;
    lineIndex = 0;
    sendedAddress = 0;
}

// Ends on the first row whose end lies above `address`, on an extended linear address record that
// lands on it, or after the last row.
void RowSender::Seek(const THexFile& image, unsigned long address)
{
    GoToFirstRow();
    if (image.lineCount == 0)
        return;
    bool isBase = TrackRow(image);
    while (sendedAddress <= address) {
        if (sendedAddress == address && isBase)
            return;
        if (++lineIndex >= image.lineCount)
            return;
        isBase = TrackRow(image);
    }
}

// Sends the present row, unless it is empty. True for an extended linear address record.
bool RowSender::SendRow(TMidiCom* midi, const THexFile& image)
{
    const char* row = image.lines[lineIndex];
    if (*row == '\0')
        return false;
    SendLine(midi, row);
    return TrackRow(image);
}

// An extended linear address record alone doesn't end a block, although its address is a multiple
// of every block size: the row that follows it, if there is one, goes out with it.
void RowSender::SendRowWithItsBase(TMidiCom* midi, const THexFile& image)
{
    const bool isBase = SendRow(midi, image);
    ++lineIndex;
    if (!isBase || lineIndex >= image.lineCount)
        return;
    SendRow(midi, image);
    ++lineIndex;
}
