// The mapping of numbered cards to interfaces.
#include <tavonetsdk.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support/sandbox.h"

namespace {

// For each card "address", "no card" or "error".
std::vector<std::string> Cards(int nCards) {
    std::vector<std::string> cards;
    for (int i = 0; i < nCards; ++i) {
        TAVO_NET_CARD card{};
        const int iResult = TAVONetGetCard1(i, 0, &card);
        cards.push_back(iResult > 0 ? card.szAddr : iResult == 0 ? "no card" : "error");
        EXPECT_TRUE(iResult > 0 || card.szAddr[0] == '\0');
    }
    return cards;
}

TEST(Cards, NumbersAreThoseOfTheNames) {
    sandbox::Enter();
    sandbox::AddEthernet("eth3", "02:00:00:00:00:03", "10.0.0.3/24");
    sandbox::AddEthernet("other", "02:00:00:00:00:09", "10.0.0.9/24");
    sandbox::AddEthernet("eth0", "02:00:00:00:00:01", "10.0.0.1/24");
    sandbox::AddEthernet("eth1", "02:00:00:00:00:02");
    sandbox::Run("ip address add 10.0.0.10/24 dev eth0");  // of several the first counts
    EXPECT_EQ((std::vector<std::string>{"10.0.0.1", "error", "no card", "10.0.0.3", "no card"}), Cards(5));
}

TEST(Cards, WithoutSuchNamesUsableOnesAreCounted) {
    sandbox::Enter();
    EXPECT_EQ((std::vector<std::string>{"no card", "no card"}), Cards(2));  // loopback is not a card
    sandbox::AddEthernet("wan", "02:00:00:00:00:01", "10.0.0.1/24");
    sandbox::AddEthernet("bare", "02:00:00:00:00:02");
    sandbox::AddEthernet("ethernet", "02:00:00:00:00:03", "10.0.0.3/24");
    sandbox::AddEthernet("idle", "02:00:00:00:00:04", "10.0.0.4/24");
    sandbox::AddEthernet("eth", "02:00:00:00:00:05", "10.0.0.5/24");
    sandbox::Run("ip link set idle down");
    EXPECT_EQ((std::vector<std::string>{"10.0.0.1", "10.0.0.3", "10.0.0.5", "no card"}), Cards(4));
}

TEST(Cards, BadArguments) {
    TAVO_NET_CARD card{};
    EXPECT_EQ(-1, TAVONetGetCard1(-1, 0, &card));
    EXPECT_EQ(-1, TAVONetGetCard1(0, 0, nullptr));
}

}  // namespace
