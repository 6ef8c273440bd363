#pragma once

#include <cerrno>
#include <string>

// The system's reason for the error; "can't be used" for 0, which the refusal of a file that is no
// regular one leaves.
std::string Reason(int error = errno);

// "SUBJECT: the system's reason".
std::string ReasonFor(const std::string& subject, int error = errno);
