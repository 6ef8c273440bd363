#pragma once

#include <dlfcn.h>

// libc's function of the same name as a hook of this library: the next one after it. It is looked
// up at the first call, since hooks are called before any constructor of the library has run.
//
// The compiler decides which of libc's names a function has, `stat` for example `stat64` and on
// 32-bit ARM `__stat64_time64`. The library is built with the sizes and times of the unit's
// programs, so its hooks get the names that those call, and the hook's own name is the one to look
// up.
template <typename Function>
class Real {
public:
    constexpr explicit Real(Function* hook) : own(hook) {}

    template <typename... Arguments>
    auto operator()(Arguments... arguments)
    {
        if (found == nullptr) {
            Dl_info info = {};
            dladdr(reinterpret_cast<void*>(own), &info);
            found = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, info.dli_sname));
        }
        return found(arguments...);
    }

private:
    Function* own;
    Function* found = nullptr;
};
