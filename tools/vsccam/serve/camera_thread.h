#pragma once

#include "serve/camera_works.h"
#include "serve/jobs.h"

#include <functional>
#include <thread>

namespace vsctool::serve {

/// The thread that works the camera: all that takes long is done here, one thing after the other,
/// and what runs on its own account, a video or an exposure, is looked after in between.
class CameraThread {
  public:
    /// @param changed  is called after each job and each new frame
    CameraThread(CameraWorks &works, JobQueue &jobs, std::function<void()> changed);
    ~CameraThread();
    CameraThread(const CameraThread &) = delete;
    CameraThread &operator=(const CameraThread &) = delete;

  private:
    void Run();

    CameraWorks &m_works;
    JobQueue &m_jobs;
    const std::function<void()> m_changed;
    std::thread m_thread; // Run; ended by the end of the queue, joined by the destructor
};

} // namespace vsctool::serve
