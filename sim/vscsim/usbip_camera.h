#pragma once

#include "vscsim/urb_device.h"
#include "vscsim/usbip_messages.h"

#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

namespace vscsim {

/// A simulated camera that one client at a time attaches over USB/IP. To attach it is to plug it
/// in: registers, fault plan and counts start anew (the plan goes on after a return of its own).
/// Not thread-safe.
class UsbIpCamera {
  public:
    /// @param number  from 1; its port and address on the bus follow from it
    /// @param away    how long it stays away once the fault plan has unplugged it, unless that
    ///                tells
    UsbIpCamera(const ModelFacts &model, const CameraOptions &options, uint32_t number, Time away);

    const ModelFacts &Model() const { return m_device.TheCamera().Model(); }
    const usbip::Device &Described() const { return m_described; }
    FrameCounts Frames() const { return m_device.TheCamera().Frames(); }

    /// Whether it is there; an unplugged one is not.
    bool Present(Time now) const { return now >= m_backAt; }
    bool Attached() const { return m_attached; }
    void Attach();
    void Detach();

    /// Whether it was unplugged since it was attached: the connection has to end.
    bool Gone() const { return m_gone; }

    void Take(const usbip::Submit &submit, Time now);
    void Take(const usbip::Unlink &unlink, Time now);

    /// Lets the waiting transfers go on.
    /// @return the time at which something can change by itself
    Time Advance(Time now);

    struct Reply {
        std::vector<uint8_t> head;
        std::optional<Urb> urb = {}; // what it received goes with it
    };
    std::optional<Reply> TakeReply();

  private:
    void SubmitToCamera(const usbip::Submit &submit, Time now);
    std::optional<int> ChangeState(const ControlRequest &request, Time now);
    int Configure(unsigned value, Time now);
    void Answer(uint32_t number, int status, uint32_t length = 0);
    void AnswerFinished();
    void Leave(Time now);

    UrbDevice m_device;
    usbip::Device m_described;
    Time m_away;
    Time m_backAt{};
    bool m_attached = false;
    bool m_gone = false;
    bool m_configured = false;
    bool m_askedAnew = false; // for its device descriptor since it was configured
    std::deque<Reply> m_replies;
};

} // namespace vscsim
