#pragma once

#include <csignal>
#include <optional>
#include <string>

#include "HexCheck.h"
#include "Status.h"

// The forms of an image, known by the extension of the file's name.
enum class ImageForm { Hex, Bin, Rlg };

// Nothing for any other extension. Either case counts.
std::optional<ImageForm> FormOf(const std::string& path);

// A new directory below `parent`, removed with its contents at the end of the scope. A signal that
// ends the program waits until then.
class ScratchDirectory {
public:
    explicit ScratchDirectory(const std::string& parent);
    ~ScratchDirectory();
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;

    // False when it couldn't be made; errno has the reason.
    explicit operator bool() const { return !path.empty(); }
    std::string Path(const std::string& name) const { return path + "/" + name; }

private:
    std::string path;
    sigset_t signals = {};  // the mask to restore
};

// A file as the unit sees it: a .bin or .rlg file in the Intel HEX form that the unit makes of it.
struct ImageFile {
    ImageForm form = ImageForm::Hex;
    std::string hexText;
    HexReport report;  // without line numbers for a file that has no lines
};

// Reads and checks a file: Usage when it can't be read or is none of the forms, Failed when it
// can't be expanded. What is wrong with its content is in the report.
Outcome Load(const std::string& path, ImageFile& file);

// The same, and fails with the first error in the content.
Outcome LoadClean(const std::string& path, ImageFile& file);

// "error" or "warning".
const char* NameOf(Severity severity);

// "file.hex:12: error: ...", with the line where there is one.
std::string Describe(const std::string& path, const Finding& finding);

// Writes the Intel HEX file at `hexPath` in another form to `path`, by the unit's own code. It uses
// files next to `hexPath`.
bool Save(const std::string& hexPath, ImageForm form, const std::string& path);
