#include "StrictReport.h"

#include "CommandLine.h"
#include "Reason.h"

void StrictReport::Add(const std::string& text) const
{
    PrintError(text);
    // An entry that is lost has been printed.
    static_cast<void>(AddLogFile(log, (text + "\n").c_str(), kMostOfLog, atLimit));
}

void StrictReport::Add(const std::vector<std::string>& texts) const
{
    for (const std::string& text : texts)
        Add(text);
}

void StrictReport::AddReason(const std::string& subject) const
{
    Add(ReasonFor(subject));
}
