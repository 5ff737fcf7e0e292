#include "image/cir_buf.h"

#include "base/debug_print.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace vsccam {

namespace {

Clock::time_point DeadlineOf(int timeoutMs)
{
    return timeoutMs == -1 ? kNever : Clock::now() + std::chrono::milliseconds(timeoutMs);
}

} // namespace

CirBuf::Look::~Look()
{
    if (m_frame.empty())
        return; // another one may be looking
    const SectionLock lock(m_owner.m_section);
    m_owner.m_lookedAt = kNone;
}

CirBuf::CirBuf(size_t size)
    : m_buffers{ZeroedBuffer(size), ZeroedBuffer(size), ZeroedBuffer(size), ZeroedBuffer(size),
                ZeroedBuffer(size)}
{
}

int CirBuf::ResetCirBuff()
{
    SectionLock lock(m_section);
    m_copyDone.Wait(lock, [this]() VSC_REQUIRES(m_section) { return !m_reading; });
    m_latest.reset();
    return std::exchange(m_filled, 0);
}

bool CirBuf::InsertBuff(int len, const std::optional<ExposureSetting> &measured)
{
    if (len <= 0 || static_cast<size_t>(len) > m_buffers[0].size())
        return false;
    const Frame frame{m_filling, len};
    bool inserted = false;
    {
        const SectionLock lock(m_section);
        inserted = m_filled < kSlots;
        if (inserted)
            m_slots[m_filled++] = frame;
        m_latest.reset();
        if (measured)
            m_latest = {frame, *measured};
        m_filling = FreeBuffer();
    }
    if (inserted)
        m_frameAvailable.NotifyAll();
    return inserted;
}

bool CirBuf::IsNeeded(int buffer) const
{
    const auto isIn = [buffer](const Frame &frame) { return frame.buffer == buffer; };
    return std::any_of(m_slots, m_slots + m_filled, isIn) || (m_latest && isIn(m_latest->frame)) ||
           buffer == m_lookedAt;
}

/// Takes the first one, so that those behind it are touched only when several are needed at once.
int CirBuf::FreeBuffer() const
{
    int buffer = 0;
    while (IsNeeded(buffer))
        ++buffer;
    return buffer;
}

std::span<const uint8_t> CirBuf::BytesOf(const Frame &frame) const
{
    return m_buffers[static_cast<size_t>(frame.buffer)].First(static_cast<size_t>(frame.length));
}

bool CirBuf::WaitForFrames(SectionLock<CriticalSection> &lock, int count,
                           Clock::time_point deadline)
{
    const bool endsWithProducer = m_producing || deadline == kNever;
    (void)m_frameAvailable.WaitUntil(lock, deadline, [=, this]() VSC_REQUIRES(m_section) {
        return m_filled >= count || m_interruptions > 0 || (endsWithProducer && !m_producing);
    });
    return m_filled >= count;
}

void CirBuf::DropOldest()
{
    m_slots[0] = m_slots[1];
    --m_filled;
}

bool CirBuf::ReadBuff(uint8_t *dst, int len, int timeoutMs)
{
    const auto deadline = DeadlineOf(timeoutMs);
    SectionLock lock(m_section);
    while (WaitForFrames(lock, 1, deadline)) {
        const Frame frame = m_slots[0];
        if (frame.length != len) {
            DropOldest();
            continue;
        }
        m_reading = true;
        lock.unlock();
        const std::span bytes = BytesOf(frame);
        std::memcpy(dst, bytes.data(), bytes.size());
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
    SectionLock lock(m_section);
    return WaitForFrames(lock, 1, deadline);
}

CirBuf::Head CirBuf::IsBuffHeadCorrect(uint32_t mark, int timeoutMs, Place place)
{
    const bool behind = place == Place::Behind;
    const auto deadline = DeadlineOf(timeoutMs);
    SectionLock lock(m_section);
    if (!WaitForFrames(lock, behind ? 2 : 1, deadline)) {
        lock.unlock(); // printing may take its time
        OutputDbgPrint("[%s] Read time out wait %dms\n", "IsBuffHeadCorrect", timeoutMs);
        return Head::Missing;
    }
    const std::span bytes = BytesOf(m_slots[behind ? 1 : 0]);
    uint32_t word = 0; // little-endian, like the hosts that the library runs on
    std::memcpy(&word, bytes.data(), std::min(sizeof word, bytes.size()));
    return word == mark ? Head::Correct : Head::Wrong;
}

void CirBuf::DiscardBuff()
{
    const SectionLock lock(m_section);
    if (m_filled > 0)
        DropOldest();
}

void CirBuf::SetProducing(bool producing)
{
    {
        const SectionLock lock(m_section);
        m_producing = producing;
    }
    m_frameAvailable.NotifyAll();
}

void CirBuf::InterruptReaders(bool on)
{
    {
        const SectionLock lock(m_section);
        m_interruptions += on ? 1 : -1;
    }
    m_frameAvailable.NotifyAll();
}

CirBuf::Look CirBuf::TakeLatest(bool shortOnly)
{
    const SectionLock lock(m_section);
    if (!m_latest || m_lookedAt != kNone || (shortOnly && !m_latest->exposure.IsShort()))
        return {*this, {}, {}};
    const Measured taken = *std::exchange(m_latest, std::nullopt);
    m_lookedAt = taken.frame.buffer;
    return {*this, BytesOf(taken.frame), taken.exposure};
}

} // namespace vsccam
