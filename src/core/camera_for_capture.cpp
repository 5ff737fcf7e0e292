#include "core/camera_for_capture.h"

#include "core/camera_base.h"

namespace vsccam {

CaptureSettings CameraForCapture::SettingsOfNow()
{
    const Settings now = m_camera.settings.Now();
    return {.exposure = now.inForce,
            .frameBytes = ReadoutOf(m_camera.model, now).Bytes(),
            .bandwidth = now.bandwidth,
            .lowestBandwidth = m_camera.model.bandwidth.min,
            .bandwidthAuto = now.bandwidthAuto,
            .exposureOrGainAuto = now.ExposureOrGainAuto(),
            .whiteBalanceAuto = now.whiteBalanceAuto};
}

uint32_t CameraForCapture::FrameChanges()
{
    return m_camera.programming.CompleteFrameChanges();
}

void CameraForCapture::LowerBandwidth(int step)
{
    const Programming::Scope scope(m_camera.programming); // the host may be switching it off
    const Settings now = m_camera.settings.Now();
    if (now.bandwidthAuto)
        (void)m_camera.SetFPSPerc(now.bandwidth - step, true);
}

bool CameraForCapture::HalfProgrammed()
{
    return m_camera.programming.IsHalfDone();
}

bool CameraForCapture::ProgramWhole(const std::function<bool()> &program)
{
    return m_camera.programming.Whole(program);
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
    m_camera.automatics.startAutoControlThr(pass);
}

void CameraForCapture::StopAutomatics()
{
    m_camera.automatics.stopAutoControlThr();
}

void CameraForCapture::Adjust(std::span<const uint8_t> frame, const ExposureSetting &exposedBy)
{
    m_camera.automatics.AutoExpGain(frame, exposedBy);
}

} // namespace vsccam
