#pragma once

#include "capture/capture_worker.h"

namespace vsccam {

/// The capture worker of cameras with a USB 2.0 controller: a mark at the head of each frame is all
/// that tells where one begins.
class Usb2CaptureWorker final : public CaptureWorker {
  public:
    Usb2CaptureWorker(Capture &capture, Usb2Sensor &sensor);

  private:
    void StartDataPath() override;
    void FollowExposure() override;
    BulkStream::Timeouts FrameTimeouts(const ExposureSetting &exposure) const override;
    BulkStream::Pass ReadFrame(BulkStream::Timeouts timeouts) override;
    void PrintIncompleteFrame(const BulkStream::Pass &pass) const override;
    Turn HandleMissingBytes(const BulkStream::Pass &pass) override;
    Turn HandleWholeFrame() override;
    bool BandwidthMatters() const override;
    void PrintBurst(uint32_t sinceStartMs, uint32_t sinceLastMs) const override;
    void HandleFixedBandwidthDrop() override;

    Turn HandleLostPackets(int others);
    Turn HandleBadHead();
    void Realign();
    Turn ResetStream(const char *complaint);
    Turn ResetAfterBadHeads();

    Usb2Sensor &m_usb2Sensor;
    int m_badHeads = 0;         // in a row
    bool m_midFrame = false;    // the next read may begin within a frame
    bool m_timedByHost = false; // the last whole frame
};

} // namespace vsccam
