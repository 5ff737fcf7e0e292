#pragma once

#include "models/edition.h"
#include "models/usb2/fx2_camera.h"
#include "models/usb2/fx3_edition.h"

namespace vsccam {

/// What the files of the sensors behind a USB 2.0 controller derive from.
struct Fx2Family : Sensor {
    template <Housing> using Driver = Fx2Camera;
};

/// The same sensors behind the controller and the FPGA of the USB 3.0 cameras.
struct Fx3Family : Sensor {
    template <Housing> using Driver = Fx3Edition;
};

} // namespace vsccam
