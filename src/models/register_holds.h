#pragma once

#include "models/fpga_registers.h"
#include "usb/camera_fx3.h"

namespace vsccam {

/// FPGA writes between construction and destruction take effect together.
class FpgaHold {
  public:
    explicit FpgaHold(CCameraFX3 &camera) : m_camera(camera)
    {
        m_camera.WriteFPGAREG(fpga::kHold, 1);
    }
    ~FpgaHold() { m_camera.WriteFPGAREG(fpga::kHold, 0); }
    FpgaHold(const FpgaHold &) = delete;
    FpgaHold &operator=(const FpgaHold &) = delete;

  private:
    CCameraFX3 &m_camera;
};

} // namespace vsccam
