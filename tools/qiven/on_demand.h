// Loads libraries that few runs need. Loading them in every run, with their own dependencies, would take
// longer than a search.
#pragma once

#include <initializer_list>

namespace qiven::on_demand {

// Loads the first of the named libraries that exists, for the rest of the run; nullptr if there is none.
void *Library(std::initializer_list<const char *> names);

// nullptr if there is no such function, or no library.
void *Symbol(void *pLibrary, const char *szName);

template <typename Function>
bool Get(Function *&pfnFunction, void *pLibrary, const char *szName) {
    pfnFunction = reinterpret_cast<Function *>(Symbol(pLibrary, szName));
    return pfnFunction != nullptr;
}

}  // namespace qiven::on_demand
