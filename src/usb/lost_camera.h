#pragma once

#include "base/sync.h"
#include "usb/port_path.h"

#include <chrono>
#include <functional>
#include <optional>
#include <span>
#include <vector>

namespace vsccam {

/// Tells which device is the camera that went off the bus. Cameras have no serial number, so that
/// their ports tell them apart. The device at the camera's port is the camera. A device at a port
/// where another camera was plugged in when this one was lost is that other one: it may have been
/// reset or have lost its power as well. A newcomer anywhere else is the camera if it stays the
/// only one.
///
/// It knows the devices with the camera's product ID by their ports, and does nothing on the bus.
class LostCamera {
  public:
    /// Newcomers that come together, on a hub that was plugged in elsewhere, have arrived by then.
    static constexpr std::chrono::milliseconds kSettleTime{1000};
    static constexpr std::chrono::milliseconds kSightingLasts{1000};

    LostCamera() = default;
    /// A camera at this port. Until Saw tells more, it is looked for at this port alone.
    explicit LostCamera(const PortPath &port) : m_port(port) {}

    const PortPath &Port() const { return m_port; }

    /// The camera is on the bus, and there are devices at these ports, itself included.
    void Saw(std::vector<PortPath> ports);
    /// Whether the last Saw was so recent that it tells who was there should the camera go now. A
    /// camera that falls back to another speed may be on the bus again before anybody notices that
    /// it went: looking around only then comes too late.
    bool SawOthersLately() const;

    /// @param devices    that are on the bus and may be used
    /// @param isInUse    whether somebody else uses the device at an index; asked of newcomers only
    /// @return the index of the camera; nothing while it is not there or cannot be told apart
    std::optional<size_t> Find(std::span<const PortPath> devices,
                               const std::function<bool(size_t)> &isInUse);
    /// Whether the last search found a newcomer that has not stayed for long enough.
    bool NewcomerSettles() const { return m_newcomer.has_value(); }

  private:
    std::optional<size_t> OnlyNewcomer(std::span<const PortPath> devices,
                                       const std::function<bool(size_t)> &isInUse) const;

    PortPath m_port;
    std::vector<PortPath> m_taken; // ports, when the camera was seen last
    std::optional<Clock::time_point> m_seenAt;
    std::optional<PortPath> m_newcomer; // the only one since then
    Clock::time_point m_newcomerSince{};
};

} // namespace vsccam
