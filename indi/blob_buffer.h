#pragma once

#include "camera_session.h"

#include <indiccdchip.h>

#include <atomic>
#include <mutex>

namespace vscindi {

/// The buffer that the base class sends. It is written only while it belongs to the camera: from
/// when its frame was sent until the next one lies in it.
class BlobBuffer : public ExposureTaker {
  public:
    /// @param lock  of the base class, over the buffer
    BlobBuffer(INDI::CCDChip &chip, std::mutex &lock) : m_chip(chip), m_lock(lock) {}

    uint8_t *TryBegin(size_t bytes) override
    {
        if (m_full || bytes > m_size || !m_lock.try_lock())
            return nullptr;
        return m_chip.getFrameBuffer();
    }

    void End(const FrameFacts *facts) override
    {
        if (facts) {
            m_facts = *facts;
            m_full = true;
        }
        m_lock.unlock();
    }

    /// Makes room for the largest frame; memory is used only as far as frames reach.
    void Allocate(size_t bytes)
    {
        const std::lock_guard guard(m_lock);
        m_chip.setFrameBufferSize(static_cast<uint32_t>(bytes));
        m_size = bytes;
    }

    /// Its frame was sent, or is not to be.
    void Release() { m_full = false; }

    /// Of the frame in it. The base class holds its lock when it asks.
    const FrameFacts &Facts() const { return m_facts; }

  private:
    INDI::CCDChip &m_chip;
    std::mutex &m_lock;
    FrameFacts m_facts; // guarded by m_lock
    std::atomic<bool> m_full{false};
    std::atomic<size_t> m_size{0};
};

} // namespace vscindi
