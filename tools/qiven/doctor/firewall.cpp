#include "doctor/firewall.h"

#include <qiven/udp.h>

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <memory>
#include <sstream>
#include <string_view>
#include <vector>

#include "text.h"

namespace qiven::doctor {

namespace {

constexpr size_t kRulesMax = 4 << 20;

// A chain of nftables or iptables.
struct Chain {
    std::string name;
    bool blIn = false;
    bool blOut = false;
    bool blDrops = false;  // its policy
    std::vector<std::string> rules;
};

// The output of a program; empty if it does not exist, fails, or takes longer than a user would wait.
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
    while (pipe != nullptr && output.size() < kRulesMax && (cb = fread(rgch, 1, sizeof rgch, pipe.get())) > 0)
        output.append(rgch, cb);
    return output;
}

// A quoted text, such as a comment or a log prefix, is one word including its quotes, so that it is not taken
// for a verdict.
std::vector<std::string> Words(const std::string &line) {
    std::vector<std::string> words;
    size_t uAt = 0;
    while ((uAt = line.find_first_not_of(" \t", uAt)) != std::string::npos) {
        size_t uEnd = line.find_first_of(" \t", uAt);
        if (line[uAt] == '"')
            uEnd = line.find('"', uAt + 1) == std::string::npos ? uEnd : line.find('"', uAt + 1) + 1;
        std::string word = line.substr(uAt, uEnd == std::string::npos ? uEnd : uEnd - uAt);
        uAt = std::min(uEnd, line.size());
        while (!word.empty() && (word.back() == ',' || word.back() == ';'))
            word.pop_back();
        words.push_back(word);
    }
    return words;
}

bool HasWord(const std::vector<std::string> &words, std::initializer_list<std::string_view> wanted) {
    return std::any_of(words.begin(), words.end(), [&](const std::string &word) {
        return std::find(wanted.begin(), wanted.end(), word) != wanted.end();
    });
}

// Whether a word is the port, a range around it, or a comma-separated list with either.
bool CoversPort(std::string_view word) {
    while (!word.empty()) {
        const std::string_view part = word.substr(0, word.find(','));
        word.remove_prefix(std::min(word.size(), part.size() + 1));
        unsigned int ulFirst = 0;
        const char *pEnd = part.data() + part.size();
        const auto [pStop, error] = std::from_chars(part.data(), pEnd, ulFirst);
        if (error != std::errc()) continue;
        unsigned int ulLast = ulFirst;
        const bool blRange = pStop != pEnd && (*pStop == '-' || *pStop == ':');
        if (blRange && std::from_chars(pStop + 1, pEnd, ulLast).ec != std::errc()) continue;
        if ((blRange || pStop == pEnd) && ulFirst <= QIVEN_PORT && QIVEN_PORT <= ulLast) return true;
    }
    return false;
}

bool NamesPort(const std::vector<std::string> &words) {
    auto at = std::find_if(words.begin(), words.end(), [](const std::string &word) {
        return word == "dport" || word == "--dport" || word == "--dports";
    });
    for (; at != words.end(); ++at)
        if (CoversPort(*at)) return true;
    return false;
}

// The word after one of the given ones; empty if there is none.
std::string WordAfter(const std::vector<std::string> &words, std::initializer_list<std::string_view> before) {
    for (size_t i = 0; i + 1 < words.size(); ++i)
        if (std::find(before.begin(), before.end(), words[i]) != before.end()) return words[i + 1];
    return {};
}

// In iptables the verdict is the target of a rule; a log prefix may be the same word.
bool Drops(const std::vector<std::string> &words) {
    const std::string target = WordAfter(words, {"-j", "-g"});
    return HasWord(words, {"drop", "reject"}) || target == "DROP" || target == "REJECT";
}

// Whether a rule that does not name the port can match its datagrams: it names neither another protocol nor
// any port.
bool IsAboutEverything(const std::vector<std::string> &words) {
    return !HasWord(words, {"tcp", "icmp", "icmpv6", "ip6", "igmp", "dport", "sport", "--dport", "--sport",
                            "--dports", "--sports", "invalid", "INVALID", "lo", "\"lo\""});
}

// The output of "nft list ruleset".
std::vector<Chain> ParseNft(const std::string &ruleset) {
    std::vector<Chain> chains;
    std::string table;
    bool blIPv4 = false;
    std::istringstream stream(ruleset);
    for (std::string line; std::getline(stream, line);) {
        const std::vector<std::string> words = Words(line);
        if (words.size() >= 3 && words[0] == "table") {
            blIPv4 = words[1] != "ip6" && words[1] != "arp";
            table = words[1] + " " + words[2];
        } else if (words.size() >= 2 && words[0] == "chain") {
            chains.push_back({fmt::format("nftables chain {} {}", table, words[1]), false, false, false, {}});
        } else if (chains.empty() || !blIPv4 || words.empty()) {
            continue;
        } else if (words[0] == "type" && HasWord(words, {"hook"})) {
            chains.back().blIn = HasWord(words, {"input", "prerouting", "ingress"});
            chains.back().blOut = HasWord(words, {"output", "postrouting", "egress"});
            chains.back().blDrops = Drops(words);
        } else {
            chains.back().rules.push_back(line);
        }
    }
    return chains;
}

// The output of iptables-save.
std::vector<Chain> ParseIptables(const std::string &saved) {
    std::vector<Chain> chains;
    std::istringstream stream(saved);
    for (std::string line; std::getline(stream, line);) {
        const std::vector<std::string> words = Words(line);
        if (words.size() >= 2 && line[0] == ':') {
            const std::string name = words[0].substr(1);
            chains.push_back({"iptables chain " + name,
                              name == "INPUT" || name == "PREROUTING",
                              name == "OUTPUT" || name == "POSTROUTING",
                              words[1] == "DROP",
                              {}});
        } else if (words.size() >= 2 && words[0] == "-A") {
            const auto chain = std::find_if(chains.rbegin(), chains.rend(), [&words](const Chain &c) {
                return c.name == "iptables chain " + words[1];
            });
            if (chain != chains.rend()) chain->rules.push_back(line);
        }
    }
    return chains;
}

std::string Describe(const Chain &chain, const std::string &rule) {
    // Rules have comments and names, which may contain any text.
    const size_t iStart = std::min(rule.find_first_not_of(" \t"), rule.size());
    return fmt::format("the rule \"{}\" in {}", text::Escape(rule.substr(iStart)), text::Escape(chain.name));
}

// The chains that a datagram of the port can pass in this direction: those with the hook, and those to which
// they jump.
std::vector<const Chain *> ChainsOf(const std::vector<Chain> &chains, Direction direction) {
    std::vector<const Chain *> reached;
    for (const Chain &chain : chains)
        if (direction == Direction::kIn ? chain.blIn : chain.blOut) reached.push_back(&chain);
    for (size_t i = 0; i < reached.size(); ++i) {
        const std::string place = reached[i]->name.substr(0, reached[i]->name.rfind(' ') + 1);
        for (const std::string &rule : reached[i]->rules) {
            const std::vector<std::string> words = Words(rule);
            if (!NamesPort(words) && !IsAboutEverything(words)) continue;
            const std::string target = place + WordAfter(words, {"jump", "goto", "-j", "-g"});
            for (const Chain &chain : chains)
                if (chain.name == target &&
                    std::find(reached.begin(), reached.end(), &chain) == reached.end())
                    reached.push_back(&chain);
        }
    }
    return reached;
}

using Suspect = bool (*)(const std::vector<std::string> &words);

std::optional<std::string> FindRule(const std::vector<Chain> &chains, Direction direction, Suspect pfnSuspect,
                                    bool blHookedOnly) {
    for (const Chain *pChain : ChainsOf(chains, direction)) {
        if (blHookedOnly && !pChain->blIn && !pChain->blOut) continue;
        for (const std::string &rule : pChain->rules)
            if (pfnSuspect(Words(rule))) return Describe(*pChain, rule);
    }
    return std::nullopt;
}

std::optional<std::string> FindPolicy(const std::vector<Chain> &chains, Direction direction) {
    for (const Chain &chain : chains) {
        if (!(direction == Direction::kIn ? chain.blIn : chain.blOut) || !chain.blDrops) continue;
        const bool blAllowed =
            std::any_of(chain.rules.begin(), chain.rules.end(), [](const std::string &rule) {
                return NamesPort(Words(rule)) && HasWord(Words(rule), {"accept", "ACCEPT"});
            });
        if (!blAllowed) return fmt::format("the policy \"drop\" of {}", text::Escape(chain.name));
    }
    return std::nullopt;
}

// From the most to the least certain: a rule about the port, a policy, a rule about everything.
std::optional<std::string> FindIn(const std::vector<Chain> &chains, Direction direction) {
    if (auto rule = FindRule(
            chains, direction, [](const auto &words) { return Drops(words) && NamesPort(words); }, false))
        return rule;
    if (auto policy = FindPolicy(chains, direction)) return policy;
    return FindRule(
        chains, direction, [](const auto &words) { return Drops(words) && IsAboutEverything(words); }, true);
}

// nftables also lists the rules of the newer iptables; those of the older one are only in its own list.
std::vector<std::vector<Chain>> ReadFilters() {
    // Only root of the machine may read the list of tables; root of a container may read a table by name.
    constexpr const char *kLegacy = "sh -c 'iptables-legacy-save || iptables-legacy-save -t filter'";
    return {ParseNft(Run("nft --stateless list ruleset")), ParseIptables(Run(kLegacy)),
            ParseIptables(Run("iptables-save"))};
}

}  // namespace

std::optional<std::string> FindDrop(Direction direction) {
    static const std::vector<std::vector<Chain>> filters = ReadFilters();
    for (const std::vector<Chain> &chains : filters)
        if (auto found = FindIn(chains, direction)) return found;
    return std::nullopt;
}

}  // namespace qiven::doctor
