#pragma once

#include "base/guarded.h"
#include "base/sync.h"
#include "capture/capture.h"
#include "core/auto_white_balance.h"
#include "core/programming.h"
#include "core/raw_frame.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <utility>

namespace vsccam {

/// Automatic exposure and gain, and automatic white balance: looks at raw frames and sets what it
/// decides the way a host would.
///
/// Of short frames the auto-control thread looks at the latest one in every pass; it is started by
/// the capture worker in video mode, joined by it, and ends with the capture, too. Of other frames
/// the worker looks at each by itself.
class Automatics {
  public:
    /// How the camera sets what was decided.
    struct Setters {
        std::function<void(int gain)> gain; // leaves the automatic as it is
        std::function<void(unsigned long long us)> exposure;
        std::function<void(WhiteBalance)> balance;
    };

    Automatics(const CameraModel &model, Guarded<Settings> &settings, Programming &programming,
               Capture &capture, Setters setters)
        : m_model(model), m_settings(settings), m_programming(programming), m_capture(capture),
          m_set(std::move(setters))
    {
    }

    /// One step of automatic exposure and gain, and of automatic white balance, on a raw frame that
    /// nobody writes: of the ring, or the worker's own. What a frame says of an exposure that is
    /// no longer in force is no reason for a step.
    void AutoExpGain(std::span<const uint8_t> frame, const ExposureSetting &exposure);
    void AutoWhiBal(std::span<const uint8_t> frame);

    /// The auto-control thread looks at the latest frame once in every pass, as far as there is
    /// something to do: exposure and gain of short frames, and in every fourth pass white balance.
    void startAutoControlThr(std::chrono::milliseconds pass);
    void stopAutoControlThr();

  private:
    void SetGainExpFunc(std::chrono::milliseconds pass);
    void LookAtLatest(bool whiteBalanceToo);
    std::optional<RawFrame> AsRawFrame(std::span<const uint8_t> bytes, const Settings &now) const;

    const CameraModel &m_model;
    Guarded<Settings> &m_settings;
    Programming &m_programming;
    Capture &m_capture;
    const Setters m_set;

    Thread m_thread; // ends with the capture
};

} // namespace vsccam
