#pragma once

#include "camera/climate.h"
#include "camera/fpga.h"
#include "camera/frame_settings.h"
#include "camera/guide_port.h"
#include "camera/models.h"
#include "camera/spi_flash.h"

#include <memory>

namespace vscsim {

/// The parts of a camera that its controller talks to, and the switches between them.
struct Board {
    Board(const ModelFacts &model, const CameraOptions &options)
        : sensor(MakeSensor(model)), flash(options.flashFile), climate(model.cooled),
          link(options.link)
    {
    }

    std::unique_ptr<Sensor> sensor;
    Fpga fpga;
    SpiFlash flash;
    Climate climate;
    GuidePort guide;
    LinkSpeed link;

    enum class Condition { Working, Mute, Unplugged };
    Condition condition = Condition::Working;

    bool dataPath = false;   // from the FPGA through the controller to the bulk endpoint
    bool sensorClock = true; // stops when the FPGA is reset
    bool wideDataBus = true; // its upper half shares pins with the flash
    uint32_t transferCount = 0;

    bool Streaming() const
    {
        return dataPath && (sensorClock || sensor->HasOwnClock()) && fpga.Running() &&
               sensor->Readout().streaming;
    }
    FrameSettings Settings() const { return SettingsOf(sensor->Readout(), fpga); }
};

} // namespace vscsim
