#include "StrictReport.h"

#include "CommandLine.h"
#include "Log.h"
#include "Reason.h"
#include "UnitPaths.h"

void StrictReport::Add(const std::string& text) const
{
    PrintError(text);
    AddLogFile(log, (text + "\n").c_str(), kMostOfLog);
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
