#include "camera/fx3_controller.h"

#include <cmath>

namespace vscsim {
namespace {

constexpr double kKelvin = 273.15;

/// The chips send 12 bits in two bytes, the low four in the upper half of the first.
std::vector<uint8_t> TwelveBits(int value)
{
    return {static_cast<uint8_t>((value & 0x0F) << 4), static_cast<uint8_t>(value >> 4 & 0xFF)};
}

/// NTC of 10 kOhm at 25 degrees under a 10 kOhm resistor, on a scale of 256.
int ThermistorReading(double celsius)
{
    constexpr double kBeta = 3900;
    const double kiloOhm =
        10.0 * std::exp(kBeta * (1.0 / (celsius + kKelvin) - 1.0 / (25.0 + kKelvin)));
    return static_cast<int>(std::lround(256.0 * kiloOhm / (kiloOhm + 10.0)));
}

/// The halves of an address in memory, the low one first.
uint32_t RamAddress(const ControlRequest &request)
{
    return static_cast<uint32_t>(request.index) << 16 | request.value;
}

/// Which device on the I2C bus, and a place in it.
size_t EepromAddress(const ControlRequest &request)
{
    return static_cast<size_t>(request.value) << 16 | request.index;
}

} // namespace

const Controller::Request<Fx3Controller> Fx3Controller::kRequests[] = {
    {0xBD, false, &Fx3Controller::WriteFpga},
    {0xBC, true, &Fx3Controller::ReadFpga},
    {0xBE, false, &Fx3Controller::SwitchWideBus},
    {0xB4, true, &Fx3Controller::HostSpeed},
    {0xB2, false, &Fx3Controller::DriveCooler},
    {0xB3, true, &Fx3Controller::SensorTemperature},
    {0xB5, false, &Fx3Controller::SetTransferCount},
    {0xC7, true, &Fx3Controller::Thermistor},
    {0xC3, true, &Fx3Controller::ReadFlash},
    {0xC2, false, &Fx3Controller::ProgramFlash},
    {0xC4, false, &Fx3Controller::EraseFlash},
    {0xC4, true, &Fx3Controller::PollFlash},
    {0xA0, false, &Fx3Controller::LoadRam},
    {0xA0, true, &Fx3Controller::ReadRam},
    {0xBA, false, &Fx3Controller::WriteEeprom},
    {0xBB, true, &Fx3Controller::ReadEeprom},
};

std::optional<ControlReply> Fx3Controller::AnswerOwn(const ControlRequest &request, Time now)
{
    return AnswerFrom<Fx3Controller>(kRequests, *this, request, now);
}

ControlReply Fx3Controller::WriteFpga(const ControlRequest &request, Time now)
{
    if (request.value >= Fpga::kRegisters)
        return Stalled();
    m_board.fpga.Write(LowByte(request.value), request.index);
    m_board.climate.SetFan(m_board.fpga.FanOn(), now);
    if (m_board.fpga.InReset())
        m_board.sensorClock = false;
    return Done();
}

ControlReply Fx3Controller::ReadFpga(const ControlRequest &request, Time)
{
    if (request.value >= Fpga::kRegisters)
        return Stalled();
    return Data({LowByte(m_board.fpga.Read(LowByte(request.value)))});
}

ControlReply Fx3Controller::SwitchWideBus(const ControlRequest &request, Time)
{
    m_board.wideDataBus = request.value != 0;
    return Done();
}

ControlReply Fx3Controller::HostSpeed(const ControlRequest &, Time)
{
    return Data({static_cast<uint8_t>(m_board.link == LinkSpeed::Super ? 1 : 0)});
}

ControlReply Fx3Controller::DriveCooler(const ControlRequest &request, Time now)
{
    m_board.climate.SetDriveCode(request.value, now);
    return Done();
}

ControlReply Fx3Controller::SensorTemperature(const ControlRequest &, Time now)
{
    constexpr double kStepsPerDegree = 16;
    return Data(
        TwelveBits(static_cast<int>(std::lround(m_board.climate.Celsius(now) * kStepsPerDegree))));
}

/// The simulated controller needs none.
ControlReply Fx3Controller::SetTransferCount(const ControlRequest & /*request*/, Time)
{
    return Done();
}

ControlReply Fx3Controller::Thermistor(const ControlRequest &, Time now)
{
    return Data(TwelveBits(ThermistorReading(m_board.climate.Celsius(now))));
}

ControlReply Fx3Controller::ReadFlash(const ControlRequest &request, Time now)
{
    std::vector<uint8_t> bytes(request.length);
    if (m_board.wideDataBus || !m_board.flash.Read(request.index, bytes, now))
        return Stalled();
    return Data(std::move(bytes));
}

ControlReply Fx3Controller::ProgramFlash(const ControlRequest &request, Time now)
{
    return DoneIf(!m_board.wideDataBus && m_board.flash.Program(request.index, request.data, now));
}

ControlReply Fx3Controller::EraseFlash(const ControlRequest &request, Time now)
{
    return DoneIf(!m_board.wideDataBus && request.value == 1 &&
                  m_board.flash.Erase(request.index, now));
}

ControlReply Fx3Controller::PollFlash(const ControlRequest &, Time now)
{
    if (m_board.wideDataBus)
        return Stalled();
    return Data({static_cast<uint8_t>(m_board.flash.IsBusy(now) ? 1 : 0)});
}

/// A load without bytes is the jump to the program.
ControlReply Fx3Controller::LoadRam(const ControlRequest &request, Time)
{
    if (request.data.empty())
        m_programEntry = RamAddress(request);
    m_ram.Write(RamAddress(request), request.data);
    return Done();
}

ControlReply Fx3Controller::ReadRam(const ControlRequest &request, Time)
{
    return Data(m_ram.Read(RamAddress(request), request.length));
}

ControlReply Fx3Controller::WriteEeprom(const ControlRequest &request, Time)
{
    return DoneIf(m_board.eeprom.Write(EepromAddress(request), request.data));
}

ControlReply Fx3Controller::ReadEeprom(const ControlRequest &request, Time)
{
    std::vector<uint8_t> bytes(request.length);
    if (!m_board.eeprom.Read(EepromAddress(request), bytes))
        return Stalled();
    return Data(std::move(bytes));
}

} // namespace vscsim
