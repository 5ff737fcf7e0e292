#include "camera/fpga.h"

namespace vscsim {
namespace {

constexpr uint8_t kControl = 0;
constexpr uint8_t kHold = 1;        // 1 collects writes
constexpr uint8_t kFirstColumn = 2; // 2 registers each
constexpr uint8_t kOutputWidth = 4;
constexpr uint8_t kOutputHeight = 8;
constexpr uint8_t kFormat = 10;
constexpr uint8_t kGate = 11;
constexpr uint8_t kFrameLines = 16; // 3 registers
constexpr uint8_t kLineClocks = 19; // 2 registers
constexpr uint8_t kFan = 25;
constexpr uint8_t kVersion = 29; // 3 registers

// Of the control register: 0x21 and 0xE1 run, 0x31 and 0xF1 stop, 0x30 waits, 0 is reset.
constexpr uint16_t kRun = 0x01;
constexpr uint16_t kStop = 0x10;
constexpr uint16_t kLongExposure = 0xC0;

// Of the format register.
constexpr uint16_t kInput12Bits = 0x01;
constexpr uint16_t kOutput16Bits = 0x10;

constexpr uint16_t kFanOff = 0x80;

/// Switches are no settings of a frame: they act while others are held.
bool IsSwitch(uint8_t number)
{
    return number == kControl || number == kHold || number == kGate || number == kFan;
}

bool IsReadOnly(uint8_t number)
{
    return number >= kVersion && number < kVersion + 3;
}

} // namespace

Fpga::Fpga() : m_registers(kRegisters)
{
    m_registers.WriteThrough(kControl, 0x30);
    m_registers.WriteThrough(kFan, kFanOff);
    // Version 2.1.3.0.5; nobody knows what real cameras say.
    m_registers.WriteThrough(kVersion, 0x02);
    m_registers.WriteThrough(kVersion + 1, 0x13);
    m_registers.WriteThrough(kVersion + 2, 0x05);
}

void Fpga::Write(uint8_t number, uint16_t value)
{
    if (IsReadOnly(number))
        return;
    if (IsSwitch(number))
        m_registers.WriteThrough(number, value);
    else
        m_registers.Write(number, value);
    if (number == kHold)
        m_registers.Hold((value & 1) != 0);
}

uint16_t Fpga::Read(uint8_t number) const
{
    return m_registers.Written(number);
}

bool Fpga::InReset() const
{
    return m_registers.Acting(kControl) == 0;
}

bool Fpga::Running() const
{
    return (m_registers.Acting(kControl) & (kRun | kStop)) == kRun;
}

bool Fpga::LongExposure() const
{
    return (m_registers.Acting(kControl) & kLongExposure) == kLongExposure;
}

bool Fpga::GateOpen() const
{
    return (m_registers.Acting(kGate) & 1) != 0;
}

bool Fpga::FanOn() const
{
    return (m_registers.Acting(kFan) & kFanOff) == 0;
}

int Fpga::FirstColumn() const
{
    return static_cast<int>(m_registers.Acting(kFirstColumn, 2));
}

int Fpga::OutputWidth() const
{
    return static_cast<int>(m_registers.Acting(kOutputWidth, 2));
}

int Fpga::OutputHeight() const
{
    return static_cast<int>(m_registers.Acting(kOutputHeight, 2));
}

bool Fpga::Output16Bits() const
{
    return (m_registers.Acting(kFormat) & kOutput16Bits) != 0;
}

int Fpga::InputBits() const
{
    return (m_registers.Acting(kFormat) & kInput12Bits) != 0 ? 12 : 10;
}

uint32_t Fpga::LineClocks() const
{
    return m_registers.Acting(kLineClocks, 2);
}

uint32_t Fpga::FrameLines() const
{
    return m_registers.Acting(kFrameLines, 3);
}

} // namespace vscsim
