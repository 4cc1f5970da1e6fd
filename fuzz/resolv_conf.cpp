// Any text as /etc/resolv.conf, and as a file of keys and values with each delimiter that is in use.
#include "netifs.h"
#include "redirect.h"

namespace {

using fuzz::Require;
using Lines = std::vector<std::string>;

void RequireSameValue(const MemoryFile &file, const std::string &text, const char *szKey, char cDelim) {
    Lines messages;
    const auto found = fuzz::SlowValue(text, szKey, cDelim);
    const auto value = fuzz::Looked(text, szKey, cDelim, messages);
    char szValue[qiven::iface_lnx::kValueSize] = "kept";
    LogCapture log;
    const int iResult = qiven::iface_lnx::GetKeyValue(log.Record(), file.Stream(), szKey, szValue, cDelim);
    Require(iResult == (value ? 1 : found ? -1 : 0), "a key is found where it is, once");
    Require(szValue == value.value_or("kept"), "a value that is found is stored, and no other");
    Require(LogCapture::Take() == messages, "a value that is too long is reported, nothing else");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t cbData) {
    const std::string text(fuzz::AsText(pData, cbData));
    const MemoryFile file(text);
    for (const char cDelim : {' ', '='}) {
        for (const char *szKey : {"nameserver", "K", ""})
            RequireSameValue(file, text, szKey, cDelim);
    }
    fuzz::g_from = "/etc/resolv.conf";
    fuzz::g_to = file.Path();
    Lines messages;
    uint32_t ulExpected = INADDR_NONE;
    const auto value = fuzz::Looked(text, "nameserver", ' ', messages);
    if (value) fuzz::SlowAddress(*value, ulExpected);
    uint32_t ulDNS = INADDR_NONE;
    LogCapture log;
    qiven::iface_lnx::ParseResolvConf(log.Record(), ulDNS);
    Require(ulDNS == ulExpected, "the first server is taken when it has an address");
    Require(LogCapture::Take() == messages, "a value that is too long is reported, nothing else");
    return 0;
}
