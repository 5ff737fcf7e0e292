#pragma once

#include "vscsim/usbip_session.h"

#include <cstdint>
#include <list>
#include <string>
#include <vector>

struct pollfd;

namespace vscsim {

/// A descriptor that is closed at the end.
class OwnedFd {
  public:
    explicit OwnedFd(int fd) : m_fd(fd) {}
    OwnedFd(OwnedFd &&other) noexcept : m_fd(other.m_fd) { other.m_fd = -1; }
    OwnedFd &operator=(OwnedFd &&) = delete;
    ~OwnedFd();
    int Get() const { return m_fd; }

  private:
    int m_fd;
};

/// Offers cameras to USB/IP clients over TCP, all in the thread that calls Run.
class UsbIpServer {
  public:
    /// Listens from then on.
    /// @param port  0: a free one
    /// @throws std::runtime_error  what is in the way, and what can be done about it
    UsbIpServer(UsbIpCameras cameras, const std::string &address, uint16_t port);

    const UsbIpCameras &Cameras() const { return m_cameras; }
    uint16_t Port() const;

    /// Serves until `end` can be read.
    void Run(int end);

  private:
    struct Connection {
        Connection(OwnedFd accepted, std::string client, Time now, const UsbIpCameras &cameras)
            : socket(std::move(accepted)), peer(std::move(client)), acceptedAt(now),
              session(cameras)
        {
        }
        OwnedFd socket;
        std::string peer;
        Time acceptedAt;
        UsbIpSession session;
        bool closed = false; // by the client
    };

    template <class Step> void Serve(Connection &connection, const Step &step);
    Time Advance(Time now);
    std::vector<pollfd> Watched(int end, Time now) const;
    void Accept(Time now);
    void Read(Connection &connection, Time now);
    void Write(Connection &connection, Time now);
    void CloseFinished(Time now);

    UsbIpCameras m_cameras;
    OwnedFd m_listener;
    Time m_acceptsFrom{}; // later than now when it ran out of something
    std::vector<uint8_t> m_buffer;
    std::list<Connection> m_connections;
};

} // namespace vscsim
