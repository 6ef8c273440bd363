#pragma once

#include <csignal>
#include <string>
#include <string_view>

#include "Status.h"
#include "UniqueFd.h"

// A file that takes the place of another one, or of none, when it is complete, on the disk and read
// again. Until then it has a name of its own next to the target, and is removed at the end of the
// scope. A signal that ends the program waits until then, and Write returns at once.
class NewFile {
public:
    explicit NewFile(std::string target);
    ~NewFile();
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    // Each is called once, in this order. Failed with the reason, and the target stays as it was;
    // if only the last flush of TakePlace fails, the new file is in place.
    Outcome Write(std::string_view bytes);
    Outcome TakePlace();

private:
    Outcome Open();
    Outcome WriteAll(std::string_view bytes);
    Outcome Compare(std::string_view bytes);
    Outcome Fail(const std::string& reason) const;
    Outcome FailByErrno() const;

    std::string path;   // as the user has named it
    std::string place;  // the file that a link leads to
    std::string work;   // empty when there is none
    UniqueFd file{-1};
    // The file that is replaced, open up to the last flush: a FAT may keep its name longer than its
    // bytes, which are free only once nobody has it open. Below 0: none, or it can't be read.
    UniqueFd old{-1};
    sigset_t blocked = {};   // by this object
    sigset_t restored = {};  // the mask before
};

// The same with a file of its own for each call.
Outcome WriteNewFile(const std::string& target, std::string_view bytes);
