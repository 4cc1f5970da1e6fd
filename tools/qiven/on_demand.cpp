#include "on_demand.h"

#include <dlfcn.h>

namespace qiven::on_demand {

void *Library(std::initializer_list<const char *> names) {
    for (const char *szName : names) {
        if (void *pLibrary = dlopen(szName, RTLD_NOW | RTLD_LOCAL); pLibrary != nullptr) return pLibrary;
    }
    return nullptr;
}

void *Symbol(void *pLibrary, const char *szName) {
    return pLibrary == nullptr ? nullptr : dlsym(pLibrary, szName);
}

}  // namespace qiven::on_demand
