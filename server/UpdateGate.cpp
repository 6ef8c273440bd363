#include "UpdateGate.h"

#include <utility>

#include "CompressedFile.h"

bool UpdateGate::Examine(const char* path)
{
    problems.clear();
    notes.clear();
    file = {};
    if (path == nullptr)
        return Fail("the last search has found no file");
    source = path;
    if (CompressedFile::HasItsName(source))
        return Expand(source);
    file = CheckedFile(source);
    problems = file.errors;
    return file.isRead;
}

bool UpdateGate::Expand(const std::string& path)
{
    CompressedFile packed(path);
    notes = packed.notes;
    if (!packed.problem.empty())
        return Fail(packed.problem);
    file = CheckedFile(path + ", expanded", std::move(packed.hexText));
    problems = file.errors;
    return true;
}

bool UpdateGate::Fail(const std::string& problem)
{
    problems = {problem};
    return false;
}

void UpdateGate::TakeLoaded(const THexFile* image)
{
    if (problems.empty() && (image == nullptr || !file.IsIn(*image)))
        problems = {source + ": it couldn't be loaded as it was checked"};
    file.text = {};
}
