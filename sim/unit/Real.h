#pragma once

#include <dlfcn.h>

// The next function of a name after this library's: libc's. It is looked up at the first call,
// since hooks are called before any constructor of the library has run.
template <typename Function>
class Real {
public:
    constexpr explicit Real(const char* called) : name(called) {}

    template <typename... Arguments>
    auto operator()(Arguments... arguments)
    {
        if (found == nullptr)
            found = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
        return found(arguments...);
    }

private:
    const char* name;
    Function* found = nullptr;
};
