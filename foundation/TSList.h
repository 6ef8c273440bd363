#pragma once

#include <cstdint>

#include "TSLink.h"

// A chain of untyped items with one built-in cursor. The list owns its links, never its items.
//
//    head                        tail
//   +------+    +------+        +------+
//   | item |--->| item |--- ...-| null |
//   +------+    +------+        +------+
//
// The empty link at the tail is always there; in an empty list it is the head as well. Indexes
// count from 0; a negative one is out of range. Insert and GetItem are for the unit's other
// programs.
class TSList {
public:
    TSList() = default;
    ~TSList();
    TSList(const TSList&) = delete;
    TSList& operator=(const TSList&) = delete;

    TSList& Add(void* item);

    // Before the entry at the index; an index of `count` or more appends, a negative one puts the
    // item in front.
    TSList& Insert(int index, void* item);

    // Null if there is no such entry.
    void* GetItem(int index) const;

    // Removes the link and not its item; does nothing if there is no such entry. A cursor on the
    // removed link moves to the next one.
    TSList& Delete(int index);

    // Removes all links and no item. The cursor is at the end then.
    TSList& Clear();

    void First();
    bool HasNext() const;

    // The item under the cursor, which moves on by one link. Null at the end.
    void* GetNext();

private:
    // Owned, as is every link that follows it. The empty link is there from the start, so an
    // empty list needs no case of its own.
    TSLink* head = new TSLink(nullptr);
    TSLink* tail = head;     // the empty link
    TSLink* current = head;  // the cursor; the tail at the end

    // The link field that leads to the entry; the index must be below `count`.
    TSLink** Place(int index);

public:
    // The number of items. The last of the fields, whose order is part of the interface. For
    // reading only.
    std::int32_t count = 0;
};
