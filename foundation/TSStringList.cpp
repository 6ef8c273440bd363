#include "TSStringList.h"

#include <memory>

#include "TextFile.h"

TSStringList::~TSStringList()
{
    Clear();
}

TSStringList& TSStringList::Add(const TSString& text)
{
    return Add(text.c_str());
}

TSStringList& TSStringList::Add(const char* text)
{
    // Owned by the list from here on, which knows it as a pointer to anything.
    TSList::Add(std::make_unique<TSString>(text).release());
    return *this;
}

// What a caller puts in with Insert has to be a TSString as well: each item is taken for one.
TSString* TSStringList::NextString()
{
    return static_cast<TSString*>(GetNext());
}

TSString TSStringList::GetNextString()
{
    const TSString* const text = NextString();
    return text == nullptr ? TSString() : *text;
}

void TSStringList::RemoveFirst()
{
    First();
    const std::unique_ptr<const TSString> removed(NextString());
    Delete(0);
}

TSStringList& TSStringList::Clear()
{
    while (count > 0)
        RemoveFirst();
    TSList::Clear();
    return *this;
}

bool TSStringList::LoadFromFile(const TSString& path)
{
    // The old entries go only when there is something to take their place.
    PieceReader reader(path.c_str());
    if (!reader)
        return false;
    Clear();
    while (const char* piece = reader.Next())
        Add(piece);
    return true;
}

bool TSStringList::SaveToFile(const TSString& path)
{
    const TextWriter file(path.c_str(), TextWriter::Old::Removed);
    if (!file)
        return false;
    // What follows a string that is lost would be taken for its end.
    bool isWritten = true;
    for (First(); isWritten && HasNext();)
        isWritten = file.Write(NextString()->c_str());
    return true;
}

void TSStringList::Print()
{
    First();
    while (HasNext())
        NextString()->Print(true);
}
