#include "TSStringVector.h"

#include "TextFile.h"

int TSStringVector::Count() const
{
    return static_cast<int>(strings.size());
}

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
    const TextWriter file(path.c_str(), TextWriter::Old::Removed);
    if (!file)
        return false;
    // Unlike a TSStringList, the vector goes on after a string that is lost.
    for (const TSString& text : strings)
        file.Write(text.c_str());
    return true;
}

void TSStringVector::Print() const
{
    for (const TSString& text : strings)
        text.Print(false);
}
