#pragma once

#include "vscsim/usbip_camera.h"

#include <array>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace vscsim {

/// The cameras that a server offers.
using UsbIpCameras = std::vector<std::unique_ptr<UsbIpCamera>>;

/// What is said on one connection, without its socket. It ends what it attached.
class UsbIpSession {
  public:
    /// @param cameras  outlive the session
    explicit UsbIpSession(const UsbIpCameras &cameras) : m_cameras(cameras) {}
    ~UsbIpSession();
    UsbIpSession(const UsbIpSession &) = delete;
    UsbIpSession &operator=(const UsbIpSession &) = delete;

    /// Takes what the client has sent; what comes while it does not listen has to wait.
    void Receive(std::span<const uint8_t> bytes, Time now);

    /// Lets the attached camera go on.
    /// @return the time at which something can change by itself
    Time Advance(Time now);

    /// The next bytes to send, in two parts, and how many of them were sent.
    std::array<std::span<const uint8_t>, 2> Unsent() const;
    bool HasUnsent() const { return !m_unsent.empty(); }
    void Sent(size_t bytes, Time now);

    /// Whether it takes more. A client that does not fetch its answers has to wait.
    bool Listens() const;

    /// Whether the connection has to be closed: all is said, the camera was unplugged, or the
    /// client sent what is no message.
    bool Over() const;

    const UsbIpCamera *Attached() const { return m_camera; }

  private:
    enum class Phase { Asking, Attached, Leaving, Broken };

    void TakeReceived(Time now);
    size_t TakeNext(std::span<const uint8_t> bytes, Time now);
    size_t Take(usbip::Incomplete, Time now);
    size_t Take(usbip::Garbage, Time now);
    size_t Take(const usbip::ListRequest &request, Time now);
    size_t Take(const usbip::AttachRequest &request, Time now);
    size_t Take(const usbip::Submit &submit, Time now);
    size_t Take(const usbip::Unlink &unlink, Time now);
    void CollectReplies();
    void Send(UsbIpCamera::Reply reply);

    const UsbIpCameras &m_cameras;
    Phase m_phase = Phase::Asking;
    UsbIpCamera *m_camera = nullptr;
    std::vector<uint8_t> m_received; // of a message that is not complete, or has to wait
    std::deque<UsbIpCamera::Reply> m_unsent;
    size_t m_sentOfFirst = 0;
    size_t m_unsentMemory = 0;
};

} // namespace vscsim
