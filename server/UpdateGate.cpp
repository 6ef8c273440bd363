#include "UpdateGate.h"

#include <string_view>
#include <utility>

#include "CompressedFile.h"
#include "HexFormat.h"
#include "TUpdater.h"

namespace {

constexpr char kLineEnd[] = {kCr, kLf, '\0'};

// Without the blank lines that may follow the end record: each would take a row.
std::string_view RecordsOf(std::string_view text)
{
    const std::size_t last = text.find_last_not_of(kLineEnd);
    return text.substr(0, text.find(kLf, last) + 1);
}

}  // namespace

bool UpdateGate::Load(TUpdater& updater, const char* path, char* version)
{
    problems.clear();
    notes.clear();
    if (path == nullptr) {
        problems = {"the last search has found no file"};
        return false;
    }
    const CheckedFile file = Examine(path);
    problems = file.errors;
    if (file.isRead && version != nullptr)
        file.report.version.copy(version, THexFile::kVersionSize - 1);
    if (problems.empty() && updater.LoadText(path, RecordsOf(file.text), version) != 0)
        problems = {std::string(path) + ": not enough memory"};
    return file.isRead;
}

CheckedFile UpdateGate::Examine(const std::string& path)
{
    return CompressedFile::HasItsName(path) ? Expand(path) : CheckedFile(path);
}

CheckedFile UpdateGate::Expand(const std::string& path)
{
    CompressedFile packed(path);
    notes = packed.notes;
    if (packed.problem.empty())
        return CheckedFile(path + ", expanded", std::move(packed.hexText));
    CheckedFile unusable;
    unusable.errors = {packed.problem};
    return unusable;
}
