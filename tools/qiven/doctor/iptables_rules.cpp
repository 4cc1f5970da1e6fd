#include "doctor/iptables_rules.h"

#include <algorithm>
#include <array>
#include <sstream>
#include <utility>

#include "output/json.h"

namespace qiven::doctor::iptables {

namespace {

using Words = std::vector<std::string>;

// A quoted text, such as a comment or a log prefix, is one word.
Words Split(const std::string &line) {
    Words words;
    bool blQuoted = false;
    bool blInWord = false;
    for (size_t i = 0; i < line.size(); ++i) {
        const bool blBlank = !blQuoted && (line[i] == ' ' || line[i] == '\t');
        if (!blBlank && !blInWord) words.emplace_back();
        blInWord = !blBlank;
        if (line[i] == '"') {
            blQuoted = !blQuoted;
        } else if (!blBlank) {
            if (line[i] == '\\' && i + 1 < line.size()) ++i;
            words.back() += line[i];
        }
    }
    return words;
}

json::Node One(const char *szName, json::Node value) {
    json::Node object = json::Object();
    json::Set(object, szName, std::move(value));
    return object;
}

json::Node Text(const std::string &text) {
    return json::Of(output::Value(text));
}

json::Node Two(const char *szFirst, const std::string &first, const char *szSecond,
               const std::string &second) {
    json::Node object = One(szFirst, Text(first));
    json::Set(object, szSecond, Text(second));
    return object;
}

json::Node Meta(const char *szKey) {
    return One("meta", One("key", Text(szKey)));
}

json::Node Payload(const char *szProtocol, const char *szField) {
    return One("payload", Two("protocol", szProtocol, "field", szField));
}

json::Node Number(const std::string &text) {
    const bool blNumber = !text.empty() && text.size() < 10 &&
                          std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
    return blNumber ? json::Of(output::Value(uint64_t{std::stoul(text)})) : Text(text);
}

json::Node Lower(const std::string &text) {
    std::string lower = text;
    for (char &c : lower)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return Text(lower);
}

// "eth+"
json::Node Name(const std::string &text) {
    return Text(text.ends_with('+') ? text.substr(0, text.size() - 1) + "*" : text);
}

// "7" or "7:9"
json::Node Ports(const std::string &text) {
    const size_t uColon = text.find(':');
    if (uColon == std::string::npos) return Number(text);
    json::Node range = json::Array();
    json::Append(range, Number(text.substr(0, uColon)));
    json::Append(range, Number(text.substr(uColon + 1)));
    return One("range", std::move(range));
}

// "10.0.0.0/8"
json::Node Network(const std::string &text) {
    const size_t uSlash = text.find('/');
    if (uSlash == std::string::npos) return Number(text);
    json::Node prefix = One("addr", Text(text.substr(0, uSlash)));
    json::Set(prefix, "len", Number(text.substr(uSlash + 1)));
    return One("prefix", std::move(prefix));
}

// The conditions that say something of a broadcast to the port: their words, left side and values.
struct Condition {
    std::vector<const char *> words;
    json::Node (*pfnLeft)();
    json::Node (*pfnValue)(const std::string &text);
};

const std::vector<Condition> &Conditions() {
    static const std::vector<Condition> conditions = {
        {{"-p"}, [] { return Meta("l4proto"); }, Number},
        {{"-i"}, [] { return Meta("iifname"); }, Name},
        {{"-o"}, [] { return Meta("oifname"); }, Name},
        {{"-s"}, [] { return Payload("ip", "saddr"); }, Network},
        {{"-d"}, [] { return Payload("ip", "daddr"); }, Network},
        {{"--dport", "--dports"}, [] { return Payload("th", "dport"); }, Ports},
        {{"--ctstate", "--state"}, [] { return One("ct", One("key", Text("state"))); }, Lower},
        {{"--pkt-type"}, [] { return Meta("pkttype"); }, Lower},
        {{"--dst-type"}, [] { return One("fib", Two("result", "type", "flags", "daddr")); }, Lower},
    };
    return conditions;
}

json::Node ToMatch(const Condition &condition, const std::string &values, bool blNot) {
    json::Node set = json::Array();
    std::istringstream stream(values);
    for (std::string value; std::getline(stream, value, ',');)
        json::Append(set, condition.pfnValue(value));
    json::Node match = One("op", Text(blNot ? "!=" : "=="));
    json::Set(match, "left", condition.pfnLeft());
    json::Set(match, "right", One("set", std::move(set)));
    return One("match", std::move(match));
}

json::Node ToVerdict(const std::string &target, bool blGoto) {
    static constexpr std::array kVerdicts = {"DROP", "REJECT", "ACCEPT", "RETURN", "QUEUE"};
    const auto *at = std::find(kVerdicts.begin(), kVerdicts.end(), target);
    if (at == kVerdicts.end()) return One(blGoto ? "goto" : "jump", One("target", Text(target)));
    static constexpr std::array kNames = {"drop", "reject", "accept", "return", "queue"};
    return One(kNames[static_cast<size_t>(at - kVerdicts.begin())], json::Object());
}

// "-A CHAIN CONDITION... -j TARGET OPTION..."
json::Node ToExpression(const Words &words) {
    json::Node expression = json::Array();
    bool blNot = false;
    for (size_t i = 2; i + 1 < words.size(); ++i) {
        const std::string &word = words[i];
        if (word == "-j" || word == "-g") {
            json::Append(expression, ToVerdict(words[i + 1], word == "-g"));
            break;
        }
        const auto at = std::find_if(Conditions().begin(), Conditions().end(), [&word](const Condition &one) {
            return std::find(one.words.begin(), one.words.end(), word) != one.words.end();
        });
        if (at != Conditions().end())
            json::Append(expression, ToMatch(*at, words[++i], blNot));
        else if (word == "-m" || word == "--comment")
            ++i;
        else if (word.starts_with('-'))
            json::Append(expression, One("unknown", json::Object()));
        blNot = word == "!";
    }
    return expression;
}

json::Node ToRule(const std::string &table, const Words &words, uint64_t ullLine) {
    json::Node rule = Two("family", "ip", "table", table);
    json::Set(rule, "chain", Text(words[1]));
    json::Set(rule, "handle", output::Value(ullLine));
    json::Set(rule, "expr", ToExpression(words));
    return One("rule", std::move(rule));
}

json::Node ToChain(const std::string &table, const Words &words) {
    static constexpr std::array kHooks = {"INPUT", "PREROUTING", "OUTPUT", "POSTROUTING"};
    const std::string name = words[0].substr(1);
    json::Node chain = Two("family", "ip", "table", table);
    json::Set(chain, "name", Text(name));
    if (std::find(kHooks.begin(), kHooks.end(), name) != kHooks.end()) json::Set(chain, "hook", Lower(name));
    json::Set(chain, "policy", Lower(words[1]));
    return One("chain", std::move(chain));
}

}  // namespace

std::string ToNft(const std::vector<std::string> &lines) {
    json::Node objects = json::Array();
    std::string table;
    for (size_t i = 0; i < lines.size(); ++i) {
        const Words words = Split(lines[i]);
        if (!words.empty() && words[0].starts_with('*'))
            table = words[0].substr(1);
        else if (words.size() >= 2 && words[0].starts_with(':'))
            json::Append(objects, ToChain(table, words));
        else if (words.size() >= 2 && words[0] == "-A")
            json::Append(objects, ToRule(table, words, i + 1));
    }
    return json::Text(One("nftables", std::move(objects)));
}

}  // namespace qiven::doctor::iptables
