#include "UpdateGate.h"

#include <utility>

#include "CompressedFile.h"

bool UpdateGate::Examine(const char* path)
{
    problems.clear();
    notes.clear();
    file = CheckedFile();
    if (path == nullptr)
        return Fail("the last search has found no file");
    source = path;
    if (CompressedFile::HasItsName(source))
        return Expand(source);
    file = CheckedFile(source);
    TakeErrors();
    return file.isRead;
}

bool UpdateGate::Expand(const std::string& path)
{
    CompressedFile packed(path);
    notes = packed.notes;
    if (!packed.problem.empty())
        return Fail(packed.problem);
    file = CheckedFile(path + ", expanded", std::move(packed.hexText));
    TakeErrors();
    return true;
}

// A text with errors isn't loaded, and so not compared.
void UpdateGate::TakeErrors()
{
    problems = file.errors;
    if (!problems.empty())
        file.DropText();
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
    file.DropText();
}
