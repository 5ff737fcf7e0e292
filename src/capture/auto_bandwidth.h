#pragma once

#include <cstdint>

namespace vsccam {

/// The period in which a bandwidth that is automatic is lowered against drops. It begins with the
/// capture, and anew when the bandwidth is switched to automatic.
class AutoBandwidth {
  public:
    explicit AutoBandwidth(uint16_t productId);

    /// Takes note that the bandwidth is not automatic.
    void NoteOff();
    /// Whether the period lasts, by what is set now.
    bool Lasts(bool automatic);
    uint32_t SinceStartMs() const;
    /// Takes note of several bad frames in a row. @return the milliseconds since they were noted
    /// last, or since the start of the capture
    uint32_t NoteBurst();

  private:
    uint16_t m_productId;
    uint32_t m_since;
    uint32_t m_lastBurst;
};

} // namespace vsccam
