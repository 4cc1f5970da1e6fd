// Functions of libraries that few runs need. Loading such a library with the program, and all that it needs
// itself, would take every run longer than finding the hosts of a segment.
#pragma once

#include <initializer_list>

namespace qiven::on_demand {

// The library of the first name that can be loaded, which stays; nullptr when there is none.
void *Library(std::initializer_list<const char *> names);

// nullptr when there is no such function, or no library.
void *Symbol(void *pLibrary, const char *szName);

template <typename Function>
bool Get(Function *&pfnFunction, void *pLibrary, const char *szName) {
    pfnFunction = reinterpret_cast<Function *>(Symbol(pLibrary, szName));
    return pfnFunction != nullptr;
}

}  // namespace qiven::on_demand
