#include "core/camera_for_capture.h"

#include "core/camera_base.h"

#include <mutex>

namespace vsccam {

CaptureSettings CameraForCapture::SettingsOfNow()
{
    CCameraBase &camera = m_camera;
    return {.exposure = camera.Exposure(),
            .frameBytes = camera.ReadoutBytes(),
            .bandwidth = camera.m_bandwidth,
            .lowestBandwidth = camera.m_model.bandwidth.min,
            .bandwidthAuto = camera.m_bandwidthAuto,
            .exposureOrGainAuto = camera.ExposureOrGainAuto(),
            .whiteBalanceAuto = camera.m_whiteBalanceAuto};
}

uint32_t CameraForCapture::FrameChanges()
{
    return FrameChangesAtRest(); // a change is counted within the section, not always at its start
}

uint32_t CameraForCapture::FrameChangesAtRest()
{
    const std::lock_guard lock(m_camera.m_settingsSection);
    return m_camera.m_frameChanges;
}

void CameraForCapture::LowerBandwidth(int step)
{
    const std::lock_guard lock(m_camera.m_settingsSection); // the host may be switching it off
    if (m_camera.m_bandwidthAuto)
        (void)m_camera.SetControlValue(kControlBandwidth, m_camera.m_bandwidth - step, true);
}

bool CameraForCapture::HalfProgrammed()
{
    return m_camera.HalfProgrammed();
}

bool CameraForCapture::ProgramWhole(const std::function<bool()> &program)
{
    return m_camera.ProgramWhole(program);
}

bool CameraForCapture::Reconnect()
{
    return m_camera.ReConnectCamera();
}

bool CameraForCapture::Reopen()
{
    return m_camera.OpenCamera(m_camera.m_ordinal);
}

void CameraForCapture::StartAutomatics(std::chrono::milliseconds pass)
{
    m_camera.startAutoControlThr(pass);
}

void CameraForCapture::StopAutomatics()
{
    m_camera.stopAutoControlThr();
}

void CameraForCapture::Adjust(std::span<const uint8_t> frame, const ExposureSetting &exposedBy)
{
    m_camera.AutoExpGain(frame, exposedBy);
}

} // namespace vsccam
