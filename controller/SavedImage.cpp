#include "SavedImage.h"

#include "NewFile.h"
#include "SumFile.h"

Outcome SaveImage(const std::string& target, ImageForm form, std::string_view bytes)
{
    if (form != ImageForm::Rlg)
        return WriteNewFile(target, bytes);
    const std::string name = target.substr(target.rfind('/') + 1);
    NewFile image(target);
    NewFile sum(WithExtension(target, ".sum"));
    Outcome outcome = image.Write(bytes);
    if (outcome.IsSuccess())
        outcome = sum.Write(SumLine(bytes, name));
    if (outcome.IsSuccess())
        outcome = image.TakePlace();
    return outcome.IsSuccess() ? sum.TakePlace() : outcome;
}
