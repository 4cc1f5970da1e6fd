#include "doctor/nft_rules.h"

#include <algorithm>
#include <memory>
#include <vector>

#include "doctor/nft_match.h"

namespace qiven::doctor::nft {

namespace {

constexpr int kDepthMax = 40;  // of the text
constexpr int kJumpsMax = 16;  // the kernel allows no more
constexpr int kVisitsMax = 100'000;

struct Chain {
    const json *pChain = nullptr;
    std::vector<const json *> rules;
};

// The destructor of the library allocates memory for nested values, and cannot report a failure.
void Empty(json &value) {  // NOLINT(misc-no-recursion)
    if (value.is_structured())
        for (json &child : value)
            Empty(child);
    value.clear();
}

struct Deleter {
    void operator()(json *pValue) const {
        Empty(*pValue);
        delete pValue;
    }
};

struct Ruleset {
    std::unique_ptr<json, Deleter> root;
    std::map<Key, Chain> chains;
    Sets sets;
};

Key KeyOf(const json &object, const char *szName) {
    return {TextOf(Member(object, "family")), TextOf(Member(object, "table")),
            TextOf(Member(object, szName))};
}

bool Read(Ruleset &ruleset, const std::string &text) {
    const auto isShallow = [](int iDepth, json::parse_event_t, const json &) { return iDepth < kDepthMax; };
    ruleset.root.reset(new json(json::parse(text, isShallow, false)));
    const json &objects = Member(*ruleset.root, "nftables");
    if (!objects.is_array()) return false;
    for (const json &object : objects) {
        if (const json &chain = Member(object, "chain"); chain.is_object())
            ruleset.chains[KeyOf(chain, "name")].pChain = &chain;
        if (const json &rule = Member(object, "rule"); rule.is_object())
            ruleset.chains[KeyOf(rule, "chain")].rules.push_back(&rule);
        for (const char *szKind : {"set", "map"})
            if (const json &set = Member(object, szKind); set.is_object())
                ruleset.sets[KeyOf(set, "name")] = &Member(set, "elem");
    }
    return true;
}

// What becomes of the datagram after a rule or a chain.
enum class Next { kRule, kReturn, kDecided };

struct Walk {
    const Ruleset &ruleset;
    const Datagram &datagram;
    Judgement &judgement;
    int nVisits = 0;
};

// On the way to a verdict.
struct Step {
    const Key &chain;
    const json &rule;
    bool blCertain, blNamesPort;
    int nJumps;
};

Next Follow(Walk &walk, const Key &key, bool blCertain, bool blNamesPort, int nJumps);

void Note(Walk &walk, Rank rank, const Key &chain, uint64_t ullHandle) {
    if (rank >= walk.judgement.rank) return;
    walk.judgement.rank = rank;
    walk.judgement.place = {std::get<0>(chain), std::get<1>(chain), std::get<2>(chain), ullHandle};
}

uint64_t HandleOf(const json &rule) {
    const json &handle = Member(rule, "handle");
    return handle.is_number_unsigned() ? handle.get<uint64_t>() : 0;
}

// As deep as the limit of jumps. NOLINTBEGIN(misc-no-recursion)
Next Decide(Walk &walk, const Step &step, const json &verdict) {
    Next next = Next::kRule;
    if (verdict.contains("drop") || verdict.contains("reject")) {
        const Rank uncertain = step.blNamesPort ? Rank::kNamesPort : Rank::kPossible;
        Note(walk, step.blCertain ? Rank::kCertain : uncertain, step.chain, HandleOf(step.rule));
        next = Next::kDecided;
    } else if (verdict.contains("accept") || verdict.contains("queue")) {
        next = Next::kDecided;
    } else if (verdict.contains("return")) {
        next = Next::kReturn;
    } else {
        const bool blGoto = verdict.contains("goto");
        const json &target = Member(Member(verdict, blGoto ? "goto" : "jump"), "target");
        if (!target.is_string()) return Next::kRule;
        const Key key{std::get<0>(step.chain), std::get<1>(step.chain), TextOf(target)};
        next = Follow(walk, key, step.blCertain, step.blNamesPort, step.nJumps + 1);
        if (next != Next::kDecided) next = blGoto ? Next::kReturn : Next::kRule;
    }
    return step.blCertain ? next : Next::kRule;
}

// A table of verdicts: the elements are pairs of a value and its verdict.
Next Choose(Walk &walk, const Scope &scope, const Step &step, const json &vmap) {
    const json &key = Member(vmap, "key");
    const json &data = Member(vmap, "data");
    const json &pairs = data.is_string() ? ElementsOf(scope, TextOf(data)) : Member(data, "set");
    Next next = Next::kRule;
    for (const json &pair : pairs) {
        if (!pair.is_array() || pair.size() != 2) continue;
        const Match match = HasValue(scope, key, pair[0]);
        if (match == Match::kNo) continue;
        const Step one{step.chain, step.rule, step.blCertain && match == Match::kYes,
                       step.blNamesPort || (match == Match::kYes && IsPort(key)), step.nJumps};
        next = Decide(walk, one, pair[1]);
        if (next != Next::kRule) break;
    }
    return next;
}

Next Obey(Walk &walk, Step step) {
    const Scope scope{walk.datagram, walk.ruleset.sets, std::get<0>(step.chain), std::get<1>(step.chain)};
    for (const json &statement : Member(step.rule, "expr")) {
        if (const json &condition = Member(statement, "match"); !condition.is_null()) {
            const Match match = Meets(scope, condition);
            if (match == Match::kNo) return Next::kRule;
            if (match == Match::kMaybe) step.blCertain = false;
            if (match == Match::kYes && IsPort(Member(condition, "left"))) step.blNamesPort = true;
        }
        if (statement.contains("xt")) {
            walk.judgement.blForeign = true;
            return Next::kRule;
        }
        for (const char *szCondition : {"limit", "quota", "ct count", "set", "meter", "unknown"})
            if (statement.contains(szCondition)) step.blCertain = false;
        const json &vmap = Member(statement, "vmap");
        const Next next = vmap.is_null() ? Decide(walk, step, statement) : Choose(walk, scope, step, vmap);
        if (next != Next::kRule) return next;
    }
    return Next::kRule;
}

Next Follow(Walk &walk, const Key &key, bool blCertain, bool blNamesPort, int nJumps) {
    const auto at = walk.ruleset.chains.find(key);
    if (at == walk.ruleset.chains.end() || nJumps > kJumpsMax) return Next::kRule;
    for (const json *pRule : at->second.rules) {
        if (++walk.nVisits > kVisitsMax) {
            walk.judgement.blRead = false;
            return Next::kDecided;
        }
        const Next next = Obey(walk, {at->first, *pRule, blCertain, blNamesPort, nJumps});
        if (next != Next::kRule) return next;
    }
    return Next::kReturn;
}

// NOLINTEND(misc-no-recursion)

// Whether the datagram comes to a chain by itself.
bool IsBase(const json &chain, const Datagram &datagram) {
    const std::string family = TextOf(Member(chain, "family"));
    if (family != "ip" && family != "inet" && family != "netdev") return false;
    const std::string hook = TextOf(Member(chain, "hook"));
    if (datagram.direction == Direction::kIn ? hook != "input" && hook != "prerouting" && hook != "ingress"
                                             : hook != "output" && hook != "postrouting" && hook != "egress")
        return false;
    const json &device = Member(chain, "dev");
    if (device.is_null() || TextOf(device) == datagram.interface) return true;
    return device.is_array() && std::any_of(device.begin(), device.end(), [&datagram](const json &one) {
               return TextOf(one) == datagram.interface;
           });
}

}  // namespace

Judgement Judge(const std::string &text, const Datagram &datagram) {
    Judgement judgement;
    Ruleset ruleset;
    judgement.blRead = Read(ruleset, text);
    if (!judgement.blRead) return judgement;
    Walk walk{ruleset, datagram, judgement};
    for (const auto &[key, chain] : ruleset.chains) {
        if (chain.pChain == nullptr || !IsBase(*chain.pChain, datagram)) continue;
        if (Follow(walk, key, true, false, 0) != Next::kDecided &&
            TextOf(Member(*chain.pChain, "policy")) == "drop")
            Note(walk, Rank::kCertain, key, 0);
    }
    return judgement;
}

}  // namespace qiven::doctor::nft
