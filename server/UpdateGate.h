#pragma once

#include <string>
#include <vector>

#include "CheckedFile.h"

class TUpdater;

// What --strict knows of the file for the server's next update, which is the one that the latest
// search has found. An update starts only when nothing is wrong with it.
class UpdateGate {
public:
    // A search has found the file at `path`; null: it has found none. Reads and checks it, a
    // compressed one expanded in memory, and loads the text into the updater unless something is
    // wrong with it. `version` gets its version text (THexFile::kVersionSize bytes of room), unless
    // it is null. False when there is nothing that could be loaded.
    bool Load(TUpdater& updater, const char* path, char* version);

    // An update has used the image that was loaded.
    void TakeUsed()
    {
        problems = {"the file that the last search has found was used; search again"};
    }

    // Why no update is to start, a sentence each; none when one may.
    const std::vector<std::string>& Problems() const { return problems; }

    // What is worth a line, but no reason to refuse the file.
    const std::vector<std::string>& Notes() const { return notes; }

private:
    CheckedFile Examine(const std::string& path);
    CheckedFile Expand(const std::string& path);

    std::vector<std::string> problems = {"no search has found a file"};
    std::vector<std::string> notes;
};
