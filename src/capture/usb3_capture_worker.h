#pragma once

#include "capture/capture_worker.h"
#include "capture/unusable_frames.h"

namespace vsccam {

/// The capture worker of cameras with a USB 3.0 controller: marks and counters at both ends of a
/// frame tell whether it is whole.
class Usb3CaptureWorker final : public CaptureWorker {
  public:
    Usb3CaptureWorker(Capture &capture, CaptureSensor &sensor);

  private:
    void StartDataPath() override;
    BulkStream::Timeouts FrameTimeouts(const ExposureSetting &exposure) const override;
    BulkStream::Pass ReadFrame(BulkStream::Timeouts timeouts) override;
    void PrintIncompleteFrame(const BulkStream::Pass &pass) const override;
    Turn HandleMissingBytes(const BulkStream::Pass &pass) override;
    Turn HandleWholeFrame() override;
    void PrintBurst(uint32_t sinceStartMs, uint32_t sinceLastMs) const override;
    void HandleFixedBandwidthDrop() override;

    Turn HandleEmptyRead(const BulkStream::Pass &pass);
    Turn HandleUnusableFrame(DropReason reason);
    Turn ResetStream();

    UnusableFrames m_unusable;
};

} // namespace vsccam
