#include "models/fpga.h"

#include "models/fpga_registers.h"
#include "models/register_holds.h"
#include "models/register_list.h"

namespace vsccam {

void SetUpFpga(CCameraFX3 &camera)
{
    camera.WriteFPGAREG(fpga::kBitDepth, fpga::kInput12Bits);
    const FpgaHold hold(camera);
    for (uint16_t reg = fpga::kReg12; reg <= fpga::kReg15; ++reg)
        camera.WriteFPGAREG(reg, 0x80);
}

void WriteFpga16(CCameraFX3 &camera, uint16_t reg, int value)
{
    camera.WriteFPGAREG(reg, ByteOf(value, 0));
    camera.WriteFPGAREG(static_cast<uint16_t>(reg + 1), ByteOf(value, 1));
}

void WriteOutputSize(CCameraFX3 &camera, Size size)
{
    WriteFpga16(camera, fpga::kOutputHeight, size.height);
    WriteFpga16(camera, fpga::kOutputWidth, size.width);
}

void SetFpgaMode(CCameraFX3 &camera, uint16_t code, bool longExposure)
{
    camera.WriteFPGAREG(fpga::kMode, longExposure ? code | fpga::kLongExposure : code);
}

void SetExposureGate(CCameraFX3 &camera, bool open)
{
    camera.WriteFPGAREG(fpga::kExposureGate, open ? 1 : 0);
}

} // namespace vsccam
