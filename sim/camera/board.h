#pragma once

#include "camera/climate.h"
#include "camera/fpga.h"
#include "camera/frame_settings.h"
#include "camera/guide_port.h"
#include "camera/memory.h"
#include "camera/models.h"
#include "camera/spi_flash.h"

#include <memory>

namespace vscsim {

/// What a camera keeps without power.
struct Memories {
    SpiFlash flash;
    Eeprom eeprom;
};

/// The parts of a camera that its controller talks to, and the switches between them.
struct Board {
    Board(const ModelFacts &model, const CameraOptions &options, Memories memories)
        : sensor(MakeSensor(model)), hasFpga(model.controller == ControllerKind::Fx3),
          flash(std::move(memories.flash)), eeprom(std::move(memories.eeprom)),
          climate(model.cooled, options.ambientC), link(options.link),
          firmwareVersion(options.firmwareVersion)
    {
    }

    std::unique_ptr<Sensor> sensor;
    bool hasFpga; // otherwise the controller passes on what the sensor sends
    Fpga fpga;
    SpiFlash flash;
    Eeprom eeprom;
    Climate climate;
    GuidePort guide;
    LinkSpeed link;
    uint8_t firmwareVersion;

    enum class Condition { Working, Mute, Unplugged };
    Condition condition = Condition::Working;

    bool dataPath = false;     // from the FPGA through the controller to the bulk endpoint
    bool sensorClock = true;   // stops when the FPGA is reset
    bool wideDataBus = true;   // its upper half shares pins with the flash
    bool output16Bits = false; // without an FPGA

    bool Streaming() const
    {
        return dataPath && sensor->Readout().streaming &&
               (!hasFpga || (ClockRuns() && fpga.Running()));
    }
    bool ClockRuns() const { return sensorClock || sensor->HasOwnClock(); }
    /// Streaming, but with a clock that stands still; an FPGA would give up the frame.
    bool Frozen() const { return !hasFpga && Streaming() && !ClockRuns(); }
    bool FramesWaitForGate() const { return hasFpga && fpga.LongExposure(); }
    FrameSettings Settings() const
    {
        const SensorReadout readout = sensor->Readout();
        return hasFpga ? SettingsOf(readout, fpga) : SettingsOf(readout, output16Bits);
    }
};

} // namespace vscsim
