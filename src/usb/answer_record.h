#pragma once

#include "base/clock.h"

#include <libusb.h>

#include <chrono>

namespace vsccam {

/// A refusal is an answer.
constexpr bool GotNoAnswer(int result)
{
    return result < 0 && result != LIBUSB_ERROR_PIPE;
}

/// How the open device has answered of late. A camera that does not answer must not hold the host
/// for the sum of all time-outs: after some in a row it counts as mute for a while, in which
/// requests fail at once.
///
/// Plain values without a lock: the section of the control transfers guards them.
class AnswerRecord {
  public:
    /// A control transfer ended with this libusb result.
    void Note(int result)
    {
        m_gone = m_gone || result == LIBUSB_ERROR_NO_DEVICE;
        m_missedInRow = result == LIBUSB_ERROR_TIMEOUT ? m_missedInRow + 1 : 0;
        if (m_missedInRow >= kMuteAfterTimeouts)
            m_muteUntil = Clock::now() + kMuteTime;
        else if (!GotNoAnswer(result))
            m_muteUntil = {};
    }

    /// Whether a request has told that the device is gone.
    bool IsGone() const { return m_gone; }
    bool IsMute() const { return m_muteUntil > Clock::now(); }
    /// Whether the last request was left without an answer.
    bool IsInDoubt() const { return m_missedInRow > 0 || IsMute(); }

  private:
    static constexpr int kMuteAfterTimeouts = 3;
    static constexpr std::chrono::seconds kMuteTime{1};

    bool m_gone = false;
    int m_missedInRow = 0;
    Clock::time_point m_muteUntil{};
};

} // namespace vsccam
