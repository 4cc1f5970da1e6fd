#include "filter.h"

#include <linux/filter.h>
#include <linux/if_packet.h>
#include <sys/socket.h>

#include <array>
#include <bit>
#include <cstring>

namespace qiven::watch {

namespace {

constexpr uint32_t kFactor = 0x9E3779B1;
constexpr unsigned kWords = 16, kWordsOfShort = 8;
constexpr size_t kPacketHeader = 8;
constexpr unsigned kTopBits = 3;
static_assert(1U << kTopBits == kSocketsMax);

// A filter of a UDP socket sees the datagram from its UDP header on.
constexpr size_t kUdpHeader = 8;
constexpr uint32_t kNetwork = static_cast<uint32_t>(SKF_NET_OFF);
constexpr uint32_t kSourceAddress = kNetwork + 12;
constexpr uint32_t kDestination = kNetwork + 16;
constexpr uint32_t kPacketType = static_cast<uint32_t>(SKF_AD_OFF + SKF_AD_PKTTYPE);
constexpr uint32_t kAccept = UINT32_MAX;

constexpr size_t kInstructions = 7 + 4 + 4 + kWords * 4 + 5;

struct Program {
    std::array<sock_filter, kInstructions> rg{};
    unsigned short n = 0;

    void Add(unsigned uCode, uint32_t ul, unsigned uTrue = 0, unsigned uFalse = 0) {
        rg[n++] = {static_cast<unsigned short>(uCode), static_cast<unsigned char>(uTrue),
                   static_cast<unsigned char>(uFalse), ul};
    }
};

bool Attach(int fd, Program &program) {
    const sock_fprog attached{program.n, program.rg.data()};
    if (setsockopt(fd, SOL_SOCKET, SO_ATTACH_FILTER, &attached, sizeof attached) != 0) return false;
    // Some kernels accept what they do not do. The length is a number of instructions.
    std::array<sock_filter, kInstructions> rgThere{};
    socklen_t nThere = kInstructions;
    return getsockopt(fd, SOL_SOCKET, SO_GET_FILTER, rgThere.data(), &nThere) == 0 && nThere == program.n &&
           memcmp(rgThere.data(), program.rg.data(), program.n * sizeof(sock_filter)) == 0;
}

// What goes to one socket only is accepted by each. Our own broadcast comes back as "loopback"; access points
// turn broadcasts into frames for one receiver.
void AcceptDirected(Program &program) {
    program.Add(BPF_LD | BPF_W | BPF_ABS, kPacketType);
    program.Add(BPF_JMP | BPF_JEQ | BPF_K, PACKET_BROADCAST, 5);
    program.Add(BPF_JMP | BPF_JEQ | BPF_K, PACKET_MULTICAST, 4);
    program.Add(BPF_JMP | BPF_JEQ | BPF_K, PACKET_LOOPBACK, 3);
    program.Add(BPF_LD | BPF_W | BPF_ABS, kDestination);
    program.Add(BPF_JMP | BPF_JEQ | BPF_K, UINT32_MAX, 1);
    program.Add(BPF_RET | BPF_K, kAccept);
}

// How many words behind the packet header are hashed. A load beyond the end would reject the datagram, and a
// look at the length for each of them would take half as long again, for every socket and broadcast.
unsigned WordsOf(size_t cbDatagram) {
    const auto HasAll = [cbDatagram](unsigned n) {
        return cbDatagram >= kPacketHeader + n * sizeof(uint32_t);
    };
    return HasAll(kWords) ? kWords : HasAll(kWordsOfShort) ? kWordsOfShort : 0;
}

// Leaves the hash in X. The last word comes first, so that a shorter datagram enters later.
void Hash(Program &program, uint32_t ulSeed) {
    program.Add(BPF_LD | BPF_W | BPF_ABS, kSourceAddress);
    program.Add(BPF_ALU | BPF_XOR | BPF_K, ulSeed);
    program.Add(BPF_ALU | BPF_MUL | BPF_K, kFactor);
    program.Add(BPF_MISC | BPF_TAX, 0);
    const auto End = [](unsigned n) {
        return static_cast<uint32_t>(kUdpHeader + kPacketHeader + n * sizeof(uint32_t));
    };
    constexpr unsigned kPerWord = 4;
    program.Add(BPF_LD | BPF_W | BPF_LEN, 0);
    program.Add(BPF_JMP | BPF_JGE | BPF_K, End(kWords), 2);
    program.Add(BPF_JMP | BPF_JGE | BPF_K, End(kWordsOfShort), 1 + (kWords - kWordsOfShort) * kPerWord);
    program.Add(BPF_JMP | BPF_JA, kWords * kPerWord);
    for (unsigned i = kWords; i-- > 0;) {
        program.Add(BPF_LD | BPF_W | BPF_ABS, End(i));
        program.Add(BPF_ALU | BPF_XOR | BPF_X, 0);
        program.Add(BPF_ALU | BPF_MUL | BPF_K, kFactor);
        program.Add(BPF_MISC | BPF_TAX, 0);
    }
}

}  // namespace

bool AttachShare(int fd, uint32_t ulSeed, unsigned uSocket) {
    Program program;
    AcceptDirected(program);
    Hash(program, ulSeed);
    program.Add(BPF_MISC | BPF_TXA, 0);
    program.Add(BPF_ALU | BPF_RSH | BPF_K, 32 - kTopBits);
    program.Add(BPF_JMP | BPF_JEQ | BPF_K, uSocket, 0, 1);
    program.Add(BPF_RET | BPF_K, kAccept);
    program.Add(BPF_RET | BPF_K, 0);
    return Attach(fd, program);
}

bool AttachNothing(int fd) {
    Program program;
    program.Add(BPF_RET | BPF_K, 0);
    return Attach(fd, program);
}

unsigned SocketOf(uint32_t ulSeed, uint32_t ulSource, const unsigned char *pbDatagram, size_t cbDatagram) {
    // Filters load words in network order.
    const auto Host = [](uint32_t ul) {
        return std::endian::native == std::endian::little ? __builtin_bswap32(ul) : ul;
    };
    uint32_t ulHash = (Host(ulSource) ^ ulSeed) * kFactor;
    for (unsigned i = WordsOf(cbDatagram); i-- > 0;) {
        uint32_t ulWord;
        memcpy(&ulWord, pbDatagram + kPacketHeader + i * sizeof ulWord, sizeof ulWord);
        ulHash = (ulHash ^ Host(ulWord)) * kFactor;
    }
    return ulHash >> (32 - kTopBits);
}

}  // namespace qiven::watch
