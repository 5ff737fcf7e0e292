#pragma once

#include "base/sync.h"
#include "usb/port_path.h"

#include <chrono>
#include <functional>
#include <optional>
#include <span>
#include <vector>

namespace vsccam {

/// Which device is the camera that went off the bus. A camera does not tell who it is, its port
/// does: what hangs at the camera's port is the camera, and what hangs where another one hung when
/// the camera was lost is that other one, which may have been reset or have lost its power as well.
/// Anywhere else a newcomer is the camera if it stays the only one.
///
/// Knows devices of the camera's product ID by their ports; has no USB.
class LostCamera {
  public:
    /// Newcomers that come together, on a hub that was plugged in elsewhere, have arrived by then.
    static constexpr std::chrono::milliseconds kSettleTime{1000};
    static constexpr std::chrono::milliseconds kSightingLasts{1000};

    LostCamera() = default;
    /// A camera at this port, where alone it is looked for until more is known.
    explicit LostCamera(const PortPath &port) : m_port(port) {}

    const PortPath &Port() const { return m_port; }

    /// The camera is on the bus, and there are devices at these ports, itself included.
    void Saw(std::vector<PortPath> ports);
    /// Whether that tells who was there if the camera goes now. A camera that falls back to another
    /// speed may be on the bus again before its loss shows: then it is no use to look.
    bool SawOthersLately() const;

    /// @param devices    that are on the bus and may be used
    /// @param isInUse    whether somebody else uses the device at an index; asked of newcomers only
    /// @return the index of the camera; nothing as long as it is not there, or is not told apart
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
