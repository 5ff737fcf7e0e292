#pragma once

#include "base/guarded.h"
#include "base/sync.h"
#include "capture/capture_state.h"
#include "capture/drop_counts.h"
#include "image/cir_buf.h"
#include "usb/camera_fx3.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>

namespace vsccam {

class CapturedCamera;

/// The capture of a camera: its state, the worker that reads frames, and what it reads them into.
///
/// Threads. Start, Stop and Reformat are for threads of the host, one after the other. The worker
/// is started by Start; Stop asks it to end and joins it. A worker that ends by itself is joined by
/// the next Start or Stop. It is the only reader of the bulk endpoint and the only producer of
/// frames. Everything else may be called by any thread at any time.
///
/// Locks. The state is one atomic word, and changes only along the table of legal changes. The
/// drops and the ring of frames have a lock each, which is never held over anything that waits.
/// Start and Stop hold none while they wait for the worker.
class Capture {
  public:
    /// @param largestFrame  bytes
    Capture(CCameraFX3 &usb, CapturedCamera &camera, uint16_t productId, size_t largestFrame);
    ~Capture();
    Capture(const Capture &) = delete;
    Capture &operator=(const Capture &) = delete;

    /// Starts a capture with `worker` on a thread, unless one runs. A camera that was lost is
    /// looked for by the worker. @return whether the camera is open
    bool Start(bool single, std::function<void()> worker);
    /// Ends the capture and joins the worker. @return whether one was running
    bool Stop();
    /// Throws away the frames of a capture that was stopped: what follows has another format.
    void Reformat();

    CaptureState State() const { return m_state; }
    bool Running() const { return State().Running(); }
    bool Single() const { return State().single; }
    bool Lost() const { return State().Lost(); }
    int ExpStatus() const { return State().Status(); }
    /// Whether a single exposure has a frame. After that it counts as taken.
    bool TakeExposure();
    /// Makes a change, if it is a legal one; anything else is a fault of this library and does
    /// nothing. @return the state before
    CaptureState Change(CaptureChange change);

    /// Frames that the running capture has dropped; 0 when its worker has left.
    int Dropped() const { return m_drops.Now().Sum(); }
    void CountDrop(DropReason reason, int64_t frames = 1);

    /// The flag that the worker, and whoever works for it, runs and sleeps by. It follows the
    /// state.
    const RunFlag &GoOn() const { return m_goOn; }
    bool SleepFor(std::chrono::milliseconds time) { return m_goOn.SleepFor(time); }

    CirBuf &Frames() { return m_frames; }

    // For the worker.
    CCameraFX3 &Usb() { return m_usb; }
    CapturedCamera &Camera() { return m_camera; }
    uint16_t ProductId() const { return m_productId; }
    void CountEmptyRead();
    /// The drops of this capture. From now on Dropped() tells of none.
    DropCounts TakeDrops();

  private:
    CCameraFX3 &m_usb;
    CapturedCamera &m_camera;
    const uint16_t m_productId;

    static_assert(std::atomic<CaptureState>::is_always_lock_free);
    std::atomic<CaptureState> m_state{CaptureState()};
    RunFlag m_goOn;
    Guarded<DropCounts> m_drops;
    CirBuf m_frames;
    Thread m_worker;
};

} // namespace vsccam
