#pragma once

#include <dlfcn.h>

/// The function of this name that one of ours stands before: that of the C library, of a sanitizer,
/// or of another library that is preloaded. Each library has a copy of its own, since "next" is
/// counted from the library that asks.
template <class Function> static Function* next(char const* name)
{
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}
