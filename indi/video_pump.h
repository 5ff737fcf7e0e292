#pragma once

#include "camera_session.h"

#include <array>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace vscindi {

/// Hands the frames of a video to the base class, on a thread of its own: the base class copies
/// each, writes recordings and talks to the server meanwhile, for as long as that takes. Whoever is
/// slow finds no free buffer, and the camera goes on.
class VideoPump : public VideoTaker {
  public:
    using Hand = std::function<void(std::vector<uint8_t> &frame)>;

    explicit VideoPump(Hand hand);
    ~VideoPump() override;
    VideoPump(const VideoPump &) = delete;
    VideoPump &operator=(const VideoPump &) = delete;

    uint8_t *TryBegin(size_t bytes) override;
    void End(bool isFrame) override;

    void Start();
    /// Afterwards no frame is handed over: waits for the one that is, unless this is called by the
    /// base class while it takes it.
    void Stop();

  private:
    void Run();

    Hand m_hand;
    std::array<std::vector<uint8_t>, 4> m_buffers;
    std::mutex m_mutex; // guards all that follows
    std::condition_variable m_changed;
    std::deque<std::vector<uint8_t> *> m_free;
    std::deque<std::vector<uint8_t> *> m_ready;
    std::vector<uint8_t> *m_filling = nullptr;
    bool m_runs = false;
    bool m_handing = false;
    bool m_ending = false;
    std::thread m_thread; // joined by the destructor
};

} // namespace vscindi
