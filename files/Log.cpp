#include "Log.h"

#include <algorithm>
#include <cstddef>
#include <ctime>
#include <string>

#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include "FileBytes.h"
#include "FileTools.h"
#include "OutputFile.h"
#include "TSString.h"
#include "TSStringList.h"
#include "TextFile.h"
#include "UniqueFd.h"
#include "WholeFile.h"

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

// The newest whole lines of the file, at most `most` bytes; of a single line that is longer, its
// end. Nothing when the file can't be read.
std::string NewestLines(const char* path, std::int64_t most)
{
    const UniqueFd file(OpenToRead(path));
    if (!file || lseek(file.Get(), -most, SEEK_END) < 0)
        return {};
    std::string text(static_cast<std::size_t>(most), '\0');
    const ssize_t count = read(file.Get(), text.data(), text.size());
    text.resize(std::max<ssize_t>(count, 0));
    const std::size_t start = text.find('\n') + 1;
    return start == text.size() ? text : text.substr(start);
}

// A new file takes the place of the log, so that the lines survive a power cut. Without room for
// it, or with a directory at its name, they are written in place.
bool ReplaceLog(const char* path, const std::string& lines)
{
    {
        WholeFile log(path);
        if (log.Write(lines))
            return log.Commit();
    }
    const UniqueFd file(CreateOutputFile(path, kForEverybody));
    return file && WriteWhole(file.Get(), lines.data(), lines.size());
}

// Cuts the log if `added` bytes would make it larger than `most`. False when it isn't cut.
bool MakeRoom(const char* path, std::int64_t added, std::int64_t most, AtLimit atLimit)
{
    struct stat state {};
    if (stat(path, &state) != 0 || state.st_size + added <= most)
        return true;
    if (atLimit == AtLimit::LoseEntry)
        return false;
    const std::string kept = NewestLines(path, most / 2);
    return !kept.empty() && ReplaceLog(path, kept);
}

}  // namespace

bool AddLogFile(const char* path, const char* text, std::int64_t most, AtLimit atLimit)
{
    const TSString words(text == nullptr ? "" : text);
    if (most != kNoLimit && !MakeRoom(path, kStampSize + words.Length(), most, atLimit))
        return false;
    const TextWriter log(path, TextWriter::Old::Kept);
    if (!log)
        return false;
    char stamp[kStampSize] = {};
    PrintStamp(stamp);
    return log.Write((TSString(stamp) + words).c_str());
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
    static_cast<void>(list.SaveToFile(path));
    return true;
}
