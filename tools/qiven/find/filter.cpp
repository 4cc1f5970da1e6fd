#include "find/filter.h"

#include <qiven/nasinfo.h>

#include <algorithm>

#include "fields.h"
#include "find/host.h"
#include "output/text.h"

namespace qiven::find {

namespace {

bool Contains(const std::vector<uint32_t> &list, uint32_t ulValue) {
    return std::find(list.begin(), list.end(), ulValue) != list.end();
}

bool HasService(const nasinfo &record, uint32_t ulService) {
    return QIVENNasinfoServSuppGet(nullptr, &record, ulService) == 1 ||
           QIVENNasinfoServRunGet(nullptr, &record, ulService) == 1;
}

}  // namespace

bool IsWantedHost(const Options &options, const QIVEN_WATCH_HOST &host) {
    const nasinfo &record = *host.pnasInfo;
    if (FirstAddress(host) == nullptr) return false;
    if (!options.types.empty() && !Contains(options.types, record.ulPktType)) return false;
    if (!options.models.empty() && !Contains(options.models, record.ulModel)) return false;
    if (!std::all_of(options.services.begin(), options.services.end(),
                     [&record](uint32_t ulService) { return HasService(record, ulService); }))
        return false;
    const std::string name = fields::Text(record, *fields::ByName("name"));
    return options.names.empty() ||
           std::any_of(options.names.begin(), options.names.end(),
                       [&name](const auto &pattern) { return text::Matches(pattern, name, true); });
}

}  // namespace qiven::find
