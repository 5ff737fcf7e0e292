#include "models/quiet_sensor.h"

#include "base/clock.h"
#include "models/fpga.h"
#include "models/fpga_registers.h"
#include "models/sony/sony_registers.h"
#include "usb/requests.h"

namespace vsccam {

using namespace std::chrono_literals;

void QuietSensor(CCameraFX3 &camera)
{
    // Failures do not matter: a boot loader does not know these requests.
    sony::Write(camera, sony::kReg3007, 0x40);
    WriteFpga(camera, fpga::kMode, fpga::kReset);
    SleepFor(20ms);
    (void)camera.SendCMD(request::kStartSensorClock);
}

} // namespace vsccam
