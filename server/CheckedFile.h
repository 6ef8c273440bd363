#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "HexCheck.h"

class THexFile;

// The text of an Intel HEX file, checked.
struct CheckedFile {
    static constexpr std::int64_t kLargest = 0x1000000;  // bytes of a file

    CheckedFile() = default;

    // Reads the file to its end. `outsideFlash` is the severity of data outside the CSP's flash.
    explicit CheckedFile(const std::string& path, Severity outsideFlash = Severity::Error);

    // Checks a text in memory. Errors name its file as `itsName`.
    CheckedFile(const std::string& itsName, std::string itsText,
                Severity outsideFlash = Severity::Error);

    // Why the text isn't a complete read-back of the parameter flash: a sentence that names the
    // file. Empty if it is one.
    std::string ReadBackProblem() const;

    // True when the rows of the image are the lines of this text, which has no errors.
    bool IsIn(const THexFile& image) const;

    // Hands back the memory of the text.
    void DropText() { std::string().swap(text); }

    std::string name;        // of the file
    std::string text;        // empty when the file can't be read
    bool isRead = false;     // it could be read
    bool isMissing = false;  // it couldn't, because there is none that may be opened
    HexReport report;        // of the text

    // A sentence for each, with the file; none for a good one. A file of another kind has an error
    // in each line, so at most 20 are listed, then their number.
    std::vector<std::string> errors;

    // The same for data outside the flash where that is no error, up to HexReport's limit.
    std::vector<std::string> warnings;
};
