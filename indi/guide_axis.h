#pragma once

#include <vsccam.h>

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace vscindi {

/// One axis of the guide port. Its pulses follow each other; those of the other axis do not wait
/// for them. The library times a pulse and keeps opposite lines apart.
class GuideAxis {
  public:
    /// @param ended  called on the thread of the axis; whether the pulse had its time
    explicit GuideAxis(std::function<void(bool whole)> ended);
    /// Waits for the end of a pulse: closing the camera ends it at once.
    ~GuideAxis();
    GuideAxis(const GuideAxis &) = delete;
    GuideAxis &operator=(const GuideAxis &) = delete;

    void Pulse(GuideD direction, int ms);
    /// Forgets the pulses that wait.
    void Clear();

  private:
    struct Waiting {
        GuideD direction;
        int ms;
    };

    void Run();

    std::function<void(bool)> m_ended;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<Waiting> m_waiting; // guarded by m_mutex
    bool m_ending = false;         // likewise
    std::thread m_thread; // the only caller of pulseGuide for these lines; joined at the end
};

} // namespace vscindi
