// Rulesets that no kernel gives: what cannot be read is never a verdict, and nothing takes long.
#include <gtest/gtest.h>

#include <string>

#include "doctor/iptables_rules.h"
#include "doctor/nft_rules.h"

namespace {

using qiven::doctor::Datagram;
using qiven::doctor::Direction;
using qiven::doctor::nft::Judge;
using qiven::doctor::nft::Judgement;
using qiven::doctor::nft::Rank;

const Datagram kIn{Direction::kIn, "eth0", 0x0A090001};

std::string Objects(const std::string &objects) {
    return R"({"nftables":[{"chain":{"family":"ip","table":"t","name":"c","hook":"input"}},)" + objects +
           "]}";
}

std::string Rule(const std::string &chain, const std::string &statements) {
    return R"({"rule":{"family":"ip","table":"t","chain":")" + chain + R"(","handle":7,"expr":[)" +
           statements + "]}}";
}

std::string Repeat(const std::string &text, size_t n) {
    std::string all;
    for (size_t i = 0; i < n; ++i)
        all += text;
    return all;
}

// Each chain jumps to the next one many times.
std::string Labyrinth() {
    std::string rules = Rule("c", R"({"jump":{"target":"0"}})");
    for (int i = 0; i < 12; ++i)
        rules += "," + Rule(std::to_string(i),
                            Repeat(R"({"jump":{"target":")" + std::to_string(i + 1) + "\"}},", 9) +
                                R"({"counter":null})");
    return rules;
}

TEST(NftRules, JudgesOddRulesets) {
    const std::string drop = R"({"drop":null})";
    const struct {
        std::string text;
        bool blRead;
        Rank rank;
    } rows[] = {
        {Objects(Rule("c", drop)), true, Rank::kCertain},
        {"", false, Rank::kNone},
        {Objects(Rule("c", drop)).substr(0, 150), false, Rank::kNone},
        {"[" + drop + "]", false, Rank::kNone},
        {R"({"nftables":{"rule":1}})", false, Rank::kNone},
        {Objects("1,null,[],{},\"rule\""), true, Rank::kNone},
        {Objects(R"({"rule":[1]},{"chain":7},{"set":{"elem":{}}})"), true, Rank::kNone},
        {Objects(Rule("c", R"({"match":{"op":"==","left":[],"right":{"set":{"set":[]}}}},)" + drop)), true,
         Rank::kPossible},
        {Objects(Rule("c", R"({"match":{"op":"==","left":{"payload":{"protocol":"udp","field":"dport"}},)"
                           R"("right":{"range":[1,-1]}}},)" +
                               drop)),
         true, Rank::kPossible},
        {Objects(Rule("c", R"({"match":{"op":"==","left":{"payload":{"protocol":"ip","field":"saddr"}},)"
                           R"("right":{"prefix":{"addr":"10.0.0.0","len":18446744073709551615}}}},)" +
                               drop)),
         true, Rank::kPossible},
        {Objects(Rule("c", R"({"vmap":{"key":{"meta":{"key":"iif"}},"data":"@"}},{"vmap":[]})")), true,
         Rank::kNone},
        {Objects(Rule("c", R"({"jump":{"target":"c"}},)" + drop)), true, Rank::kCertain},
        {Objects(Rule("c", R"({"jump":{"target":"gone"}},{"goto":5})")), true, Rank::kNone},
        {Objects(Rule("c", R"({"xt":{"type":"match","name":"u32"}},)" + drop)), true, Rank::kNone},
        {Objects(R"({"set":{"family":"ip","table":"t","name":"s","elem":["@s"]}},)" +
                 Rule("c", R"({"match":{"op":"==","left":{"meta":{"key":"iif"}},"right":"@s"}},)" + drop)),
         true, Rank::kPossible},
        {Objects(Rule("other", drop)), true, Rank::kNone},
        {Objects(Labyrinth()), false, Rank::kNone},
        {Objects(Repeat("[", 1'000'000)), false, Rank::kNone},
        {Objects(Repeat("[", 300'000) + Repeat("]", 300'000) + "," + Rule("c", drop)), true, Rank::kCertain},
    };
    for (const auto &row : rows) {
        const Judgement judgement = Judge(row.text, kIn);
        EXPECT_EQ(row.blRead, judgement.blRead) << row.text.substr(0, 300);
        EXPECT_EQ(row.rank, judgement.rank) << row.text.substr(0, 300);
    }
}

TEST(IptablesRules, JudgesOddLists) {
    const struct {
        std::vector<std::string> lines;
        Rank rank;
    } rows[] = {
        {{"*filter", ":INPUT DROP [0:0]"}, Rank::kCertain},
        {{":INPUT ACCEPT", "-A INPUT -j DROP"}, Rank::kCertain},
        {{":INPUT ACCEPT", "-A INPUT -p 17 --dport : -j DROP"}, Rank::kPossible},
        {{":INPUT ACCEPT", "-A INPUT -m comment --comment \"-j DROP \\\" -j DROP"}, Rank::kNone},
        {{":INPUT ACCEPT", "-A INPUT -p udp -m limit --limit 1/s -j DROP"}, Rank::kPossible},
        {{":INPUT ACCEPT", "-A INPUT -m comment --comment \"\" -j DROP"}, Rank::kCertain},
        {{"*", ":", "\"\"", "\"", ": ", "-A", "-A INPUT", "-A INPUT -j", "-A INPUT -p", "-A INPUT ! -j DROP",
          "\xff\x01 \""},
         Rank::kNone},
    };
    for (const auto &row : rows) {
        const Judgement judgement = Judge(qiven::doctor::iptables::ToNft(row.lines), kIn);
        EXPECT_TRUE(judgement.blRead);
        EXPECT_EQ(row.rank, judgement.rank) << row.lines.back();
    }
}

}  // namespace
