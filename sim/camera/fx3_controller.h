#pragma once

#include "camera/controller.h"

namespace vscsim {

/// The USB 3.0 controller: it reaches the sensor through an FPGA, and carries the temperature
/// converters, the cooler and the flash. The boot loader's requests stay with its firmware.
class Fx3Controller final : public Controller {
  public:
    using Controller::Controller;

    std::optional<uint32_t> ProgramEntry() const override { return m_programEntry; }

  private:
    static const Request<Fx3Controller> kRequests[];

    std::optional<ControlReply> AnswerOwn(const ControlRequest &request, Time now) override;

    ControlReply WriteFpga(const ControlRequest &request, Time now);
    ControlReply ReadFpga(const ControlRequest &request, Time now);
    ControlReply SwitchWideBus(const ControlRequest &request, Time now);
    ControlReply HostSpeed(const ControlRequest &request, Time now);
    ControlReply DriveCooler(const ControlRequest &request, Time now);
    ControlReply SensorTemperature(const ControlRequest &request, Time now);
    ControlReply SetTransferCount(const ControlRequest &request, Time now);
    ControlReply Thermistor(const ControlRequest &request, Time now);
    ControlReply ReadFlash(const ControlRequest &request, Time now);
    ControlReply ProgramFlash(const ControlRequest &request, Time now);
    ControlReply EraseFlash(const ControlRequest &request, Time now);
    ControlReply PollFlash(const ControlRequest &request, Time now);
    ControlReply LoadRam(const ControlRequest &request, Time now);
    ControlReply ReadRam(const ControlRequest &request, Time now);
    ControlReply WriteEeprom(const ControlRequest &request, Time now);
    ControlReply ReadEeprom(const ControlRequest &request, Time now);

    std::optional<uint32_t> m_programEntry;
};

} // namespace vscsim
