#include "TSList.h"

TSList::~TSList()
{
    Clear();  // all links but the empty one
    delete tail;
}

TSList& TSList::Add(void* item)
{
    // The empty link takes the item, and a new one takes its place: no case for an empty list.
    tail->item = item;
    tail->next = new TSLink(nullptr);
    tail = tail->next;
    ++count;
    return *this;
}

// With the field and not the link before it, the head needs no case of its own.
TSLink** TSList::Place(int index)
{
    TSLink** place = &head;
    for (; index > 0; --index)
        place = &(*place)->next;
    return place;
}

TSList& TSList::Insert(int index, void* item)
{
    if (index >= count)
        return Add(item);
    TSLink** place = Place(index);
    auto* link = new TSLink(item);
    link->next = *place;
    *place = link;
    ++count;
    return *this;
}

void* TSList::GetItem(int index) const
{
    // The item of the empty link would be null as well, but there is no link after it.
    if (index < 0 || index >= count)
        return nullptr;
    const TSLink* link = head;
    for (; index > 0; --index)
        link = link->next;
    return link->item;
}

TSList& TSList::Delete(int index)
{
    if (index < 0 || index >= count)
        return *this;
    TSLink** place = Place(index);
    const TSLink* removed = *place;
    *place = removed->next;
    // A cursor left on the removed link would be used after it is gone.
    if (current == removed)
        current = removed->next;
    delete removed;
    --count;
    return *this;
}

TSList& TSList::Clear()
{
    while (head != tail) {
        const TSLink* removed = head;
        head = removed->next;
        delete removed;
    }
    current = tail;  // the cursor may have been on a link that is gone
    count = 0;
    return *this;
}

void TSList::First()
{
    current = head;
}

bool TSList::HasNext() const
{
    return current != tail;
}

void* TSList::GetNext()
{
    if (!HasNext())
        return nullptr;
    // The cursor moves on first, since the caller may remove the link of its item.
    void* item = current->item;
    current = current->next;
    return item;
}
