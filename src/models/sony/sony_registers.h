#pragma once

#include "usb/camera_fx3.h"

#include <cstdint>

/// Registers of the Sony sensors. Those whose meaning is unknown carry their address.
namespace vsccam::sony {

inline constexpr uint16_t kStandby = 0x3000; // 1 standby, 0 running
inline constexpr uint16_t kHold = 0x3001;    // 1 collects writes, 0 applies them on one frame
inline constexpr uint16_t kReg3002 = 0x3002;
inline constexpr uint16_t kAdcBits = 0x3005; // 0: 10 bits, 1: 12
inline constexpr uint16_t kWindowMode = 0x3006;
inline constexpr uint16_t kReg3007 = 0x3007;
inline constexpr uint16_t kReadoutMode = 0x3009; // low nibble: rate; bit 4: high conversion gain
inline constexpr uint16_t kBlackLevel = 0x300A;  // two bytes
inline constexpr uint16_t kGain = 0x3014;
inline constexpr uint16_t kShutter = 0x3020; // SSH1, three bytes
inline constexpr uint16_t kReg303A = 0x303A;
inline constexpr uint16_t kWindowTop = 0x303C; // two bytes each
inline constexpr uint16_t kWindowHeight = 0x303E;
inline constexpr uint16_t kWindowLeft = 0x3040;
inline constexpr uint16_t kWindowWidth = 0x3042;
inline constexpr uint16_t kOutputBits = 0x3046; // bit 0: 12 bits, not 10; bits 4 to 7 stay set
inline constexpr uint16_t kReg304B = 0x304B;
inline constexpr uint16_t kReg305C = 0x305C; // with the three behind it
inline constexpr uint16_t kReg3129 = 0x3129;
inline constexpr uint16_t kReg317C = 0x317C;
inline constexpr uint16_t kReg31EC = 0x31EC;

inline constexpr uint8_t kHighConversionGain = 0x10; // of kReadoutMode
inline constexpr uint8_t kBin2x2 = 0x22;             // of kWindowMode

/// Writes a register. The camera takes note of a write that got lost, and is then programmed again.
inline void Write(CCameraFX3 &camera, uint16_t address, int value)
{
    (void)camera.WriteSONYREG(address, static_cast<uint8_t>(value));
}

/// Sensor writes between construction and destruction take effect on one frame.
class Hold {
  public:
    explicit Hold(CCameraFX3 &camera) : m_camera(camera) { Write(m_camera, kHold, 1); }
    ~Hold() { Write(m_camera, kHold, 0); }
    Hold(const Hold &) = delete;
    Hold &operator=(const Hold &) = delete;

  private:
    CCameraFX3 &m_camera;
};

} // namespace vsccam::sony
