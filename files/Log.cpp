#include "Log.h"

#include <cstddef>
#include <ctime>

#include <sys/time.h>

#include "FileTools.h"
#include "TSString.h"
#include "TSStringList.h"
#include "TextFile.h"

namespace {

constexpr char kStampFormat[] = "%y/%m/%d/%H:%M:%S - ";
constexpr std::size_t kStampSize = 64;  // no field of a time, however odd, makes it longer

// The unit's clock runs on UTC, and so does the log, whatever zone the environment names.
void PrintStamp(char (&stamp)[kStampSize])
{
    timeval now{};
    gettimeofday(&now, nullptr);
    tm utc{};
    gmtime_r(&now.tv_sec, &utc);
    std::strftime(stamp, sizeof stamp, kStampFormat, &utc);
}

}  // namespace

bool AddLogFile(const char* path, const char* text)
{
    const TextWriter log(path, TextWriter::Old::Kept);
    if (!log)
        return false;
    char stamp[kStampSize] = {};
    PrintStamp(stamp);
    return log.Write((TSString(stamp) + (text == nullptr ? "" : text)).c_str());
}

bool ResetLogFile(const char* path, int linesToKeep)
{
    TSStringList list;
    if (!list.LoadFromFile(path))
        return false;
    // A new file, so that one that is open elsewhere keeps what it has.
    DeleteFile(path);
    // No count is below a negative number of lines, so the loop tests for an empty list as well.
    while (list.count > 0 && list.count > linesToKeep)
        list.RemoveFirst();
    list.SaveToFile(path);
    return true;
}
