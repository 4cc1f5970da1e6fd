// Any bytes as a finished host list, read into a hash.
#include <qiven/search.h>
#include <tavocore.h>
#include <syslog.h>

#include <cstdarg>
#include <cstring>
#include <map>

#include "files.h"
#include "fuzz.h"
#include "redirect.h"
#include "search/host_list.h"
#include "support/memory_file.h"

namespace {

using fuzz::Require;
using Lines = std::vector<std::string>;
using Pairs = std::map<std::string, std::string>;

Lines g_said;
int g_nUnlinked = 0;

void Keep(int iPriority, const char *szFormat, va_list args) {
    char sz[256];
    vsnprintf(sz, sizeof sz, szFormat, args);
    const char *szText = strchr(sz, ' ');
    Require(iPriority == LOG_ERR && szText != nullptr, "a line that cannot be used is an error");
    g_said.emplace_back(szText + 1);
}

}  // namespace

extern "C" {
int __real_unlink(const char *szPath);
int __wrap_unlink(const char *szPath);
int __wrap_unlink(const char *szPath) {
    if (fuzz::g_from != szPath) return __real_unlink(szPath);  // the engine's own files
    ++g_nUnlinked;
    return 0;
}
void __wrap_syslog(int iPriority, const char *szFormat, ...);
void __wrap_syslog(int iPriority, const char *szFormat, ...) {
    va_list args;
    va_start(args, szFormat);
    Keep(iPriority, szFormat, args);
    va_end(args);
}
void __wrap___syslog_chk(int iPriority, int iFlag, const char *szFormat, ...);
void __wrap___syslog_chk(int iPriority, int /*iFlag*/, const char *szFormat, ...) {
    va_list args;
    va_start(args, szFormat);
    Keep(iPriority, szFormat, args);
    va_end(args);
}
}

namespace {

void Apply(const std::string &text, Pairs &pairs, Lines &messages) {
    Lines lines = fuzz::Split(text, "\n", true);
    if (lines.back().empty()) lines.pop_back();  // nothing follows the last newline
    for (const std::string &line : lines) {
        if (line.size() > qiven::search::kListLineMax) {
            messages.emplace_back("line too long");
            continue;
        }
        const char *szSpaces = " \t\n\v\f\r";
        const std::string trimmed = fuzz::TrimEnd(fuzz::TrimStart(line.c_str(), szSpaces), szSpaces);
        const Lines columns = fuzz::Split(trimmed, ",", true);
        if (columns.size() < 5) {
            messages.emplace_back("field number < 5");
        } else if (strtol(columns[0].c_str(), nullptr, 10) == 0) {
            messages.emplace_back("model number == 0");
        } else if (strtol(columns[1].c_str(), nullptr, 10) >= 240) {
            pairs[(columns[2] + "(" + columns[3] + ")").substr(0, 1023)] = columns[3];
        }
    }
}

Pairs All(TLIBC_SZHASH_HANDLE pHash) {
    Pairs all;
    TLIBC_SZLIST_HANDLE pKeys = TLIBCSzListAlloc(0);
    const int n = TLIBCSzHashEnumKey(pHash, &pKeys);
    for (int i = 0; i < n; ++i)
        all[TLIBCSzListGet(pKeys, i)] = TLIBCSzHashGetValue(pHash, TLIBCSzListGet(pKeys, i));
    TLIBCSzListFree(pKeys);
    return all;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t cbData) {
    const std::string_view text = fuzz::AsText(pData, cbData);
    const MemoryFile file(text);
    fuzz::g_from = qiven::search::kFinishedListFile;
    fuzz::g_to = file.Path();
    g_said.clear();
    g_nUnlinked = 0;
    TLIBC_SZHASH_HANDLE pHash = TLIBCSzHashAlloc(8);
    TLIBCSzHashSetValue(&pHash, "old", "kept");
    Pairs pairs = {{"old", "kept"}};
    Lines messages;
    Apply(std::string(text), pairs, messages);
    Require(TAVOQIVENGet2Hash(&pHash) == static_cast<int>(pairs.size()), "the result counts the pairs");
    Require(All(pHash) == pairs, "usable lines become pairs, and nothing else changes");
    Require(g_said == messages, "each line that cannot be used is reported");
    Require(g_nUnlinked == 1, "the list is deleted once");
    TLIBCSzHashFree(pHash);
    return 0;
}
