#include <qiven/qiven.h>
#include <tavonetsdk.h>

#include <iostream>

int main() {
    TAVO_NET_CARD card{};
    TAVONetGetCard1(0, 0, &card);
    std::cout << QIVENHeaderSize << '\n';
}
