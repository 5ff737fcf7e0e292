#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>

namespace vsctool::serve {

class CameraWorks;

/// Something that the thread of the camera is to do, and how it went. Any thread may ask.
class Job {
  public:
    using Work = std::function<void(CameraWorks &)>;

    explicit Job(Work work) : m_work(std::move(work)) {}

    void Do(CameraWorks &works);
    /// It will not be done.
    void Fail(std::exception_ptr why) { End(std::move(why)); }

    bool IsDone() const;
    /// Throws what the work has thrown.
    void CheckResult() const;

  private:
    void End(std::exception_ptr failure);

    const Work m_work;
    mutable std::mutex m_mutex; // guards what follows
    bool m_done = false;
    std::exception_ptr m_failure;
};
using JobPtr = std::shared_ptr<Job>;

/// The jobs that wait for the camera's thread.
class JobQueue {
  public:
    /// Of any thread. A job that comes when the queue is closed has failed.
    JobPtr Post(Job::Work work);

    /// Of the camera's thread: the next job, which it waits for; nothing when none comes in that
    /// time, or when the queue is closed.
    JobPtr Next(std::chrono::milliseconds wait);
    bool IsClosed() const;

    /// No more jobs; those that wait have failed.
    void Close();

  private:
    mutable std::mutex m_mutex; // guards the next two
    std::deque<JobPtr> m_jobs;
    bool m_closed = false;
    std::condition_variable m_changed;
};

} // namespace vsctool::serve
