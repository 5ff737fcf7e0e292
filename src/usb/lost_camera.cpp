#include "usb/lost_camera.h"

#include <algorithm>
#include <utility>

namespace vsccam {

namespace {

template <class Range> bool Contains(const Range &ports, const PortPath &port)
{
    return std::ranges::find(ports, port) != std::end(ports);
}

} // namespace

void LostCamera::Saw(std::vector<PortPath> ports)
{
    m_taken = std::move(ports);
    m_seenAt = Clock::now();
    m_newcomer.reset();
}

bool LostCamera::SawOthersLately() const
{
    return m_seenAt && Clock::now() - *m_seenAt < kSightingLasts;
}

std::optional<size_t> LostCamera::Find(std::span<const PortPath> devices,
                                       const std::function<bool(size_t)> &isInUse)
{
    const std::optional<PortPath> before = std::exchange(m_newcomer, std::nullopt);
    const auto own = std::ranges::find(devices, m_port);
    if (own != devices.end())
        return static_cast<size_t>(own - devices.begin());
    if (!m_seenAt)
        return std::nullopt;
    const std::optional<size_t> newcomer = OnlyNewcomer(devices, isInUse);
    if (!newcomer)
        return std::nullopt;
    m_newcomer = devices[*newcomer];
    if (before != m_newcomer)
        m_newcomerSince = Clock::now();
    return Clock::now() - m_newcomerSince >= kSettleTime ? newcomer : std::nullopt;
}

std::optional<size_t> LostCamera::OnlyNewcomer(std::span<const PortPath> devices,
                                               const std::function<bool(size_t)> &isInUse) const
{
    std::optional<size_t> only;
    for (size_t i = 0; i < devices.size(); ++i) {
        if (devices[i].depth == 0 || Contains(m_taken, devices[i]) || isInUse(i))
            continue;
        if (only)
            return std::nullopt;
        only = i;
    }
    return only;
}

} // namespace vsccam
