#include "UnitPath.h"

#include <cstring>

#include "Medium.h"
#include "Paths.h"
#include "Settings.h"

namespace {

enum class Match { Whole, Start, Tree };

struct Rule {
    const char* path;
    Match match;
};

constexpr Rule kUnitPaths[] = {
    {kPatcherSocket, Match::Whole},   {kRcServerSocket, Match::Whole},
    {"/tmp/csp_prog.", Match::Start}, {"/usr/local", Match::Tree},
    {"/var/log", Match::Tree},        {"/etc/KVT-", Match::Start},
    {kMountParent, Match::Tree},      {kDspDevice, Match::Whole},
    {"/dev/sd", Match::Start},
};

bool Fits(const Rule& rule, const char* path)
{
    const std::size_t length = std::strlen(rule.path);
    if (std::strncmp(rule.path, path, length) != 0)
        return false;
    const char next = path[length];
    switch (rule.match) {
    case Match::Whole: return next == '\0';
    case Match::Start: return true;
    case Match::Tree: return next == '\0' || next == '/';
    }
    return false;
}

bool IsMapped(const char* path)
{
    for (const Rule& rule : kUnitPaths)
        if (Fits(rule, path))
            return true;
    return false;
}

// True below the root, except for the simulation's own files.
bool IsBelowRoot(const char* path)
{
    const std::size_t length = std::strlen(Root());
    if (std::strncmp(path, Root(), length) != 0 || path[length] != '/')
        return false;
    return !Fits({kSimulation, Match::Tree}, path + length);
}

}  // namespace

UnitPath::UnitPath(const char* path) : asked(path)
{
    if (Root() == nullptr || path == nullptr || path[0] == '\0')
        return;
    OnMedium medium;
    FindOnMedium(path, medium);
    isOnMedium = medium.file.Length() > 0;
    isReadOnly = medium.isReadOnly;
    if (isOnMedium)
        mapped = medium.file;
    else if (std::strcmp(path, "/proc/mounts") == 0)
        mapped = InRoot(kMounts);
    else if (IsMapped(path))
        mapped = InRoot(path);
    isUnits = mapped.Length() > 0 || path[0] != '/' || IsBelowRoot(path);
}

bool UnitPath::IsPulled() const
{
    OnMedium medium;
    if (isOnMedium)
        FindOnMedium(asked, medium);
    return medium.isPulled && !medium.isRoot;
}

bool UnitPath::IsDspDevice() const
{
    return mapped.Length() > 0 && std::strcmp(asked, kDspDevice) == 0;
}

bool UnitPath::IsMachines() const
{
    if (Root() == nullptr || isUnits || asked == nullptr || asked[0] != '/')
        return false;
    constexpr Rule kShared[] = {{"/dev", Match::Tree}, {"/proc", Match::Tree}};
    for (const Rule& rule : kShared)
        if (Fits(rule, asked))
            return false;
    const std::size_t length = std::strlen(Root());
    return std::strncmp(asked, Root(), length) != 0 || asked[length] != '/';
}
