#pragma once

#include "camera/controller.h"

namespace vscsim {

/// The USB 2.0 controller. It boots from its EEPROM, and a host may hold its processor in reset and
/// load another program. Nothing is executed here. Two programs are told apart by the way they are
/// loaded: the one that writes the EEPROM comes in two pieces at fixed places, any other is the
/// camera's own.
class Fx2Controller final : public Controller {
  public:
    Fx2Controller(Board &board, FrameStream &stream);

    bool BootsAtReset() const override { return m_held || m_programmed; }

  private:
    enum class Program { None, Camera, EepromWriter };
    static const Request<Fx2Controller> kOfHardware[];
    static const Request<Fx2Controller> kOfCamera[];
    static const Request<Fx2Controller> kOfEepromWriter[];

    std::optional<ControlReply> AnswerOwn(const ControlRequest &request, Time now) override;

    ControlReply LoadRam(const ControlRequest &request, Time now);
    ControlReply ReadRam(const ControlRequest &request, Time now);
    ControlReply WriteEeprom(const ControlRequest &request, Time now);
    ControlReply ReadEeprom(const ControlRequest &request, Time now);
    ControlReply SelectSlowClock(const ControlRequest &request, Time now);
    ControlReply SelectFastClock(const ControlRequest &request, Time now);
    ControlReply Send8Bits(const ControlRequest &request, Time now);
    ControlReply Send16Bits(const ControlRequest &request, Time now);

    void Boot();
    void HoldProcessor();
    void ReleaseProcessor();

    Program m_program = Program::None;
    bool m_held = false;
    bool m_programmed = false;     // it runs what a host loaded
    std::vector<uint16_t> m_loads; // addresses of what was loaded while the processor is held
};

} // namespace vscsim
