#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <list>
#include <mutex>
#include <thread>
#include <vector>

namespace vsctool::serve {

/// Answers that clients wait for, and the threads that look for them.
class Waiters {
  public:
    using Clock = std::chrono::steady_clock;

    /// Looks for an answer and hands it over, in which case it returns true. There is no other
    /// chance when it is the last one: it must return true then.
    using Ask = std::function<bool(bool last)>;

    explicit Waiters(unsigned threads);
    ~Waiters();
    Waiters(const Waiters &) = delete;
    Waiters &operator=(const Waiters &) = delete;

    /// @param socket  of the client: when it is closed over there, nobody waits any more
    /// @return false when the server ends: nobody will ask
    bool Add(Ask ask, Clock::time_point deadline, int socket);

    /// Something has changed: all are asked again.
    void Wake();

    /// Asks all for the last time.
    void End();

  private:
    struct Item {
        Ask ask;
        Clock::time_point deadline;
        int socket;
        Clock::time_point nextLook; // at the socket
        uint64_t seen = 0;          // the change that it was asked after
        bool busy = false;          // a thread asks
    };
    using Items = std::list<Item>;

    void Work();
    Items::iterator NextDue(Clock::time_point now);
    Clock::time_point NextTime() const;
    void Serve(Items::iterator item, Clock::time_point now, std::unique_lock<std::mutex> &lock);

    std::mutex m_mutex; // guards what follows
    std::condition_variable m_changed;
    Items m_items;
    uint64_t m_changes = 1;
    bool m_ending = false;
    std::vector<std::thread> m_threads; // ended and joined by End
};

} // namespace vsctool::serve
