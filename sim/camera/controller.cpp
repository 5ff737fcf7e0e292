#include "camera/controller.h"

#include "camera/fx2_controller.h"
#include "camera/fx3_controller.h"

namespace vscsim {

const Controller::Request<Controller> Controller::kRequests[] = {
    {0xB6, false, &Controller::WriteSensorByte}, {0xB7, true, &Controller::ReadSensorByte},
    {0xA6, false, &Controller::WriteSensorWord}, {0xA7, true, &Controller::ReadSensorWord},
    {0xAD, true, &Controller::FirmwareVersion},  {0xA9, false, &Controller::StartDataPath},
    {0xAA, false, &Controller::StopDataPath},    {0xAF, false, &Controller::StartSensorClock},
    {0xAE, false, &Controller::StopSensorClock}, {0xB0, false, &Controller::GuideOn},
    {0xB1, false, &Controller::GuideOff},
};

ControlReply Controller::Answer(const ControlRequest &request, Time now)
{
    std::optional<ControlReply> reply = AnswerOwn(request, now);
    if (!reply)
        reply = AnswerFrom<Controller>(kRequests, *this, request, now);
    if (!reply)
        return Stalled();
    if (reply->data.size() > request.length)
        reply->data.resize(request.length);
    return *std::move(reply);
}

ControlReply Controller::WriteSensorByte(const ControlRequest &request, Time)
{
    m_board.sensor->WriteByte(request.value, LowByte(request.index));
    return Done();
}

ControlReply Controller::ReadSensorByte(const ControlRequest &request, Time now)
{
    m_board.sensor->SetCelsius(m_board.climate.Celsius(now));
    return Data({m_board.sensor->ReadByte(request.value)});
}

ControlReply Controller::WriteSensorWord(const ControlRequest &request, Time)
{
    m_board.sensor->WriteWord(request.value, request.index);
    return Done();
}

ControlReply Controller::ReadSensorWord(const ControlRequest &request, Time now)
{
    m_board.sensor->SetCelsius(m_board.climate.Celsius(now));
    const uint16_t value = m_board.sensor->ReadWord(request.value);
    return Data({LowByte(value >> 8), LowByte(value)});
}

ControlReply Controller::FirmwareVersion(const ControlRequest &, Time)
{
    return Data({'V', m_board.firmwareVersion});
}

void Controller::StopStream()
{
    m_stream.Flush(FrameEnd::Ended);
    m_board.dataPath = false;
}

ControlReply Controller::StartDataPath(const ControlRequest &, Time)
{
    m_stream.Flush(FrameEnd::Ended);
    m_board.dataPath = true;
    return Done();
}

ControlReply Controller::StopDataPath(const ControlRequest &, Time)
{
    StopStream();
    return Done();
}

ControlReply Controller::StartSensorClock(const ControlRequest &, Time)
{
    m_board.sensorClock = true;
    return Done();
}

ControlReply Controller::StopSensorClock(const ControlRequest &, Time)
{
    m_board.sensorClock = false;
    return Done();
}

ControlReply Controller::SwitchGuide(const ControlRequest &request, bool on, Time now)
{
    if (request.value >= GuidePort::kLines)
        return Stalled();
    m_board.guided = m_board.guide.Switch(request.value, on, now);
    return Done();
}

ControlReply Controller::GuideOn(const ControlRequest &request, Time now)
{
    return SwitchGuide(request, true, now);
}

ControlReply Controller::GuideOff(const ControlRequest &request, Time now)
{
    return SwitchGuide(request, false, now);
}

std::unique_ptr<Controller> MakeController(const ModelFacts &model, Board &board,
                                           FrameStream &stream)
{
    if (model.controller == ControllerKind::Fx2)
        return std::make_unique<Fx2Controller>(board, stream);
    return std::make_unique<Fx3Controller>(board, stream);
}

} // namespace vscsim
