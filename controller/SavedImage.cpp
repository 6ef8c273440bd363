#include "SavedImage.h"

#include "Files.h"
#include "NewFile.h"
#include "SumFile.h"

namespace {

std::string FileNameOf(const std::string& path)
{
    return path.substr(path.rfind('/') + 1);
}

// The line for the image at `path`, if its checksum matches; else none.
std::string SumLineOf(const std::string& path, const std::string& sumPath)
{
    std::string bytes;
    std::string sum;
    const bool isGood = ReadInput(path, bytes).IsSuccess() && ReadInput(sumPath, sum).IsSuccess() &&
                        SumMatches(sum, bytes);
    return isGood ? SumLine(bytes, FileNameOf(path)) : std::string();
}

}  // namespace

// While a good image is replaced, the checksum has a line for either. Any other image keeps its
// checksum until it is replaced.
Outcome SaveImage(const std::string& target, ImageForm form, std::string_view bytes)
{
    if (form != ImageForm::Rlg)
        return WriteNewFile(target, bytes);
    const std::string sumPath = WithExtension(target, kSumExtension);
    const std::string line = SumLine(bytes, FileNameOf(target));
    const std::string oldLine = SumLineOf(target, sumPath);
    NewFile image(target);
    Outcome outcome = image.Write(bytes);
    if (outcome.IsSuccess() && !oldLine.empty())
        outcome = WriteNewFile(sumPath, line + oldLine);
    if (outcome.IsSuccess())
        outcome = image.TakePlace();
    return outcome.IsSuccess() ? WriteNewFile(sumPath, line) : outcome;
}
