#pragma once

#include "base/sync.h"
#include "base/zeroed_buffer.h"
#include "image/exposure_setting.h"

#include <cstdint>
#include <span>

namespace vsccam {

/// The buffers that a capture worker reads frames into, one after the other. Two others may need a
/// whole frame for a while: the frame buffer, whose insert thread copies it, and the automatics,
/// which look at it. With three buffers there is always one left to read into, so that nobody waits
/// and no frame is copied for the automatics. The third is touched only when it is needed.
class RawFrames {
  public:
    /// A whole frame that stays as it is while the object lives; empty when there was none.
    class Look {
      public:
        Look(RawFrames &owner, std::span<const uint8_t> frame, const ExposureSetting &exposure)
            : m_owner(owner), m_frame(frame), m_exposure(exposure)
        {
        }
        ~Look();
        Look(const Look &) = delete;
        Look &operator=(const Look &) = delete;

        std::span<const uint8_t> Frame() const { return m_frame; }
        const ExposureSetting &Exposure() const { return m_exposure; }

      private:
        RawFrames &m_owner;
        std::span<const uint8_t> m_frame;
        ExposureSetting m_exposure;
    };

    /// @param size  bytes of the largest frame
    explicit RawFrames(size_t size)
        : m_buffers{ZeroedBuffer(size), ZeroedBuffer(size), ZeroedBuffer(size)}
    {
    }

    /// The buffer to read into; for the worker, like the following two.
    uint8_t *Filling() const { return m_buffers[m_filling].data(); }

    /// What is to become of a whole frame in the buffer that was read into.
    struct Use {
        bool copied;   // by the frame buffer, until the next one that is
        bool lookedAt; // by the automatics, if they come for it before the next one
        ExposureSetting exposure = {};
    };
    /// Chooses the next buffer to read into. For the worker itself the frame stays until it reads.
    void Complete(size_t bytes, Use use);

    /// Forgets all frames: what is read from now on may have another format.
    void Reset();

    /// The latest frame that nobody looked at yet; none while another look lasts.
    /// @param shortOnly  leaves a frame of a long exposure for another time
    Look TakeLatest(bool shortOnly = false);

  private:
    static constexpr int kNone = -1;

    int FreeBuffer() const;

    ZeroedBuffer m_buffers[3];
    int m_filling = 0; // only the worker uses it

    CriticalSection m_section; // guards the following
    int m_copied = kNone;
    int m_lookedAt = kNone;
    int m_latest = kNone;
    size_t m_latestBytes = 0;
    ExposureSetting m_latestExposure;
};

} // namespace vsccam
