#pragma once

#include "TRCServerCom.h"

// The filter that takes message boxes out of the console lines and passes them to the RC Server.
class TXmlMan {
public:
    TXmlMan() = default;
    ~TXmlMan() = default;

    // True when the line begins with "<message_box" and has gone to the RC Server, with a line end.
    // Otherwise the line is the caller's: it is no box, or the RC Server has not taken it.
    // `language` isn't looked at.
    bool ParceXML(TRCServerCom* rcserver, const char* line, int language);
};
