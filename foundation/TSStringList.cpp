#include "TSStringList.h"

#include <cstdio>

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
    TSList::Add(new TSString(text));
    return *this;
}

TSString TSStringList::GetNextString()
{
    const auto* text = static_cast<const TSString*>(GetNext());
    return text == nullptr ? TSString() : *text;
}

TSStringList& TSStringList::Clear()
{
    First();
    while (HasNext())
        delete static_cast<TSString*>(GetNext());
    TSList::Clear();
    return *this;
}

bool TSStringList::LoadFromFile(const TSString& path)
{
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
    const UniqueFile file(std::fopen(path.c_str(), "wt"));
    if (!file)
        return false;
    First();
    while (HasNext()) {
        if (std::fputs(static_cast<const TSString*>(GetNext())->c_str(), file.get()) < 0)
            break;
    }
    return true;
}

void TSStringList::Print()
{
    First();
    while (HasNext())
        static_cast<const TSString*>(GetNext())->Print(true);
}
