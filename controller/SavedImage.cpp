#include "SavedImage.h"

#include "Files.h"
#include "NewFile.h"
#include "SumFile.h"

namespace {

std::string FileNameOf(const std::string& path)
{
    return path.substr(path.rfind('/') + 1);
}

// The line for the file that stands there; none without one.
std::string SumLineOf(const std::string& path)
{
    std::string bytes;
    return ReadInput(path, bytes).IsSuccess() ? SumLine(bytes, FileNameOf(path)) : std::string();
}

}  // namespace

// While the image is replaced, the checksum has a line for either.
Outcome SaveImage(const std::string& target, ImageForm form, std::string_view bytes)
{
    if (form != ImageForm::Rlg)
        return WriteNewFile(target, bytes);
    const std::string sumPath = WithExtension(target, kSumExtension);
    const std::string line = SumLine(bytes, FileNameOf(target));
    NewFile image(target);
    Outcome outcome = image.Write(bytes);
    if (outcome.IsSuccess())
        outcome = WriteNewFile(sumPath, line + SumLineOf(target));
    if (outcome.IsSuccess())
        outcome = image.TakePlace();
    return outcome.IsSuccess() ? WriteNewFile(sumPath, line) : outcome;
}
