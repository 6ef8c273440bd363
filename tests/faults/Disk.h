#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

// A line of the list of calls: "write 3 /cwd/csp_param.hex".
struct CallLine {
    std::string kind;
    std::string number;
    std::string subject;

    // "write:3:EIO".
    std::string Fault(const std::string& what) const { return kind + ":" + number + ":" + what; }
};

using Files = std::map<std::string, std::string>;  // full paths in the unit, and contents

// What the unit's disk and its medium have after a power cut: what is flushed, and as much of the
// changes since as a file system may have written.
//
// The bytes of a file since its last fsync are all there or all lost. A new, changed or removed
// name is kept or not, each on its own, until its directory is flushed.
//
// The medium's FAT file system has the length and the place of a file with its name. So a new name
// has no bytes before the file is flushed, and a name that replaces another one still is that of
// the older file; of two names for one place the repair after a cut empties one. Its syncfs writes
// everything, but only the next fsync makes the medium keep it.
class Disk {
public:
    static constexpr char kMedium[] = "/medium/";

    // All of `before` is flushed.
    explicit Disk(const Files& before);

    void Take(const CallLine& call);

    // The files after a cut now, for each choice. `present` are those that the programs have seen.
    std::vector<Files> Outcomes(const Files& present);

private:
    using Names = std::map<std::string, int>;  // of files, each a number
    using IsMeant = std::function<bool(const std::string& path)>;

    // Without `from` a file is new, without `to` it is removed.
    struct Change {
        std::string from;
        std::string to;
        int file;

        void Apply(Names& all) const;
    };

    int Identity(const std::string& path);
    void Move(const std::string& from, const std::string& to);
    void FlushFile(int file);
    void FlushNames(const IsMeant& isMeant);
    void FlushAll(bool ofMedium);
    Files Outcome(unsigned choice, bool isLost);

    int lastFile = 0;
    Names names;                           // as the programs see them
    Names flushed;                         // as the disk has them
    std::vector<Change> changes;           // of names since
    std::set<int> unflushed;               // files
    std::map<int, std::string> replacing;  // files of the medium, and the names that they get
    bool isMediumWritten = false;          // but not flushed
    std::map<int, std::string> contents;
};
