#pragma once

#include "models/fpga.h"
#include "models/fpga_registers.h"

namespace vsccam {

/// FPGA writes between construction and destruction take effect together.
class FpgaHold {
  public:
    explicit FpgaHold(CCameraFX3 &camera) : m_camera(camera)
    {
        WriteFpga(m_camera, fpga::kHold, 1);
    }
    ~FpgaHold() { WriteFpga(m_camera, fpga::kHold, 0); }
    FpgaHold(const FpgaHold &) = delete;
    FpgaHold &operator=(const FpgaHold &) = delete;

  private:
    CCameraFX3 &m_camera;
};

} // namespace vsccam
