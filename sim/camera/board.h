#pragma once

#include "camera/climate.h"
#include "camera/fpga.h"
#include "camera/frame_settings.h"
#include "camera/guide_port.h"
#include "camera/memory.h"
#include "camera/models.h"
#include "camera/spi_flash.h"

#include <algorithm>
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
    std::optional<Pulse> guided = {}; // has ended since it was last looked at
    LinkSpeed link;
    uint8_t firmwareVersion;

    enum class Condition { Working, Mute, Unplugged };
    Condition condition = Condition::Working;
    std::optional<Return> comesBack = {}; // unplugged

    /// Does what a fault of the device does; nothing for others.
    void Strike(const FaultRule &rule)
    {
        constexpr uint64_t kAwayMs = 1000;
        constexpr uint64_t kLongestMs = 1'000'000'000;
        const bool returns = rule.fault == Fault::Replug || rule.fault == Fault::Move;
        if (rule.fault == Fault::Mute)
            condition = Condition::Mute;
        if (returns || rule.fault == Fault::Unplug)
            condition = Condition::Unplugged;
        const uint64_t ms = rule.amount != 0 ? std::min(rule.amount, kLongestMs) : kAwayMs;
        if (returns)
            comesBack = {.after = std::chrono::milliseconds(ms),
                         .elsewhere = rule.fault == Fault::Move};
    }

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
