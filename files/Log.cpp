#include "Log.h"

#include <cstdio>
#include <ctime>

#include <sys/time.h>

#include "FileTools.h"
#include "TSString.h"
#include "TSStringList.h"
#include "TextFile.h"

namespace {

constexpr int kYearBase = 1900;  // what a tm's year counts from

// Width 2 leaves the last two digits of the year.
TSString TwoDigits(int value)
{
    return TSString(value, 2);
}

TSString TimeStamp()
{
    timeval now{};
    gettimeofday(&now, nullptr);
    tm utc{};
    gmtime_r(&now.tv_sec, &utc);
    return TwoDigits(utc.tm_year + kYearBase) + "/" + TwoDigits(utc.tm_mon + 1) + "/" +
           TwoDigits(utc.tm_mday) + "/" + TwoDigits(utc.tm_hour) + ":" + TwoDigits(utc.tm_min) +
           ":" + TwoDigits(utc.tm_sec);
}

void RemoveOldest(TSStringList& list)
{
    delete static_cast<TSString*>(list.GetItem(0));
    list.Delete(0);
}

}  // namespace

bool AddLogFile(const char* path, const char* text)
{
    const UniqueFile log(std::fopen(path, "a+t"));
    if (!log)
        return false;
    const TSString entry = TimeStamp() + " - " + text;
    return std::fputs(entry.c_str(), log.get()) >= 0;
}

bool ResetLogFile(const char* path, int linesToKeep)
{
    TSStringList list;
    if (!list.LoadFromFile(path))
        return false;
    DeleteFile(path);
    while (list.count > 0 && list.count > linesToKeep)
        RemoveOldest(list);
    list.SaveToFile(path);
    return true;
}
