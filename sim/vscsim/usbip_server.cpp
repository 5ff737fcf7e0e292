#include "vscsim/usbip_server.h"

#include <fmt/format.h>
#include <netdb.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <new>
#include <stdexcept>

namespace vscsim {
namespace {

using namespace std::chrono_literals;

constexpr size_t kMostConnections = 64;
constexpr size_t kReadBytes = size_t{64} << 10;
constexpr Time kLongestQuestion = 10s; // until a client has attached a camera or is gone
constexpr Time kPause = 100ms;         // before a connection is tried again that could not be had

Time Now()
{
    return std::chrono::steady_clock::now().time_since_epoch();
}

struct FreeAddresses {
    void operator()(addrinfo *addresses) const { freeaddrinfo(addresses); }
};
using Addresses = std::unique_ptr<addrinfo, FreeAddresses>;

Addresses Resolve(const std::string &address, uint16_t port)
{
    addrinfo wanted = {};
    wanted.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
    wanted.ai_socktype = SOCK_STREAM;
    addrinfo *found = nullptr;
    const int error = getaddrinfo(address.c_str(), std::to_string(port).c_str(), &wanted, &found);
    if (error != 0)
        throw std::runtime_error(
            fmt::format("{} is no address of this machine: {}; see `ip address`", address,
                        gai_strerror(error)));
    return Addresses(found);
}

const char *RemedyFor(int error)
{
    switch (error) {
    case EADDRINUSE:
        return "; end the server that has this port, or choose another with --port";
    case EADDRNOTAVAIL:
        return "; see `ip address` for those of this machine";
    case EACCES:
        return "; choose a port from 1024 on with --port";
    default:
        return "";
    }
}

void SetOption(int socket, int level, int option, int value)
{
    (void)setsockopt(socket, level, option, &value, sizeof value); // it works without, if less well
}

OwnedFd Listen(const std::string &address, uint16_t port)
{
    const Addresses addresses = Resolve(address, port);
    OwnedFd listener(socket(addresses->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    SetOption(listener.Get(), SOL_SOCKET, SO_REUSEADDR, 1);
    constexpr int kBacklog = 16;
    if (listener.Get() < 0 ||
        bind(listener.Get(), addresses->ai_addr, addresses->ai_addrlen) != 0 ||
        listen(listener.Get(), kBacklog) != 0)
        throw std::runtime_error(fmt::format("cannot listen on {} port {}: {}{}", address, port,
                                             strerrordesc_np(errno), RemedyFor(errno)));
    return listener;
}

/// A client whose machine lost its power must not keep a camera for ever.
void NoticeWhenItVanishes(int socket)
{
    SetOption(socket, SOL_SOCKET, SO_KEEPALIVE, 1);
    SetOption(socket, IPPROTO_TCP, TCP_KEEPIDLE, 10);
    SetOption(socket, IPPROTO_TCP, TCP_KEEPINTVL, 5);
    SetOption(socket, IPPROTO_TCP, TCP_KEEPCNT, 4);
    SetOption(socket, IPPROTO_TCP, TCP_USER_TIMEOUT, 30'000); // while something is to be sent
}

std::string NameOf(const sockaddr_storage &address, socklen_t length)
{
    char host[NI_MAXHOST] = "?";
    char port[NI_MAXSERV] = "?";
    (void)getnameinfo(reinterpret_cast<const sockaddr *>(&address), length, host, sizeof host, port,
                      sizeof port, NI_NUMERICHOST | NI_NUMERICSERV);
    return fmt::format("{} port {}", host, port);
}

void Tell(const UsbIpCamera &camera, const std::string &what)
{
    fmt::print(stderr, "vscsim: {} {} {}\n", camera.Described().busId, camera.Model().name, what);
}

void TellEnd(const UsbIpCamera &camera)
{
    const FrameCounts frames = camera.Frames();
    Tell(camera, fmt::format("{}; frames: {} made, {} sent, {} thrown away",
                             camera.Gone() ? "unplugged" : "detached", frames.produced, frames.sent,
                             frames.lost));
}

} // namespace

OwnedFd::~OwnedFd()
{
    if (m_fd >= 0)
        close(m_fd);
}

UsbIpServer::UsbIpServer(UsbIpCameras cameras, const std::string &address, uint16_t port)
    : m_cameras(std::move(cameras)), m_listener(Listen(address, port)), m_buffer(kReadBytes)
{
}

uint16_t UsbIpServer::Port() const
{
    sockaddr_storage address = {};
    socklen_t length = sizeof address;
    if (getsockname(m_listener.Get(), reinterpret_cast<sockaddr *>(&address), &length) != 0)
        return 0;
    // The port is at the same place in the addresses of both families.
    return ntohs(reinterpret_cast<const sockaddr_in &>(address).sin_port);
}

void UsbIpServer::Run(int end)
{
    for (;;) {
        const Time now = Now();
        const Time wake = Advance(now);
        CloseFinished(now);
        std::vector<pollfd> watched = Watched(end, now);
        const Time wait = std::max(wake - now, Time::zero());
        static_assert(kPause < 1s); // and no wait is longer
        const timespec timeout = {.tv_sec = 0, .tv_nsec = static_cast<long>(wait.count())};
        (void)ppoll(watched.data(), watched.size(), &timeout, nullptr);
        if (watched[0].revents != 0)
            break;
        auto happened = watched.begin() + 2;
        for (Connection &connection : m_connections) {
            const short events = happened++->revents;
            if ((events & POLLOUT) != 0)
                Serve(connection, [&] { Write(connection, Now()); });
            if ((events & ~POLLOUT) != 0)
                Serve(connection, [&] { Read(connection, Now()); });
        }
        if (watched[1].revents != 0)
            Accept(Now());
    }
    for (const Connection &connection : m_connections)
        if (const UsbIpCamera *camera = connection.session.Attached())
            TellEnd(*camera);
}

/// A connection for which there is no memory ends, and its camera gives back what it has.
template <class Step> void UsbIpServer::Serve(Connection &connection, const Step &step)
try {
    if (!connection.closed)
        step();
} catch (const std::bad_alloc &) {
    fmt::print(stderr, "vscsim: too little memory to serve {}\n", connection.peer);
    connection.closed = true;
}

Time UsbIpServer::Advance(Time now)
{
    Time wake = now + kPause;
    for (Connection &connection : m_connections) {
        Serve(connection, [&] {
            wake = std::min(wake, connection.session.Advance(now));
            Write(connection, now);
        });
    }
    return wake;
}

/// The end, the listener, and the connections in their order.
std::vector<pollfd> UsbIpServer::Watched(int end, Time now) const
{
    const bool accepts = m_connections.size() < kMostConnections && now >= m_acceptsFrom;
    std::vector<pollfd> watched = {
        {.fd = end, .events = POLLIN, .revents = 0},
        {.fd = accepts ? m_listener.Get() : -1, .events = POLLIN, .revents = 0},
    };
    for (const Connection &connection : m_connections) {
        const int events = (connection.session.Listens() ? POLLIN : 0) |
                           (connection.session.HasUnsent() ? POLLOUT : 0);
        watched.push_back(
            {.fd = connection.socket.Get(), .events = static_cast<short>(events), .revents = 0});
    }
    return watched;
}

void UsbIpServer::Accept(Time now)
{
    sockaddr_storage address = {};
    socklen_t length = sizeof address;
    OwnedFd socket(accept4(m_listener.Get(), reinterpret_cast<sockaddr *>(&address), &length,
                           SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (socket.Get() < 0) {
        m_acceptsFrom = now + kPause;
        return;
    }
    SetOption(socket.Get(), IPPROTO_TCP, TCP_NODELAY, 1);
    NoticeWhenItVanishes(socket.Get());
    m_connections.emplace_back(std::move(socket), NameOf(address, length), now, m_cameras);
}

void UsbIpServer::Read(Connection &connection, Time now)
{
    const ssize_t bytes = recv(connection.socket.Get(), m_buffer.data(), m_buffer.size(), 0);
    if (bytes <= 0) {
        connection.closed = bytes == 0 || errno != EAGAIN;
        return;
    }
    UsbIpSession &session = connection.session;
    const bool before = session.Attached();
    session.Receive(std::span(m_buffer).first(static_cast<size_t>(bytes)), now);
    if (session.Attached() && !before)
        Tell(*session.Attached(), "attached by " + connection.peer);
    Write(connection, now);
}

void UsbIpServer::Write(Connection &connection, Time now)
{
    UsbIpSession &session = connection.session;
    while (session.HasUnsent()) {
        iovec parts[2];
        std::ranges::transform(session.Unsent(), parts, [](std::span<const uint8_t> part) {
            return iovec{.iov_base = const_cast<uint8_t *>(part.data()), .iov_len = part.size()};
        });
        msghdr message = {};
        message.msg_iov = parts;
        message.msg_iovlen = std::size(parts);
        const ssize_t sent = sendmsg(connection.socket.Get(), &message, MSG_NOSIGNAL);
        if (sent < 0) {
            connection.closed |= errno != EAGAIN;
            return;
        }
        session.Sent(static_cast<size_t>(sent), now);
    }
}

void UsbIpServer::CloseFinished(Time now)
{
    std::erase_if(m_connections, [now](const Connection &connection) {
        const UsbIpCamera *const camera = connection.session.Attached();
        const bool late = !camera && now - connection.acceptedAt >= kLongestQuestion;
        const bool ends = connection.closed || connection.session.Over() || late;
        if (ends && camera)
            TellEnd(*camera);
        return ends;
    });
}

} // namespace vscsim
