#pragma once

#include <stdexcept>
#include <string>

namespace tallowick
{

// The program's one error type. what() is the complete sentence shown to the user, so it can be
// put on screen or written to standard error as it is.
class AppError : public std::runtime_error
{
public:
    explicit AppError(const std::string &message)
        : std::runtime_error(message)
    {
    }

    std::string message() const { return what(); }
};

} // namespace tallowick
