// Simulates hosts that answer every query at the same time, each once, in a fixed order, as fast as one
// processor can send:
//   crowd INTERFACE HOSTS BYTES one|many [MILLISECONDS]
// The hosts have one source address in total, or one each. Like `qiven answer`, it treats all queries within
// 200 ms, or within MILLISECONDS, as one. Exits at the end of standard input.
#include <qiven/packet.h>
#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "support/wire.h"

namespace {

constexpr uint16_t kPort = 9999;
constexpr size_t kBatch = 32;
constexpr uint32_t kNetwork = 0x0A090000;  // 10.9.0.0/16
constexpr size_t kChunk = 255;

using Clock = std::chrono::steady_clock;

[[noreturn]] void Fail(const char *szWhat) {
    perror(szWhat);
    exit(1);
}

uint32_t AddressOf(size_t i) {
    return htonl(kNetwork + 10 + static_cast<uint32_t>(i));
}

// Texts that fill an answer up to its size.
std::string Filling(size_t cb) {
    std::string filling;
    const auto Add = [&](int id, size_t cbMost) {
        if (filling.size() + 2 >= cb) return;
        filling += Field(id, std::string(std::min(cbMost, cb - filling.size() - 2), 'x'));
    };
    for (int i = 0; i < 6; ++i)
        Add(i == 0 ? 0x2A : 0x72, kChunk);
    for (const int id : {0x52, 0x53, 0x4A})
        Add(id, kChunk);
    for (int id = 0x56; id <= 0x5B; ++id)
        Add(id, 127);
    return filling;
}

std::string Answer(size_t i, size_t cb) {
    std::array<char, 32> szName{};
    std::array<char, 32> szMac{};
    snprintf(szName.data(), szName.size(), "host%05zu", i);
    snprintf(szMac.data(), szMac.size(), "02:00:00:00:%02zx:%02zx", i >> 8 & 255, i & 255);
    const uint32_t ulIP = AddressOf(i);
    const std::string head = kPlainHeader + Number(0x01, QIVEN_PKT_ANSWER) +
                             Number(0xA4, QIVEN_FIELD_A4_VQX20) + Field(0x11, szName.data()) +
                             Field(0x12, {reinterpret_cast<const char *>(&ulIP), sizeof ulIP}) +
                             Field(0x19, std::string("id-") + (szName.data() + 4)) +
                             Field(0x7C, szMac.data()) + Number(0x48, 4711) + Number(0x49, 240);
    return head + Filling(cb > head.size() ? cb - head.size() : 0);
}

int Open(const char *szInterface, bool blTransparent) {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const int iOn = 1;
    const int cbBuffer = 4 << 20;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &iOn, sizeof iOn);
    setsockopt(fd, SOL_SOCKET, SO_BROADCAST, &iOn, sizeof iOn);
    setsockopt(fd, SOL_SOCKET, SO_SNDBUFFORCE, &cbBuffer, sizeof cbBuffer);
    setsockopt(fd, SOL_SOCKET, SO_BINDTODEVICE, szInterface, static_cast<socklen_t>(strlen(szInterface)));
    if (blTransparent && setsockopt(fd, IPPROTO_IP, IP_TRANSPARENT, &iOn, sizeof iOn) != 0)
        Fail("IP_TRANSPARENT");
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(kPort);
    if (bind(fd, reinterpret_cast<const sockaddr *>(&local), sizeof local) != 0) Fail("bind");
    return fd;
}

struct Message {
    iovec vector;
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(in_pktinfo))> rgControl;
};

// All answers, prepared for sending in batches.
struct Crowd {
    std::vector<std::string> answers;
    std::vector<Message> messages;
    std::vector<mmsghdr> headers;
    sockaddr_in everybody{};
};

void Prepare(Crowd &crowd, size_t nHosts, size_t cb, bool blMany, int iInterface) {
    crowd.everybody.sin_family = AF_INET;
    crowd.everybody.sin_port = htons(kPort);
    crowd.everybody.sin_addr.s_addr = INADDR_BROADCAST;
    crowd.messages.resize(nHosts);
    crowd.headers.resize(nHosts);
    for (size_t i = 0; i < nHosts; ++i)
        crowd.answers.push_back(Answer(i, cb));
    for (size_t i = 0; i < nHosts; ++i) {
        Message &message = crowd.messages[i];
        msghdr &header = crowd.headers[i].msg_hdr;
        message.vector = {crowd.answers[i].data(), crowd.answers[i].size()};
        header.msg_name = &crowd.everybody;
        header.msg_namelen = sizeof crowd.everybody;
        header.msg_iov = &message.vector;
        header.msg_iovlen = 1;
        header.msg_control = message.rgControl.data();
        header.msg_controllen = message.rgControl.size();
        cmsghdr *pHeader = CMSG_FIRSTHDR(&header);
        pHeader->cmsg_level = IPPROTO_IP;
        pHeader->cmsg_type = IP_PKTINFO;
        pHeader->cmsg_len = CMSG_LEN(sizeof(in_pktinfo));
        in_pktinfo info{};
        info.ipi_ifindex = iInterface;
        info.ipi_spec_dst.s_addr = blMany ? AddressOf(i) : 0;
        memcpy(CMSG_DATA(pHeader), &info, sizeof info);
    }
}

void SendAll(int fd, Crowd &crowd) {
    for (size_t i = 0; i < crowd.headers.size();) {
        const auto n = static_cast<unsigned>(std::min(kBatch, crowd.headers.size() - i));
        const int nSent = sendmmsg(fd, &crowd.headers[i], n, 0);
        if (nSent < 1) Fail("sendmmsg");
        i += static_cast<size_t>(nSent);
    }
}

bool IsQuery(const unsigned char *pb, ssize_t cb) {
    constexpr std::array<unsigned char, 6> kType = {1, 4, 1, 0, 0, 0};
    return cb > 14 && memcmp(pb + 8, kType.data(), kType.size()) == 0;
}

}  // namespace

int main(int nArguments, char **rgszArgument) {
    if (nArguments < 5) return 2;
    const bool blMany = strcmp(rgszArgument[4], "many") == 0;
    const auto gap = std::chrono::milliseconds(nArguments > 5 ? atoi(rgszArgument[5]) : 200);
    const int fd = Open(rgszArgument[1], blMany);
    Crowd crowd;
    Prepare(crowd, strtoul(rgszArgument[2], nullptr, 10), strtoul(rgszArgument[3], nullptr, 10), blMany,
            static_cast<int>(if_nametoindex(rgszArgument[1])));
    puts("ready");
    fflush(stdout);
    std::array<pollfd, 2> rgReadable = {{{fd, POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}}};
    Clock::time_point next{};
    while (poll(rgReadable.data(), rgReadable.size(), -1) > 0 && rgReadable[1].revents == 0) {
        std::array<unsigned char, 9000> rgb;
        const ssize_t cb = recv(fd, rgb.data(), rgb.size(), MSG_DONTWAIT);
        if (!IsQuery(rgb.data(), cb) || Clock::now() < next) continue;
        SendAll(fd, crowd);
        next = Clock::now() + gap;
    }
    return 0;
}
