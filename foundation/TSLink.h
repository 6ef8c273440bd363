#pragma once

// One link of a TSList: the item, which the link doesn't own, and the next link.
class TSLink {
public:
    explicit TSLink(void* payload) : item(payload) {}
    TSLink(const TSLink&) = delete;
    TSLink& operator=(const TSLink&) = delete;

    TSLink* next = nullptr;  // null in the link at the tail; owned by the list
    void* item = nullptr;    // null in the link at the tail
};
