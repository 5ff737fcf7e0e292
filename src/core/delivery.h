#pragma once

#include "base/turns.h"
#include "base/zeroed_buffer.h"
#include "capture/capture.h"
#include "core/camera_model.h"
#include "core/corrections.h"
#include "core/gamma.h"
#include "core/settings.h"
#include "image/algorithm.h"
#include "image/frame_rows.h"

#include <cstdint>
#include <memory>

namespace vsccam {

/// The way of a frame from the ring to the host's buffer.
///
/// Threads. Threads of the host that want frames get them one after the other, in turns. What an
/// image is made with has no lock: it belongs to the thread that has the turn. Corrections and
/// gamma have locks of their own. While a Pause lasts there are no turns; what changes size or
/// format of the frames makes one.
class Delivery {
  public:
    class Pause;

    Delivery(const CameraModel &model, Capture &capture, const Guarded<Settings> &settings);

    /// Copies the next frame as an image of the format that is set.
    /// @param waitMs  longest wait, -1 for no limit
    bool GetImage(uint8_t *buffer, int size, int waitMs);
    bool GetImageAfterExp(uint8_t *buffer, int size);
    /// Ends for good what threads of the host wait for here.
    void EndWaits();

    Corrections corrections;
    GammaCurve gamma;

  private:
    class Wait;
    /// A frame, and what it is delivered by: as it was set at one moment, after the frame came.
    struct Job {
        Settings set;
        Readout readout;
        std::shared_ptr<const GammaTables> gamma; // null: linear
        uint8_t *frame = nullptr;                 // the host's buffer, or the work buffer
        uint8_t *buffer = nullptr;                // of the host
    };

    bool Deliver(uint8_t *buffer, int size, const Wait &wait);
    bool AwaitFrame(const Wait &wait);
    bool AwaitHeadMarkedFrame(const Wait &wait);
    /// Cameras that mark only the head of a frame: the worker cannot tell whether it is whole.
    bool ReaderChecksFrames() const { return !m_model.usb3Camera; }
    Job JobFor(uint8_t *buffer);
    bool ReadFrame(const Job &job);
    bool DeliversSamples(const Settings &set) const;
    bool DeliversAsRead(const Job &job) const;
    template <class Sample>
    FrameSteps<Sample> Prepare(const Job &job, const FrameCorrections &fixes);
    void Deliver16(const Job &job);
    void Deliver8(const Job &job);
    void FollowBalance(const Settings &set);

    const CameraModel &m_model;
    Capture &m_capture;
    const Guarded<Settings> &m_settings;
    Turns m_readers;

    // Of the thread that has the turn.
    CAlgorithm m_algorithm;
    int m_balanceInTable[2] = {-1, -1}; // red and blue that m_algorithm has its tables for
    ZeroedBuffer m_work;                // the frame in process
    RowScratch m_rowScratch;
};

/// While it lasts, no frame is on its way to the host: readers that wait for one have been sent
/// away, one that was processing it has finished, and those that come wait for its end. Pauses
/// contain each other; only one thread at a time makes them.
class Delivery::Pause {
  public:
    explicit Pause(Delivery &delivery);
    ~Pause();
    Pause(const Pause &) = delete;
    Pause &operator=(const Pause &) = delete;

  private:
    Turns::Pause m_readers;
    CirBuf &m_frames;
};

} // namespace vsccam
