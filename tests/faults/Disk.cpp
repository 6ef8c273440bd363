#include "Disk.h"

#include <cctype>
#include <filesystem>
#include <utility>

#include "Texts.h"

namespace fs = std::filesystem;

namespace {

bool IsOnMedium(const std::string& path)
{
    return path.rfind(Disk::kMedium, 0) == 0;
}

// The full path of a call's subject, the same for each way to name a file.
std::string PathOf(std::string subject)
{
    constexpr char kMounted[] = "/mnt/usb/";
    if (subject.rfind(kMounted, 0) == 0)
        subject.replace(0, sizeof(kMounted) - 1, Disk::kMedium);
    if (IsOnMedium(subject))
        std::transform(subject.begin(), subject.end(), subject.begin(), tolower);
    return subject[0] == '/' ? subject : "/cwd/" + subject;
}

}  // namespace

Disk::Disk(const Files& before)
{
    for (const auto& [path, content] : before)
        contents[Identity(path)] = content;
    flushed = names;
    changes.clear();
}

void Disk::Take(const CallLine& call)
{
    const std::string& kind = call.kind;
    const std::size_t arrow = call.subject.find('>');
    const std::string path = PathOf(call.subject.substr(0, arrow));
    if (kind == "rename")
        Move(path, PathOf(call.subject.substr(arrow + 1)));
    else if (kind == "unlink")
        Move(path, "");
    else if (kind == "write" || kind == "fwrite" || kind == "ftruncate")
        unflushed.insert(Identity(path));
    else if (kind == "fsync" && fs::path(path).has_extension())
        FlushFile(Identity(path));
    else if (kind == "fsync")
        FlushNames([&](const std::string& name) { return fs::path(name).parent_path() == path; });

    const bool isOnMedium = IsOnMedium(path + "/");
    const bool isSyncFs = kind == "syncfs";
    isMediumWritten = isMediumWritten || kind == "sync" || (isSyncFs && isOnMedium);
    if (kind == "sync" || (isSyncFs && !isOnMedium))
        FlushAll(false);
    if (kind == "fsync" && isOnMedium && std::exchange(isMediumWritten, false))
        FlushAll(true);
}

std::vector<Files> Disk::Outcomes(const Files& present)
{
    constexpr std::size_t kMostChanges = 12;
    for (const auto& [path, content] : present) {
        const int file = Identity(path);
        const auto before = contents.find(file);
        if (before != contents.end() && before->second != content)  // opened with O_TRUNC
            unflushed.insert(file);
        contents[file] = content;
    }
    Check(changes.size() <= kMostChanges, "too many changes of names without a flush");
    std::vector<Files> outcomes;
    for (unsigned choice = 0; choice < 1U << changes.size(); ++choice)
        for (const bool isLost : {false, true})
            outcomes.push_back(Outcome(choice, isLost));
    return outcomes;
}

void Disk::Change::Apply(Names& all) const
{
    const auto found = all.find(from);
    if (found != all.end() && found->second == file)
        all.erase(found);
    if (!to.empty())
        all[to] = file;
}

// The file at the path, which is new if there is none.
int Disk::Identity(const std::string& path)
{
    const auto [place, isNew] = names.emplace(path, lastFile + 1);
    if (isNew)
        changes.push_back({"", path, ++lastFile});
    return place->second;
}

void Disk::Move(const std::string& from, const std::string& to)
{
    const auto found = names.find(from);
    if (found == names.end())
        return;
    const Change change{from, to, found->second};
    const bool isReplacing = IsOnMedium(to) && names.count(to) > 0;
    if (isReplacing)
        replacing[change.file] = to;
    else if (IsOnMedium(to))
        unflushed.insert(change.file);
    changes.push_back(isReplacing ? Change{from, "", change.file} : change);
    change.Apply(names);
}

void Disk::FlushFile(int file)
{
    unflushed.erase(file);
    if (const auto replaced = replacing.extract(file))
        flushed[replaced.mapped()] = file;
}

void Disk::FlushNames(const IsMeant& isMeant)
{
    std::vector<Change> left;
    for (const Change& change : changes)
        if (isMeant(change.to.empty() ? change.from : change.to))
            change.Apply(flushed);
        else
            left.push_back(change);
    changes = left;
}

void Disk::FlushAll(bool ofMedium)
{
    const IsMeant isMeant = [=](const std::string& path) { return IsOnMedium(path) == ofMedium; };
    FlushNames(isMeant);
    for (const auto& [path, file] : names)
        if (isMeant(path))
            FlushFile(file);
}

Files Disk::Outcome(unsigned choice, bool isLost)
{
    Names left = flushed;
    for (std::size_t i = 0; i < changes.size(); ++i)
        if ((choice >> i & 1U) != 0)
            changes[i].Apply(left);
    std::map<int, int> nameCounts;
    for (const auto& [path, file] : left)
        ++nameCounts[file];
    Files files;
    for (const auto& [path, file] : left) {
        const bool isEmptied = nameCounts[file] > 1 || (isLost && unflushed.count(file) > 0);
        files[path] = isEmptied ? "" : contents[file];
    }
    return files;
}
