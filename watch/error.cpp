#include <qiven/watch.h>

#include <cerrno>
#include <cstring>

const char *QIVENWatchError(int iResult) {
    switch (-iResult) {
        case EINVAL:
            return "an argument is not valid";
        case EADDRINUSE:
            return "UDP port 9999 is held by a program that does not share it";
        case ENODEV:
            return "no interface to send out of";
        case ENOKEY:
            return "the keys of the process cannot be made";
        case ENOMEM:
            return "no memory";
        case EPERM:
        case EACCES:
            return "a firewall, a sandbox or a missing permission forbids it";
        default:
            break;
    }
    if (iResult >= 0) return "success";
    const char *szText = strerrordesc_np(-iResult);
    return szText != nullptr ? szText : "an unknown error";
}
