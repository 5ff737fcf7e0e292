#pragma once

#include "capture/capture_worker.h"

#include <cstdint>

namespace vsccam {

/// What the capture worker of the USB 2.0 cameras needs beside what every worker does.
class Usb2Sensor : public CaptureSensor {
  public:
    /// Takes over again from the host when an exposure has become short enough for the sensor.
    virtual void FollowExposure() = 0;
    /// Lengthens the lines a little, for a link that drops data.
    virtual void SlowDown() = 0;
    /// Prints the black level of sensors that tell it.
    virtual void PrintBlackLevel() = 0;

  protected:
    ~Usb2Sensor() = default;
};

/// The capture worker of cameras with a USB 2.0 controller: a mark at the head of each frame is all
/// that tells where one begins.
class Usb2CaptureWorker final : public CaptureWorker {
  public:
    Usb2CaptureWorker(CCameraBase &camera, Usb2Sensor &sensor);

  private:
    void StartDataPath() override;
    void FollowExposure() override;
    BulkStream::Timeouts FrameTimeouts(const ExposureSetting &exposure) const override;
    BulkStream::Pass ReadFrame(const ExposureSetting &exposure,
                               BulkStream::Timeouts timeouts) override;
    void PrintIncompleteFrame(const BulkStream::Pass &pass) const override;
    Turn HandleMissingBytes(const BulkStream::Pass &pass) override;
    Turn HandleWholeFrame() override;
    bool BandwidthMatters() const override;
    bool MixesTimings() const override { return true; }
    void PrintBurst(int sinceStartMs, int sinceLastMs) const override;
    void HandleFixedBandwidthDrop() override;

    Turn HandleBadHead();
    void Realign();
    Turn ResetStream(const char *complaint);
    Turn ResetAfterBadHeads();

    Usb2Sensor &m_usb2Sensor;
    int m_badHeads = 0;      // in a row
    bool m_midFrame = false; // the next read may begin within a frame
};

} // namespace vsccam
