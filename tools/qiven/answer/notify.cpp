#include "answer/notify.h"

#include <cstdlib>

#include "on_demand.h"

namespace qiven::answer {

bool Notify(const std::string &state) {
    if (getenv("NOTIFY_SOCKET") == nullptr) return true;
    static void *const pLibrary = on_demand::Library({"libsystemd.so.0"});
    int (*pfnNotify)(int iUnset, const char *szState) = nullptr;
    return on_demand::Get(pfnNotify, pLibrary, "sd_notify") && pfnNotify(0, state.c_str()) > 0;
}

}  // namespace qiven::answer
