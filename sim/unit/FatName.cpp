#include "FatName.h"

#include <cstring>

#include "System.h"

namespace {

// As the kernel returns it.
struct Entry {
    std::uint64_t inode;
    std::int64_t offset;
    std::uint16_t size;
    unsigned char type;
    char name[1];
};

char Lower(char letter)
{
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

bool IsSame(const char* name, const BoundedText& other)
{
    std::size_t at = 0;
    while (name[at] != '\0' && Lower(name[at]) == Lower(other.Get()[at]))
        ++at;
    return name[at] == '\0' && at == other.Length();
}

// The entry of the directory that the name means, or the name itself.
BoundedText FindEntry(const BoundedText& directory, const BoundedText& name)
{
    alignas(Entry) char entries[4096];
    const int opened = direct::Open(directory.Get(), O_RDONLY | O_DIRECTORY);
    BoundedText found;
    long size = 0;
    while ((size = syscall(SYS_getdents64, opened, entries, sizeof(entries))) > 0)
        for (long at = 0; at < size;) {
            const auto* const entry = reinterpret_cast<const Entry*>(entries + at);
            const char* const own = entries + at + offsetof(Entry, name);
            if (found.Length() == 0 && IsSame(own, name))
                found.Add(own);
            at += entry->size;
        }
    direct::Close(opened);
    return found.Length() > 0 ? found : name;
}

}  // namespace

BoundedText FindFatNames(const BoundedText& root, const char* path)
{
    BoundedText found = root;
    while (*path != '\0') {
        const std::size_t slashes = std::strspn(path, "/");
        const std::size_t length = std::strcspn(path + slashes, "/");
        BoundedText name;
        name.Add(path + slashes, length);
        BoundedText exact = found;
        exact.Add(path, slashes + length);
        if (length > 0 && !direct::Exists(exact.Get()))
            found.Add(path, slashes).Add(FindEntry(found, name).Get());
        else
            found = exact;
        path += slashes + length;
    }
    return found;
}

bool HasBadFatName(const char* path)
{
    const char* const slash = std::strrchr(path, '/');
    return std::strpbrk(slash == nullptr ? path : slash + 1, "\"*:<>?\\|") != nullptr;
}
