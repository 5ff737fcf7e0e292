#include "camera/fx3_controller.h"

#include <algorithm>
#include <cmath>

namespace vscsim {
namespace {

constexpr uint8_t kFirmwareVersion = 3;
constexpr double kKelvin = 273.15;

ControlReply Done()
{
    return {};
}

ControlReply Stalled()
{
    return {.outcome = Outcome::Stall};
}

ControlReply DoneIf(bool worked)
{
    return worked ? Done() : Stalled();
}

ControlReply Data(std::vector<uint8_t> bytes)
{
    return {.data = std::move(bytes)};
}

uint8_t LowByte(int value)
{
    return static_cast<uint8_t>(value & 0xFF);
}

/// The chip sends 12 bits in two bytes, the low four in the upper half of the first.
ControlReply TwelveBits(int value)
{
    return Data({LowByte((value & 0x0F) << 4), LowByte(value >> 4)});
}

/// NTC of 10 kOhm at 25 degrees under a 10 kOhm resistor, on a scale of 256.
int ThermistorReading(double celsius)
{
    constexpr double kBeta = 3900;
    const double kiloOhm =
        10.0 * std::exp(kBeta * (1.0 / (celsius + kKelvin) - 1.0 / (25.0 + kKelvin)));
    return static_cast<int>(std::lround(256.0 * kiloOhm / (kiloOhm + 10.0)));
}

} // namespace

const Fx3Controller::Entry Fx3Controller::kRequests[] = {
    {0xB6, false, &Fx3Controller::WriteSensorByte},
    {0xB7, true, &Fx3Controller::ReadSensorByte},
    {0xA6, false, &Fx3Controller::WriteSensorWord},
    {0xA7, true, &Fx3Controller::ReadSensorWord},
    {0xBD, false, &Fx3Controller::WriteFpga},
    {0xBC, true, &Fx3Controller::ReadFpga},
    {0xBE, false, &Fx3Controller::SwitchWideBus},
    {0xAD, true, &Fx3Controller::FirmwareVersion},
    {0xB4, true, &Fx3Controller::HostSpeed},
    {0xA9, false, &Fx3Controller::StartDataPath},
    {0xAA, false, &Fx3Controller::StopDataPath},
    {0xAF, false, &Fx3Controller::StartSensorClock},
    {0xAE, false, &Fx3Controller::StopSensorClock},
    {0xB0, false, &Fx3Controller::GuideOn},
    {0xB1, false, &Fx3Controller::GuideOff},
    {0xB2, false, &Fx3Controller::DriveCooler},
    {0xB3, true, &Fx3Controller::SensorTemperature},
    {0xB5, false, &Fx3Controller::SetTransferCount},
    {0xC7, true, &Fx3Controller::Thermistor},
    {0xC3, true, &Fx3Controller::ReadFlash},
    {0xC2, false, &Fx3Controller::ProgramFlash},
    {0xC4, false, &Fx3Controller::EraseFlash},
    {0xC4, true, &Fx3Controller::PollFlash},
};

ControlReply Fx3Controller::Answer(const ControlRequest &request, Time now)
{
    const Entry *const entry = std::ranges::find_if(kRequests, [&request](const Entry &known) {
        return known.request == request.request && known.in == request.In();
    });
    if (entry == std::end(kRequests))
        return Stalled();
    ControlReply reply = (this->*entry->handler)(request, now);
    if (reply.data.size() > request.length)
        reply.data.resize(request.length);
    return reply;
}

ControlReply Fx3Controller::WriteSensorByte(const ControlRequest &request, Time)
{
    m_board.sensor->WriteByte(request.value, LowByte(request.index));
    return Done();
}

ControlReply Fx3Controller::ReadSensorByte(const ControlRequest &request, Time)
{
    return Data({m_board.sensor->ReadByte(request.value)});
}

ControlReply Fx3Controller::WriteSensorWord(const ControlRequest &request, Time)
{
    m_board.sensor->WriteWord(request.value, request.index);
    return Done();
}

ControlReply Fx3Controller::ReadSensorWord(const ControlRequest &request, Time)
{
    const uint16_t value = m_board.sensor->ReadWord(request.value);
    return Data({LowByte(value >> 8), LowByte(value)});
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

ControlReply Fx3Controller::FirmwareVersion(const ControlRequest &, Time)
{
    return Data({'V', kFirmwareVersion});
}

ControlReply Fx3Controller::HostSpeed(const ControlRequest &, Time)
{
    return Data({static_cast<uint8_t>(m_board.link == LinkSpeed::Super ? 1 : 0)});
}

ControlReply Fx3Controller::StartDataPath(const ControlRequest &, Time)
{
    m_stream.Flush();
    m_board.dataPath = true;
    return Done();
}

ControlReply Fx3Controller::StopDataPath(const ControlRequest &, Time)
{
    m_stream.Flush();
    m_board.dataPath = false;
    return Done();
}

ControlReply Fx3Controller::StartSensorClock(const ControlRequest &, Time)
{
    m_board.sensorClock = true;
    return Done();
}

ControlReply Fx3Controller::StopSensorClock(const ControlRequest &, Time)
{
    m_board.sensorClock = false;
    return Done();
}

ControlReply Fx3Controller::SwitchGuide(const ControlRequest &request, bool on, Time now)
{
    if (request.value >= GuidePort::kLines)
        return Stalled();
    m_board.guide.Switch(request.value, on, now);
    return Done();
}

ControlReply Fx3Controller::GuideOn(const ControlRequest &request, Time now)
{
    return SwitchGuide(request, true, now);
}

ControlReply Fx3Controller::GuideOff(const ControlRequest &request, Time now)
{
    return SwitchGuide(request, false, now);
}

ControlReply Fx3Controller::DriveCooler(const ControlRequest &request, Time now)
{
    m_board.climate.SetDriveCode(request.value, now);
    return Done();
}

ControlReply Fx3Controller::SensorTemperature(const ControlRequest &, Time now)
{
    constexpr double kStepsPerDegree = 16;
    return TwelveBits(
        static_cast<int>(std::lround(m_board.climate.Celsius(now) * kStepsPerDegree)));
}

ControlReply Fx3Controller::SetTransferCount(const ControlRequest &request, Time)
{
    m_board.transferCount = static_cast<uint32_t>(request.value) << 16 | request.index;
    return Done();
}

ControlReply Fx3Controller::Thermistor(const ControlRequest &, Time now)
{
    return TwelveBits(ThermistorReading(m_board.climate.Celsius(now)));
}

ControlReply Fx3Controller::ReadFlash(const ControlRequest &request, Time)
{
    std::vector<uint8_t> bytes(request.length);
    if (m_board.wideDataBus || !m_board.flash.Read(request.index, bytes))
        return Stalled();
    return Data(std::move(bytes));
}

ControlReply Fx3Controller::ProgramFlash(const ControlRequest &request, Time)
{
    return DoneIf(!m_board.wideDataBus && m_board.flash.Program(request.index, request.data));
}

ControlReply Fx3Controller::EraseFlash(const ControlRequest &request, Time)
{
    return DoneIf(!m_board.wideDataBus && request.value == 1 && m_board.flash.Erase(request.index));
}

ControlReply Fx3Controller::PollFlash(const ControlRequest &, Time)
{
    if (m_board.wideDataBus)
        return Stalled();
    return Data({static_cast<uint8_t>(m_board.flash.PollBusy() ? 1 : 0)});
}

} // namespace vscsim
