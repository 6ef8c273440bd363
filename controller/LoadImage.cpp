#include "LoadImage.h"

#include <optional>
#include <utility>

#include <unistd.h>

#include "Files.h"
#include "SumFile.h"

namespace {

std::optional<ImageForm> FormOfInput(const std::string& path)
{
    return path == "-" ? ImageForm::Hex : FormOf(path);
}

// Nothing where there is no such file.
Outcome LoadSum(const std::string& path, std::optional<std::string>& text)
{
    const std::string sumPath = WithExtension(path, kSumExtension);
    if (access(sumPath.c_str(), F_OK) != 0)
        return {};
    return ReadInput(sumPath, text.emplace());
}

}  // namespace

Outcome LoadImage(const std::string& path, const Invocation& invocation, ImageFile& file)
{
    const auto form = FormOfInput(path);
    if (!form)
        return {Status::Usage, path + ": " + kNoForm};
    std::string bytes;
    if (Outcome read = ReadInput(path, bytes); !read.IsSuccess())
        return read;
    std::optional<std::string> sumText;
    if (*form == ImageForm::Rlg) {
        if (Outcome read = LoadSum(path, sumText); !read.IsSuccess())
            return read;
    }
    file = ParseImage(*form, std::move(bytes), sumText, invocation.outsideFlash);
    return {};
}

Outcome LoadClean(const std::string& path, const Invocation& invocation, ImageFile& file)
{
    Outcome outcome = LoadImage(path, invocation, file);
    if (!outcome.IsSuccess() || file.report.errors == 0)
        return outcome;
    return {Status::Failed, DescribeErrors(path, file.report)};
}
