#pragma once

#include "usb/camera_fx3.h"

namespace vsccam {

/// The flash is reachable only while the controller's data bus is not 32 bits wide.
class FlashAccess {
  public:
    explicit FlashAccess(CCameraFX3 &camera) : m_camera(camera)
    {
        (void)m_camera.EnableGPIF32DQ(false);
    }
    ~FlashAccess() { (void)m_camera.EnableGPIF32DQ(true); }
    FlashAccess(const FlashAccess &) = delete;
    FlashAccess &operator=(const FlashAccess &) = delete;

  private:
    CCameraFX3 &m_camera; // the requests that follow fail by themselves when the switch failed
};

} // namespace vsccam
