#include "image/cir_buf.h"

#include "base/debug_print.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <utility>

namespace vsccam {

namespace {

Clock::time_point DeadlineOf(int timeoutMs)
{
    return timeoutMs == -1 ? kNever : Clock::now() + std::chrono::milliseconds(timeoutMs);
}

} // namespace

CirBuf::CirBuf(size_t size)
    : m_slotSize(size), m_slots{{ZeroedBuffer(size), 0}, {ZeroedBuffer(size), 0}}
{
}

CirBuf::~CirBuf()
{
    StopInstBufThr();
}

bool CirBuf::StartInstBufThr()
{
    if (m_running)
        return true;
    m_running = true;
    if (!m_insertThread.Start([this] { InsertBufThd(); }))
        m_running = false;
    return m_running;
}

void CirBuf::StopInstBufThr()
{
    if (!m_running)
        return;
    OutputDbgPrint(">> wait InsertBufThr exit\n");
    OutputDbgPrint("StopInstBufThr 0\n");
    {
        const std::lock_guard lock(m_section);
        m_running = false;
    }
    m_insertionPending.NotifyAll();
    OutputDbgPrint("StopInstBufThr 1\n");
    m_insertThread.Join();
    OutputDbgPrint("<< wait InsertBufThr exit\n");
}

int CirBuf::ResetCirBuff()
{
    std::unique_lock lock(m_section);
    const int waiting = std::exchange(m_pending, {}).source ? 1 : 0;
    m_copyDone.Wait(lock, [this] { return !m_inserting && !m_reading; });
    m_readIndex = m_writeIndex = 0;
    return waiting + std::exchange(m_filled, 0);
}

bool CirBuf::InsertBuff(const uint8_t *src, int len)
{
    if (!src || len <= 0 || static_cast<size_t>(len) > m_slotSize)
        return false;
    {
        const std::lock_guard lock(m_section);
        if (m_filled >= 2 || m_inserting || m_pending.source)
            return false;
        m_pending = {src, len};
    }
    m_insertionPending.NotifyAll();
    return true;
}

void CirBuf::InsertBufThd()
{
    OutputDbgPrint("InsertBufThr begin\n");
    while (const auto insertion = NextInsertion()) {
        Slot &slot = m_slots[m_writeIndex]; // nobody else uses it while m_inserting is set
        std::memcpy(slot.bytes.data(), insertion->source, static_cast<size_t>(insertion->length));
        {
            const std::lock_guard lock(m_section);
            slot.length = insertion->length;
            m_inserting = false;
            m_writeIndex ^= 1;
            ++m_filled;
        }
        m_frameAvailable.NotifyAll();
        m_copyDone.NotifyAll();
    }
    OutputDbgPrint("thread InsertBufThd Exit\n");
}

/// Waits for a frame to insert; nothing when the thread is to end.
std::optional<CirBuf::Insertion> CirBuf::NextInsertion()
{
    std::unique_lock lock(m_section);
    m_insertionPending.Wait(lock, [this] { return m_pending.source || !m_running; });
    if (!m_running)
        return std::nullopt;
    m_inserting = true;
    return std::exchange(m_pending, {});
}

bool CirBuf::WaitForFrames(std::unique_lock<CriticalSection> &lock, int count,
                           Clock::time_point deadline)
{
    const bool endsWithProducer = m_producing || deadline == kNever;
    (void)m_frameAvailable.WaitUntil(lock, deadline, [=, this] {
        const bool onItsWay = m_pending.source || m_inserting;
        return m_filled >= count || m_interruptions > 0 ||
               (endsWithProducer && !m_producing && !onItsWay);
    });
    return m_filled >= count;
}

void CirBuf::DropOldest()
{
    m_readIndex ^= 1;
    --m_filled;
}

bool CirBuf::ReadBuff(uint8_t *dst, int len, int timeoutMs)
{
    const auto deadline = DeadlineOf(timeoutMs);
    std::unique_lock lock(m_section);
    while (WaitForFrames(lock, 1, deadline)) {
        const Slot &slot = m_slots[m_readIndex];
        if (slot.length != len) {
            DropOldest();
            continue;
        }
        m_reading = true;
        lock.unlock();
        std::memcpy(dst, slot.bytes.data(), static_cast<size_t>(len));
        lock.lock();
        m_reading = false;
        DropOldest();
        lock.unlock();
        m_copyDone.NotifyAll();
        return true;
    }
    return false;
}

bool CirBuf::WaitForBuff(int timeoutMs)
{
    const auto deadline = DeadlineOf(timeoutMs);
    std::unique_lock lock(m_section);
    return WaitForFrames(lock, 1, deadline);
}

CirBuf::Head CirBuf::IsBuffHeadCorrect(uint32_t mark, int timeoutMs, Place place)
{
    const bool behind = place == Place::Behind;
    const auto deadline = DeadlineOf(timeoutMs);
    std::unique_lock lock(m_section);
    if (!WaitForFrames(lock, behind ? 2 : 1, deadline)) {
        OutputDbgPrint("[%s] Read time out wait %dms\n", "IsBuffHeadCorrect", timeoutMs);
        return Head::Missing;
    }
    const Slot &slot = m_slots[behind ? m_readIndex ^ 1 : m_readIndex];
    uint32_t word = 0; // little-endian, like the hosts that the library runs on
    std::memcpy(&word, slot.bytes.data(), std::min(sizeof word, static_cast<size_t>(slot.length)));
    return word == mark ? Head::Correct : Head::Wrong;
}

void CirBuf::DiscardBuff()
{
    const std::lock_guard lock(m_section);
    if (m_filled > 0)
        DropOldest();
}

void CirBuf::SetProducing(bool producing)
{
    {
        const std::lock_guard lock(m_section);
        m_producing = producing;
    }
    m_frameAvailable.NotifyAll();
}

void CirBuf::InterruptReaders(bool on)
{
    {
        const std::lock_guard lock(m_section);
        m_interruptions += on ? 1 : -1;
    }
    m_frameAvailable.NotifyAll();
}

} // namespace vsccam
