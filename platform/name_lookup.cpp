// Host stand-in for the platform's host-name look-up (IPv4 only, like the gateway's).
#include "korvex_utils.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <sys/socket.h>

#include <cstring>

extern "C" int chainX_nslookup(const char *host, char *addr, size_t addr_len) {
    if (host == nullptr || *host == '\0' || addr == nullptr || addr_len < INET_ADDRSTRLEN) return -1;
    addrinfo hints;
    std::memset(&hints, 0, sizeof hints);
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo *found = nullptr;
    if (getaddrinfo(host, nullptr, &hints, &found) != 0 || found == nullptr) return -1;
    const auto *in = reinterpret_cast<const sockaddr_in *>(found->ai_addr);
    const char *text = inet_ntop(AF_INET, &in->sin_addr, addr, static_cast<socklen_t>(addr_len));
    freeaddrinfo(found);
    return text != nullptr ? 0 : -1;
}
