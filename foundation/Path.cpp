#include "Path.h"

#include <cstring>
#include <vector>

#include "DoubleByte.h"

namespace {

bool IsSeparator(char character)
{
    return character == '\\' || character == '/' || character == ':';
}

bool EndsInName(const char* path)
{
    const std::size_t length = std::strlen(path);
    return length > 0 && !IsSeparator(path[length - 1]);
}

// The first bytes of pairs in file names: less at the top than elsewhere, and 0x80.
bool IsNameFirst(unsigned char byte)
{
    return (byte >= 0x80 && byte <= 0x9F) || (byte >= 0xE0 && byte <= 0xEF);
}

// Null when the path has no separator.
const char* LastSeparator(const char* path)
{
    DoubleByteScanner scanner(IsNameFirst);
    const char* last = nullptr;
    for (; *path != '\0'; ++path) {
        if (scanner.Next(*path) == BytePlace::Single && IsSeparator(*path))
            last = path;
    }
    return last;
}

void CopyPart(const char* part, std::size_t size, char* output)
{
    std::memmove(output, part, size);  // a caller may change a path in its own buffer
    output[size] = '\0';
}

TSString Extracted(bool (*extract)(const char*, char*), const TSString& path)
{
    std::vector<char> buffer(static_cast<std::size_t>(path.Length()) + 1);
    return extract(path.c_str(), buffer.data()) ? TSString(buffer.data()) : TSString();
}

}  // namespace

bool ChangeFileExtX(const char* path, const char* extension, char* output)
{
    if (!EndsInName(path))
        return false;
    const char* dot = std::strrchr(path, '.');
    const bool hasExtension = dot != nullptr && dot != path;
    const std::size_t kept =
        hasExtension ? static_cast<std::size_t>(dot - path) : std::strlen(path);
    CopyPart(path, kept, output);
    CopyPart(extension, std::strlen(extension), output + kept);
    return true;
}

bool ExtractFileExtX(const char* path, char* output)
{
    const char* dot = std::strrchr(path, '.');
    if (dot == nullptr || !EndsInName(path))
        return false;
    CopyPart(dot, std::strlen(dot), output);
    return true;
}

bool ExtractFileNameX(const char* path, char* output)
{
    const char* separator = LastSeparator(path);
    if (separator == nullptr || separator[1] == '\0')
        return false;
    CopyPart(separator + 1, std::strlen(separator + 1), output);
    return true;
}

bool ExtractFileDirX(const char* path, char* output)
{
    const char* separator = LastSeparator(path);
    std::size_t kept = std::strlen(path);
    if (separator != nullptr)
        kept = static_cast<std::size_t>(separator - path) + (*separator == ':' ? 1 : 0);
    CopyPart(path, kept, output);
    return true;
}

// The buffer is as long as the new name needs: a cut name would be another file.
TSString ChangeFileExtSX(const TSString& path, const TSString& extension)
{
    std::vector<char> buffer(static_cast<std::size_t>(path.Length()) +
                             static_cast<std::size_t>(extension.Length()) + 1);
    const bool changed = ChangeFileExtX(path.c_str(), extension.c_str(), buffer.data());
    return changed ? TSString(buffer.data()) : TSString();
}

TSString ExtractFileExtSX(const TSString& path)
{
    return Extracted(ExtractFileExtX, path);
}

TSString ExtractFileNameSX(const TSString& path)
{
    return Extracted(ExtractFileNameX, path);
}

TSString ExtractFileDirSX(const TSString& path)
{
    return Extracted(ExtractFileDirX, path);
}
