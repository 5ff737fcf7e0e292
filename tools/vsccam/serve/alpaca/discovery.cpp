#include "serve/alpaca/discovery.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>
#include <system_error>

namespace vsctool::serve {
namespace {

constexpr std::string_view kQuestion = "alpacadiscovery1";
constexpr const char *kGroup = "ff12::a1:9aca";

/// Several programs of a machine may answer.
int Open(int family, const sockaddr *address, socklen_t size)
{
    const int descriptor = socket(family, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const int on = 1;
    setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (family == AF_INET6)
        setsockopt(descriptor, IPPROTO_IPV6, IPV6_V6ONLY, &on, sizeof on);
    if (bind(descriptor, address, size) == 0)
        return descriptor;
    if (descriptor >= 0)
        close(descriptor);
    return -1;
}

int OpenIpv4(const std::string &address, uint16_t port)
{
    sockaddr_in name = {};
    name.sin_family = AF_INET;
    name.sin_port = htons(port);
    if (inet_pton(AF_INET, address.c_str(), &name.sin_addr) != 1)
        return -1;
    // Broadcasts come to sockets of all addresses only.
    if (ntohl(name.sin_addr.s_addr) >> IN_CLASSA_NSHIFT != IN_LOOPBACKNET)
        name.sin_addr.s_addr = htonl(INADDR_ANY);
    return Open(AF_INET, reinterpret_cast<const sockaddr *>(&name), sizeof name);
}

int OpenIpv6(const std::string &address, uint16_t port)
{
    sockaddr_in6 name = {};
    name.sin6_family = AF_INET6;
    name.sin6_port = htons(port);
    if (inet_pton(AF_INET6, address.c_str(), &name.sin6_addr) != 1)
        return -1;
    const bool isLoopback = IN6_IS_ADDR_LOOPBACK(&name.sin6_addr) != 0;
    if (!isLoopback)
        name.sin6_addr = in6addr_any;
    const int descriptor = Open(AF_INET6, reinterpret_cast<const sockaddr *>(&name), sizeof name);
    ipv6_mreq group = {};
    inet_pton(AF_INET6, kGroup, &group.ipv6mr_multiaddr);
    if (descriptor >= 0 && !isLoopback)
        setsockopt(descriptor, IPPROTO_IPV6, IPV6_ADD_MEMBERSHIP, &group, sizeof group);
    return descriptor;
}

void Answer(int descriptor, const std::string &answer)
{
    std::array<char, 64> question{};
    sockaddr_storage from = {};
    socklen_t size = sizeof from;
    const ssize_t length = recvfrom(descriptor, question.data(), question.size(), 0,
                                    reinterpret_cast<sockaddr *>(&from), &size);
    if (length < 0 ||
        !std::string_view(question.data(), static_cast<size_t>(length)).starts_with(kQuestion))
        return;
    // Who asked may be gone: nobody is told.
    (void)sendto(descriptor, answer.data(), answer.size(), 0,
                 reinterpret_cast<const sockaddr *>(&from), size);
}

} // namespace

Discovery::Discovery(const std::string &address, uint16_t serverPort, uint16_t port)
    : m_answer(fmt::format(R"({{"AlpacaPort":{}}})", serverPort))
{
    for (const int descriptor : {OpenIpv4(address, port), OpenIpv6(address, port),
                                 address == "::" ? OpenIpv4("0.0.0.0", port) : -1})
        if (descriptor >= 0)
            m_sockets.push_back(descriptor);
    if (m_sockets.empty())
        m_trouble = fmt::format("clients will not find this server by themselves: UDP port {}: {}",
                                port, std::generic_category().message(errno));
    m_end = eventfd(0, EFD_CLOEXEC);
    m_thread = std::thread([this] { Listen(); });
}

Discovery::~Discovery()
{
    eventfd_write(m_end, 1);
    m_thread.join();
    for (const int descriptor : m_sockets)
        close(descriptor);
    close(m_end);
}

void Discovery::Listen()
{
    std::vector<pollfd> all = {{.fd = m_end, .events = POLLIN, .revents = 0}};
    for (const int descriptor : m_sockets)
        all.push_back({.fd = descriptor, .events = POLLIN, .revents = 0});
    for (;;) {
        if (poll(all.data(), all.size(), -1) < 0 && errno != EINTR)
            return;
        if (all.front().revents != 0)
            return;
        for (const pollfd &one : all)
            if ((one.revents & POLLIN) != 0)
                Answer(one.fd, m_answer);
    }
}

} // namespace vsctool::serve
