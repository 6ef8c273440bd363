#include "TXmlMan.h"

#include "TSString.h"

// All that is looked at: the RC Server judges the rest of the line.
static constexpr char kMessageBox[] = "<message_box";
static constexpr int kMessageBoxLength = sizeof(kMessageBox) - 1;

bool TXmlMan::ParceXML(TRCServerCom* rcserver, const char* line, int /*language*/)
{
    TSString text(line);
    if (text.SubString(1, kMessageBoxLength) != kMessageBox)
        return false;
    // The RC Server reads lines. There is a last character: the text begins with the tag.
    if (text[text.Length() - 1] != '\n')
        text += "\n";
    return rcserver->WriteMessage(text.c_str(), text.Length());
}
