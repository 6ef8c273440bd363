#include "UnitPath.h"

#include <algorithm>
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

template <std::size_t count>
bool FitsOne(const Rule (&rules)[count], const char* path)
{
    return std::any_of(rules, rules + count, [&](const Rule& each) { return Fits(each, path); });
}

bool IsBelowRoot(const char* path)
{
    return Fits({Root(), Match::Tree}, path);
}

// True for the simulation's own files.
bool IsSimulations(const char* path)
{
    return IsBelowRoot(path) && Fits({kSimulation, Match::Tree}, path + std::strlen(Root()));
}

}  // namespace

UnitPath::UnitPath(const char* path) : own(path)
{
    if (Root() == nullptr || path == nullptr || path[0] == '\0')
        return;
    FindOnMedium(path, medium);
    if (IsOnMedium())
        mapped = medium.file;
    else if (std::strcmp(path, "/proc/mounts") == 0)
        mapped = InRoot(kMounts);
    else if (FitsOne(kUnitPaths, path))
        mapped = InRoot(path);
    isUnits = mapped.Length() > 0 || path[0] != '/' || (IsBelowRoot(path) && !IsSimulations(path));
}

bool UnitPath::IsPulled() const
{
    OnMedium now;
    if (IsOnMedium())
        FindOnMedium(own, now);
    return now.isPulled && !now.isRoot;
}

bool UnitPath::IsDspDevice() const
{
    return mapped.Length() > 0 && std::strcmp(own, kDspDevice) == 0;
}

bool UnitPath::IsMachines() const
{
    constexpr Rule kShared[] = {{"/dev", Match::Tree}, {"/proc", Match::Tree}};
    return Root() != nullptr && own != nullptr && own[0] == '/' && !isUnits && !IsBelowRoot(own) &&
           !FitsOne(kShared, own);
}
