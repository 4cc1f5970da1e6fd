#include "doctor/firewall.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <sstream>
#include <string_view>
#include <vector>

#include "doctor/iptables_rules.h"
#include "doctor/nft_rules.h"
#include "output/text.h"

namespace qiven::doctor {

namespace {

constexpr size_t kRulesMax = 4 << 20;

// The output of a program; empty if it does not exist, fails, says more than is read, or takes longer than a
// user would wait.
std::string Run(const char *szCommand) {
    struct PipeCloser {
        void operator()(FILE *pf) const { pclose(pf); }
    };
    const std::string line = fmt::format(
        "PATH=/usr/sbin:/usr/bin:/sbin:/bin; exec timeout 1 {} 2>/dev/null </dev/null", szCommand);
    // The shell gets literal commands of this file, and a fixed search path.
    // NOLINTNEXTLINE(cert-env33-c)
    std::unique_ptr<FILE, PipeCloser> pipe(popen(line.c_str(), "re"));
    std::string output;
    char rgch[4096];
    size_t cb = 0;
    while (pipe != nullptr && output.size() <= kRulesMax &&
           (cb = fread(rgch, 1, sizeof rgch, pipe.get())) > 0)
        output.append(rgch, cb);
    return output.size() <= kRulesMax ? output : std::string();
}

std::vector<std::string> RunForLines(const char *szCommand) {
    std::vector<std::string> lines;
    std::istringstream stream(Run(szCommand));
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

// The rules of one program.
struct Filter {
    bool blIptables;
    std::string json;
    std::vector<std::string> lines;  // the same in words
};

// nftables also lists the rules of the newer iptables, but some of their conditions only by name; those of
// the older one are only in its own list.
std::vector<Filter> ReadFilters() {
    // Only root of the machine may read the list of tables; root of a container may read a table by name.
    constexpr const char *kLegacy = "sh -c 'iptables-legacy-save || iptables-legacy-save -t filter'";
    std::vector<Filter> filters;
    filters.push_back(
        {false, Run("nft -j list ruleset"), RunForLines("nft --stateless --handle list ruleset")});
    for (const char *szCommand : {kLegacy, "iptables-save"}) {
        std::vector<std::string> lines = RunForLines(szCommand);
        if (!lines.empty()) filters.push_back({true, iptables::ToNft(lines), std::move(lines)});
    }
    return filters;
}

// The line of a rule of nftables; empty if the rules were changed in between.
std::string FindLine(const std::vector<std::string> &lines, const nft::Place &place) {
    const std::string table = fmt::format("table {} {} {{", place.family, place.table);
    const std::string handle = fmt::format(" # handle {}", place.ullHandle);
    bool blInTable = false;
    for (const std::string &line : lines) {
        if (line.starts_with("table ")) blInTable = line.starts_with(table);
        const bool blRule = blInTable && line.starts_with("\t\t") && line.ends_with(handle);
        if (blRule) return line.substr(2, line.size() - 2 - handle.size());
    }
    return {};
}

std::string Describe(const Filter &filter, const nft::Judgement &judgement) {
    const nft::Place &place = judgement.place;
    const std::string chain = text::Escape(
        filter.blIptables ? fmt::format("iptables chain {}", place.chain)
                          : fmt::format("nftables chain {} {} {}", place.family, place.table, place.chain));
    if (place.ullHandle == 0) return fmt::format("the policy \"drop\" of {}", chain);
    const std::string rule =
        filter.blIptables ? filter.lines.at(place.ullHandle - 1) : FindLine(filter.lines, place);
    // Rules have comments and names, which may contain any text.
    return fmt::format("{}the rule \"{}\" in {}", judgement.rank == nft::Rank::kCertain ? "" : "probably ",
                       text::Escape(rule), chain);
}

}  // namespace

Finding FindDrop(const Datagram &datagram) {
    static const std::vector<Filter> filters = ReadFilters();
    Finding finding{std::nullopt, false};
    nft::Rank best = nft::Rank::kNone;
    bool blForeign = false;
    bool blIptables = false;
    for (const Filter &filter : filters) {
        const nft::Judgement judgement = nft::Judge(filter.json, datagram);
        finding.blRead |= judgement.blRead;
        blForeign |= judgement.blForeign;
        blIptables |= filter.blIptables && judgement.blRead;
        if (judgement.rank >= best) continue;
        best = judgement.rank;
        finding.rule = Describe(filter, judgement);
    }
    // What nftables cannot say of the rules of iptables is in the lists of the latter.
    finding.blRead &= !blForeign || blIptables;
    return finding;
}

}  // namespace qiven::doctor
