#pragma once

#include <string>
#include <string_view>

#include "UniqueFd.h"

// A file that takes the place of an older one whole or not at all, also after a power cut:
//
//    Write    a work file next to the target, flushed, read from the disk again and compared
//    Commit   the work file gets the target's name, and the directory and the file are flushed
//
// Before Commit the target is what it was, and a work file that isn't committed is removed at the
// end of the scope. A Commit that returns false at its last flush leaves the new file in place: a
// power cut may bring back the old one, whole. On a FAT without an older file it may leave an empty
// one.
class WholeFile {
public:
    // Both paths are in one directory. Whatever is at that of the work file is removed. Its usual
    // name is that of the target with ".new" appended.
    explicit WholeFile(const std::string& path) : WholeFile(path, path + ".new") {}
    WholeFile(std::string path, std::string workPath);
    ~WholeFile();
    WholeFile(const WholeFile&) = delete;
    WholeFile& operator=(const WholeFile&) = delete;

    // Each returns false with errno set, EIO also when the disk returns other bytes than were
    // written.
    bool Write(std::string_view bytes);
    bool Commit();

    // True once the work file has the target's name.
    bool IsReplaced() const { return isCommitted; }

    // A sentence about errno, after a failure: which of the two files it concerns, and whether the
    // target was replaced already. Leaves errno as it is.
    std::string Problem() const;

private:
    bool Create();

    std::string target;
    std::string work;
    UniqueFd file{-1};  // the work file; below 0 before Write
    // The older file is kept open up to the last flush: a disk without a journal may keep its name
    // longer than its bytes, which are free only once nobody has it open.
    UniqueFd old{-1};
    bool isCommitted = false;  // the work file has the target's name
};

// Flushes the directory of the file: its names survive a power cut from then on. False with errno
// set; a file system that can't do it for a directory alone counts as having done it.
bool FlushDirectoryOf(const std::string& path);

// The bytes of the file as the disk has them, not the memory that the system keeps of them. False
// with errno set, EIO when they are others.
bool IsOnDisk(const std::string& path, std::string_view bytes);
