#include <unistd.h>

#include "Command.h"
#include "Conversion.h"
#include "LoadImage.h"
#include "SavedImage.h"

Outcome ConvertImage(const Invocation& invocation)
{
    const std::string& source = invocation.arguments[0];
    const std::string& target = invocation.arguments[1];
    const auto form = FormOf(target);
    if (!form || form == FormOf(source))
        return WrongUsage("convert goes from one of .hex, .bin and .rlg to another");
    if (!invocation.force && access(target.c_str(), F_OK) == 0)
        return {Status::Failed, target + " exists; --force overwrites it"};
    ImageFile input;
    if (Outcome loaded = LoadClean(source, invocation, input); !loaded.IsSuccess())
        return loaded;
    const Conversion converted = Convert(input, *form);
    if (!converted.error.empty())
        return {Status::Failed, source + ": " + converted.error};
    if (converted.version != input.report.version)
        Complain("the version text becomes \"" + converted.version +
                 "\", because the unit makes other records");
    return SaveImage(target, *form, converted.bytes);
}
