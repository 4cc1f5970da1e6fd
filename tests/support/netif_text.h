// Interface records as text, so that a failed comparison shows what differs.
#pragma once

#include <qiven/iface.h>
#include <arpa/inet.h>

#include <cstdio>
#include <string>

inline std::string Dotted(uint32_t ulAddr) {
    return inet_ntoa(in_addr{ulAddr});
}

// "name mac address mask broadcast active"
inline std::string FromKernel(const QIVEN_NETIF &netIf) {
    std::string text = netIf.szIfName;
    for (size_t i = 0; i < sizeof netIf.rgMac; ++i) {
        char szByte[8];
        snprintf(szByte, sizeof szByte, "%c%02x", i == 0 ? ' ' : ':', netIf.rgMac[i]);
        text += szByte;
    }
    return text + ' ' + Dotted(netIf.ulIP) + ' ' + Dotted(netIf.ulMask) + ' ' + Dotted(netIf.ulBroadCast) +
           ' ' + std::to_string(netIf.blActive);
}

// "static gateway dns gulDNS"
inline std::string FromFiles(const QIVEN_NETIF &netIf) {
    return std::to_string(netIf.blStatic) + ' ' + Dotted(netIf.ulGateway) + ' ' + Dotted(netIf.ulDNS) + ' ' +
           Dotted(gulDNS);
}
