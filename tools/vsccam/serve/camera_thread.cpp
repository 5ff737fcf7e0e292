#include "serve/camera_thread.h"

namespace vsctool::serve {

CameraThread::CameraThread(CameraWorks &works, JobQueue &jobs, std::function<void()> changed)
    : m_works(works), m_jobs(jobs), m_changed(std::move(changed)), m_thread([this] { Run(); })
{
}

CameraThread::~CameraThread()
{
    m_jobs.Close();
    m_thread.join();
}

void CameraThread::Run()
{
    auto wait = std::chrono::milliseconds(0);
    while (!m_jobs.IsClosed()) {
        if (const JobPtr job = m_jobs.Next(wait))
            job->Do(m_works);
        wait = m_works.Turn();
        if (m_works.HasNews())
            m_changed();
    }
    m_works.End();
    m_changed();
}

} // namespace vsctool::serve
