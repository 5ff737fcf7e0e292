#pragma once

#include "camera/board.h"
#include "camera/camera.h"
#include "camera/frame_stream.h"

namespace vscsim {

/// The USB 3.0 controller's firmware: answers the vendor requests with the parts of the board.
class Fx3Controller {
  public:
    Fx3Controller(Board &board, FrameStream &stream) : m_board(board), m_stream(stream) {}

    ControlReply Answer(const ControlRequest &request, Time now);

  private:
    using Handler = ControlReply (Fx3Controller::*)(const ControlRequest &, Time);
    struct Entry {
        uint8_t request;
        bool in;
        Handler handler;
    };
    static const Entry kRequests[];

    ControlReply WriteSensorByte(const ControlRequest &request, Time now);
    ControlReply ReadSensorByte(const ControlRequest &request, Time now);
    ControlReply WriteSensorWord(const ControlRequest &request, Time now);
    ControlReply ReadSensorWord(const ControlRequest &request, Time now);
    ControlReply WriteFpga(const ControlRequest &request, Time now);
    ControlReply ReadFpga(const ControlRequest &request, Time now);
    ControlReply SwitchWideBus(const ControlRequest &request, Time now);
    ControlReply FirmwareVersion(const ControlRequest &request, Time now);
    ControlReply HostSpeed(const ControlRequest &request, Time now);
    ControlReply StartDataPath(const ControlRequest &request, Time now);
    ControlReply StopDataPath(const ControlRequest &request, Time now);
    ControlReply StartSensorClock(const ControlRequest &request, Time now);
    ControlReply StopSensorClock(const ControlRequest &request, Time now);
    ControlReply GuideOn(const ControlRequest &request, Time now);
    ControlReply GuideOff(const ControlRequest &request, Time now);
    ControlReply DriveCooler(const ControlRequest &request, Time now);
    ControlReply SensorTemperature(const ControlRequest &request, Time now);
    ControlReply SetTransferCount(const ControlRequest &request, Time now);
    ControlReply Thermistor(const ControlRequest &request, Time now);
    ControlReply ReadFlash(const ControlRequest &request, Time now);
    ControlReply ProgramFlash(const ControlRequest &request, Time now);
    ControlReply EraseFlash(const ControlRequest &request, Time now);
    ControlReply PollFlash(const ControlRequest &request, Time now);

    ControlReply SwitchGuide(const ControlRequest &request, bool on, Time now);

    Board &m_board;
    FrameStream &m_stream;
};

} // namespace vscsim
