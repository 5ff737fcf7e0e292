#include "capture/capture.h"

#include "base/debug_print.h"

#include <cassert>
#include <utility>

namespace vsccam {

Capture::Capture(CCameraFX3 &usb, CapturedCamera &camera, uint16_t productId, size_t largestFrame)
    : m_usb(usb), m_camera(camera), m_productId(productId), m_frames(largestFrame)
{
}

Capture::~Capture()
{
    (void)Stop();
}

bool Capture::Start(bool single, std::function<void()> worker)
{
    if (Running())
        return m_usb.IsOpened();
    m_worker.Join(); // one that ended by itself may still be cleaning up
    if (!m_usb.IsOpened() && !Lost())
        return false;
    (void)Change(single ? CaptureChange::HostStartsExposure : CaptureChange::HostStartsVideo);
    (void)TakeDrops();
    (void)m_frames.ResetCirBuff(); // here, not on the worker: the host may ask for a frame at once
    m_frames.SetProducing(true);
    OutputDbgPrint("start capture create thread\n");
    if (!m_worker.Start(std::move(worker))) {
        (void)Change(CaptureChange::HostHasNoThread);
        m_frames.SetProducing(false);
    }
    return m_usb.IsOpened();
}

bool Capture::Stop()
{
    if (!Running()) {
        m_worker.Join(); // one that ended by itself
        return false;
    }
    OutputDbgPrint("stop capture\n");
    (void)Change(CaptureChange::HostStops);
    OutputDbgPrint(">> wait Working thread exit\n");
    m_worker.Join();
    OutputDbgPrint("<< wait Working thread exit\n");
    return true;
}

void Capture::Reformat()
{
    (void)m_frames.ResetCirBuff();
    (void)Change(CaptureChange::HostReformats);
}

bool Capture::TakeExposure()
{
    return Change(CaptureChange::HostTakesFrame).Status() == kExpSuccess;
}

CaptureState Capture::Change(CaptureChange change)
{
    CaptureState before = m_state;
    std::optional<CaptureState> after;
    do {
        after = After(before, change);
        if (!after) {
            assert(!"a legal change of the capture's state");
            OutputDbgPrint("capture: refused change %d in phase %d\n", static_cast<int>(change),
                           static_cast<int>(before.phase));
            return before;
        }
    } while (!m_state.compare_exchange_weak(before, *after));
    // A capture ends once, and the next is started when its worker was joined: the flag cannot be
    // overtaken by that of another change.
    if (after->Running() && !before.Running())
        m_goOn.Set();
    else if (before.Running() && !after->Running())
        m_goOn.Clear();
    return before;
}

void Capture::CountDrop(DropReason reason, int64_t frames)
{
    m_drops.With([=](DropCounts &drops) { drops.Add(reason, frames); });
}

void Capture::CountEmptyRead()
{
    m_drops.With([](DropCounts &drops) { ++drops.emptyReads; });
}

DropCounts Capture::TakeDrops()
{
    return m_drops.With([](DropCounts &drops) { return std::exchange(drops, {}); });
}

} // namespace vsccam
