#include "models/fpga.h"

#include "models/fpga_registers.h"
#include "models/register_holds.h"
#include "models/register_list.h"

namespace vsccam {

void WriteFpga(CCameraFX3 &camera, uint16_t reg, int value)
{
    (void)camera.WriteFPGAREG(reg, static_cast<uint16_t>(value));
}

void SetUpFpga(CCameraFX3 &camera)
{
    WriteFpga(camera, fpga::kBitDepth, fpga::kInput12Bits);
    const FpgaHold hold(camera);
    // What these four are for is not known.
    for (uint16_t reg = fpga::kReg12; reg <= fpga::kReg15; ++reg)
        WriteFpga(camera, reg, 0x80);
}

void WriteFpga16(CCameraFX3 &camera, uint16_t reg, int value)
{
    WriteFpga(camera, reg, ByteOf(value, 0));
    WriteFpga(camera, static_cast<uint16_t>(reg + 1), ByteOf(value, 1));
}

void WriteOutputSize(CCameraFX3 &camera, Size size)
{
    WriteFpga16(camera, fpga::kOutputHeight, size.height);
    WriteFpga16(camera, fpga::kOutputWidth, size.width);
}

void SetFpgaMode(CCameraFX3 &camera, uint16_t code, bool longExposure)
{
    WriteFpga(camera, fpga::kMode, longExposure ? code | fpga::kLongExposure : code);
}

void SetExposureGate(CCameraFX3 &camera, bool open)
{
    WriteFpga(camera, fpga::kExposureGate, open ? 1 : 0);
}

} // namespace vsccam
