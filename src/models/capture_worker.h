#pragma once

#include "core/camera_base.h"
#include "models/usb3_sensor.h"

#include <span>

namespace vsccam {

/// The capture worker of the USB 3.0 cameras, one object per run: reads frame after frame from the
/// bulk endpoint, checks their marks, hands good ones to the frame buffer, counts the others as
/// dropped, and recovers the stream when it stalls or the device is lost. Ends when the camera's
/// capturing flag is cleared, or by itself after a single exposure.
class Usb3CaptureWorker {
  public:
    Usb3CaptureWorker(CCameraBase &camera, Usb3Sensor &sensor)
        : m_camera(camera), m_sensor(sensor), m_running(camera.Capturing())
    {
    }

    void Run();

  private:
    enum class Turn { GoOn, Leave };

    bool Prepare();
    bool StartStream();
    Turn CaptureOneFrame();
    BulkStream::Pass ReadFrame(const ExposureSetting &exposure);
    BulkStream::Pass ExposeAndRead(uint32_t exposureUs);
    Turn HandleIncompleteFrame(const BulkStream::Pass &pass);
    Turn HandleRefusedRead(const BulkStream::Pass &pass);
    Turn HandleEmptyRead(const BulkStream::Pass &pass);
    Turn HandleGoodFrame();
    void HandleDrop();
    void LowerBandwidth();
    void ResetStream();
    Turn RecoverDevice();
    Turn LoseExposure(bool open);
    bool Resume();
    int FramesSince(Clock::time_point start) const;
    Turn Fail();
    void Leave();

    BulkStream::Timeouts FrameTimeouts(const ExposureSetting &exposure) const;
    std::span<uint8_t> Frame() const;

    CCameraBase &m_camera;
    Usb3Sensor &m_sensor;
    RunFlag &m_running;

    int m_frameBytes = 0;
    int m_transferCount = 0;
    int m_rawIndex = 0;     // of the raw buffer that the next frame is read into
    int m_drops = 0;        // bad frames in a row or since the last measure against them
    int m_emptyReads = 0;   // reads in a row that brought nothing
    int m_refusedReads = 0; // reads in a row for which nothing could be queued
    int m_silentResets = 0; // of a single exposure, for want of any byte
    long m_waitMs = 0;      // of the last read, for the debug output
    uint32_t m_lastBurst = 0;
    uint32_t m_autoBandwidthSince = 0;
};

} // namespace vsccam
