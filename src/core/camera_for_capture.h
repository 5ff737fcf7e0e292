#pragma once

#include "capture/captured_camera.h"

namespace vsccam {

class CCameraBase;

/// The camera as its capture sees it.
class CameraForCapture final : public CapturedCamera {
  public:
    explicit CameraForCapture(CCameraBase &camera) : m_camera(camera) {}

    CaptureSettings SettingsOfNow() override;
    uint32_t FrameChanges() override;
    void LowerBandwidth(int step) override;
    bool HalfProgrammed() override;
    bool ProgramWhole(const std::function<bool()> &program) override;
    bool Reconnect() override;
    bool Reopen() override;
    void StartAutomatics(std::chrono::milliseconds pass) override;
    void StopAutomatics() override;
    void Adjust(std::span<const uint8_t> frame, const ExposureSetting &exposedBy) override;

  private:
    CCameraBase &m_camera;
};

} // namespace vsccam
