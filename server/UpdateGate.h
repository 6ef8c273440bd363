#pragma once

#include <string>
#include <vector>

#include "CheckedFile.h"

class THexFile;

// What --strict knows of the file for the server's next update, which is the one that the latest
// search has found. An update starts only when nothing is wrong with it.
class UpdateGate {
public:
    // A search has found the file at `path`; null: it has found none. Reads and checks it; a
    // compressed one is expanded in memory. False when it can't be loaded.
    bool Examine(const char* path);

    // Compares the image that was loaded then with the text that was examined: the medium may
    // return other bytes the second time. Null when nothing could be loaded.
    void TakeLoaded(const THexFile* image);

    // An update has used the image that was loaded.
    void TakeUsed()
    {
        problems = {"the file that the last search has found was used; search again"};
    }

    // Why no update is to start, a sentence each; none when one may.
    const std::vector<std::string>& Problems() const { return problems; }

    // What is worth a line, but no reason to refuse the file.
    const std::vector<std::string>& Notes() const { return notes; }

    // Of the file that was examined.
    const std::string& Version() const { return file.report.version; }

private:
    bool Expand(const std::string& path);
    void TakeErrors();
    bool Fail(const std::string& problem);

    std::string source;  // the path of the file that was examined
    CheckedFile file;    // its text is dropped once it has been compared
    std::vector<std::string> problems = {"no search has found a file"};
    std::vector<std::string> notes;
};
