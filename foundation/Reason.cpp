#include "Reason.h"

#include <cstring>

std::string Reason(int error)
{
    return error == 0 ? "can't be used" : std::strerror(error);
}

std::string ReasonFor(const std::string& subject, int error)
{
    return subject + ": " + Reason(error);
}
