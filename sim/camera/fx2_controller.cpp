#include "camera/fx2_controller.h"

namespace vscsim {
namespace {

constexpr uint8_t kRamRequest = 0xA0;
constexpr uint16_t kProcessorControl = 0xE600; // bit 0 holds the processor in reset
constexpr size_t kRamBytes = size_t{64} << 10;

constexpr uint8_t kNewFirmware = 3; // what any image that a host loads is taken for

/// Where the pieces of the EEPROM writer go.
constexpr uint16_t kEepromWriterPieces[] = {0x0000, 0x0800};

/// Whether the controller would boot from it. It needs a header and then records, up to the one
/// that releases the processor. A record has a length, an address and so many bytes; numbers have
/// their high byte first.
bool IsBootImage(std::span<const uint8_t> image)
{
    constexpr uint8_t kLoadsProgram = 0xC2;
    constexpr size_t kHeaderBytes = 8;
    constexpr size_t kRecordHeaderBytes = 4;
    constexpr uint8_t kEnd[kRecordHeaderBytes] = {0x80, 0x01, 0xE6, 0x00};
    if (image[0] != kLoadsProgram)
        return false;
    size_t at = kHeaderBytes;
    while (at + kRecordHeaderBytes <= image.size()) {
        const auto record = image.subspan(at, kRecordHeaderBytes);
        if (std::ranges::equal(record, kEnd))
            return true;
        const size_t length = static_cast<size_t>(record[0]) << 8 | record[1];
        if (length == 0)
            return false;
        at += kRecordHeaderBytes + length;
    }
    return false;
}

} // namespace

const Controller::Request<Fx2Controller> Fx2Controller::kOfHardware[] = {
    {kRamRequest, false, &Fx2Controller::LoadRam},
    {kRamRequest, true, &Fx2Controller::ReadRam},
};

const Controller::Request<Fx2Controller> Fx2Controller::kOfCamera[] = {
    {0xA3, false, &Fx2Controller::SelectSlowClock},
    {0xA4, false, &Fx2Controller::SelectFastClock},
    {0xAB, false, &Fx2Controller::Send8Bits},
    {0xAC, false, &Fx2Controller::Send16Bits},
};

const Controller::Request<Fx2Controller> Fx2Controller::kOfEepromWriter[] = {
    {0xA9, false, &Fx2Controller::WriteEeprom},
    {0xA9, true, &Fx2Controller::ReadEeprom},
};

Fx2Controller::Fx2Controller(Board &board, FrameStream &stream) : Controller(board, stream)
{
    Boot();
}

void Fx2Controller::Boot()
{
    if (m_board.eeprom.AsDelivered()) {
        m_program = Program::Camera;
    } else if (IsBootImage(m_board.eeprom.Contents())) {
        m_program = Program::Camera;
        m_board.firmwareVersion = kNewFirmware;
    }
}

std::optional<ControlReply> Fx2Controller::AnswerOwn(const ControlRequest &request, Time now)
{
    if (auto reply = AnswerFrom<Fx2Controller>(kOfHardware, *this, request, now))
        return reply;
    if (m_held || m_program == Program::None)
        return Stalled();
    if (m_program == Program::Camera)
        return AnswerFrom<Fx2Controller>(kOfCamera, *this, request, now);
    return AnswerFrom<Fx2Controller>(kOfEepromWriter, *this, request, now).value_or(Stalled());
}

void Fx2Controller::HoldProcessor()
{
    if (m_held)
        return;
    m_held = true;
    m_loads.clear();
    StopStream();
}

void Fx2Controller::ReleaseProcessor()
{
    m_held = false;
    if (m_loads.empty())
        return; // what was there begins anew
    m_programmed = true;
    if (std::ranges::equal(m_loads, kEepromWriterPieces)) {
        m_program = Program::EepromWriter;
    } else {
        m_program = Program::Camera;
        m_board.firmwareVersion = kNewFirmware;
    }
}

ControlReply Fx2Controller::LoadRam(const ControlRequest &request, Time)
{
    if (request.value == kProcessorControl && request.data.size() == 1) {
        if ((request.data[0] & 1) != 0)
            HoldProcessor();
        else
            ReleaseProcessor();
        return Done();
    }
    if (request.data.size() > kRamBytes - request.value)
        return Stalled();
    m_ram.Write(request.value, request.data);
    if (m_held)
        m_loads.push_back(request.value);
    return Done();
}

ControlReply Fx2Controller::ReadRam(const ControlRequest &request, Time)
{
    if (request.length > kRamBytes - request.value)
        return Stalled();
    return Data(m_ram.Read(request.value, request.length));
}

ControlReply Fx2Controller::WriteEeprom(const ControlRequest &request, Time)
{
    return DoneIf(m_board.eeprom.Write(request.value, request.data));
}

ControlReply Fx2Controller::ReadEeprom(const ControlRequest &request, Time)
{
    std::vector<uint8_t> bytes(request.length);
    if (!m_board.eeprom.Read(request.value, bytes))
        return Stalled();
    return Data(std::move(bytes));
}

ControlReply Fx2Controller::SelectSlowClock(const ControlRequest &, Time)
{
    m_board.sensor->SetInputClock(24e6);
    return Done();
}

ControlReply Fx2Controller::SelectFastClock(const ControlRequest &, Time)
{
    m_board.sensor->SetInputClock(48e6);
    return Done();
}

ControlReply Fx2Controller::Send8Bits(const ControlRequest &, Time)
{
    m_board.output16Bits = false;
    return Done();
}

ControlReply Fx2Controller::Send16Bits(const ControlRequest &, Time)
{
    m_board.output16Bits = true;
    return Done();
}

} // namespace vscsim
