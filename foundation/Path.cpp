#include "Path.h"

#include <cstring>
#include <string>
#include <string_view>

#include "DoubleByte.h"

namespace {

constexpr std::size_t kNone = std::string_view::npos;

bool IsSeparator(char character)
{
    return character == '\\' || character == '/' || character == ':';
}

// A path that ends in a separator names a directory, which has no extension.
bool EndsInName(std::string_view path)
{
    return !path.empty() && !IsSeparator(path.back());
}

// The first bytes of pairs in file names: less at the top than elsewhere, and 0x80.
bool IsNameFirst(unsigned char byte)
{
    return (byte >= 0x80 && byte <= 0x9F) || (byte >= 0xE0 && byte <= 0xEF);
}

// A search from the end can't know whether a byte is the second of a pair, so this goes forward.
std::size_t LastSeparator(std::string_view path)
{
    DoubleByteScanner scanner(IsNameFirst);
    std::size_t last = kNone;
    for (std::size_t i = 0; i < path.size(); ++i) {
        if (scanner.Next(path[i]) == BytePlace::Single && IsSeparator(path[i]))
            last = i;
    }
    return last;
}

// Returns the place of the NUL.
char* CopyPart(std::string_view part, char* output)
{
    std::memmove(output, part.data(), part.size());  // a caller may change a path in its own buffer
    output[part.size()] = '\0';
    return output + part.size();
}

// No part of a path is longer than the path.
TSString Extracted(bool (*extract)(const char*, char*), const TSString& path)
{
    std::string buffer(path.Length(), '\0');
    return extract(path.c_str(), buffer.data()) ? TSString(buffer.c_str()) : TSString();
}

}  // namespace

bool ChangeFileExtX(const char* path, const char* extension, char* output)
{
    const std::string_view name(path);
    if (!EndsInName(name))
        return false;
    // A dot in a directory's name counts as well; in first place it begins a hidden file's name.
    const std::size_t dot = name.rfind('.');
    const bool hasExtension = dot != kNone && dot != 0;
    char* const end = CopyPart(hasExtension ? name.substr(0, dot) : name, output);
    CopyPart(extension, end);
    return true;
}

bool ExtractFileExtX(const char* path, char* output)
{
    const std::string_view name(path);
    const std::size_t dot = name.rfind('.');
    if (dot == kNone || !EndsInName(name))
        return false;
    CopyPart(name.substr(dot), output);
    return true;
}

bool ExtractFileNameX(const char* path, char* output)
{
    const std::string_view name(path);
    const std::size_t separator = LastSeparator(name);
    if (separator == kNone || separator + 1 == name.size())
        return false;
    CopyPart(name.substr(separator + 1), output);
    return true;
}

bool ExtractFileDirX(const char* path, char* output)
{
    const std::string_view name(path);
    const std::size_t separator = LastSeparator(name);
    // "c:" without its colon would be a name, and not a drive.
    const bool keepsColon = separator != kNone && name[separator] == ':';
    CopyPart(name.substr(0, keepsColon ? separator + 1 : separator), output);
    return true;
}

// The buffer is as long as the new name needs: a cut name would be another file.
TSString ChangeFileExtSX(const TSString& path, const TSString& extension)
{
    std::string buffer(path.Length() + extension.Length(), '\0');
    const bool changed = ChangeFileExtX(path.c_str(), extension.c_str(), buffer.data());
    return changed ? TSString(buffer.c_str()) : TSString();
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
