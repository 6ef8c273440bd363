#include "TSStringVector.h"

#include <cstdio>

#include "TextFile.h"

bool TSStringVector::LoadFromFile(const TSString& path)
{
    PieceReader reader(path.c_str());
    if (!reader)
        return false;
    while (const char* piece = reader.Next())
        Add(piece);
    return true;
}

bool TSStringVector::SaveToFile(const TSString& path) const
{
    const UniqueFile file(std::fopen(path.c_str(), "wt"));
    if (!file)
        return false;
    for (const TSString& text : strings)
        std::fputs(text.c_str(), file.get());
    return true;
}

void TSStringVector::Print() const
{
    for (const TSString& text : strings)
        text.Print(false);
}
