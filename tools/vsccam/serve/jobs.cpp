#include "serve/jobs.h"

#include "failure.h"
#include "serve/camera_works.h"

#include <utility>

namespace vsctool::serve {
namespace {

std::exception_ptr ServerEnds()
{
    return std::make_exception_ptr(Failure(Exit::kFailure, "the server ends"));
}

} // namespace

void Job::Do(CameraWorks &works)
{
    std::exception_ptr failure;
    try {
        m_work(works);
    } catch (const std::exception &) {
        failure = std::current_exception();
    }
    works.Publish(); // first: whoever asked for it looks at what has become of it
    End(failure);
}

void Job::End(std::exception_ptr failure)
{
    const std::lock_guard lock(m_mutex);
    m_failure = std::move(failure);
    m_done = true;
}

bool Job::IsDone() const
{
    const std::lock_guard lock(m_mutex);
    return m_done;
}

void Job::CheckResult() const
{
    const std::lock_guard lock(m_mutex);
    if (m_failure)
        std::rethrow_exception(m_failure);
}

JobPtr JobQueue::Post(Job::Work work)
{
    auto job = std::make_shared<Job>(std::move(work));
    {
        const std::lock_guard lock(m_mutex);
        if (m_closed)
            job->Fail(ServerEnds());
        else
            m_jobs.push_back(job);
    }
    m_changed.notify_one();
    return job;
}

JobPtr JobQueue::Next(std::chrono::milliseconds wait)
{
    std::unique_lock lock(m_mutex);
    m_changed.wait_for(lock, wait, [this] { return m_closed || !m_jobs.empty(); });
    if (m_jobs.empty())
        return nullptr;
    JobPtr job = std::move(m_jobs.front());
    m_jobs.pop_front();
    return job;
}

bool JobQueue::IsClosed() const
{
    const std::lock_guard lock(m_mutex);
    return m_closed;
}

void JobQueue::Close()
{
    std::deque<JobPtr> left;
    {
        const std::lock_guard lock(m_mutex);
        m_closed = true;
        left.swap(m_jobs);
    }
    m_changed.notify_one();
    for (const JobPtr &job : left)
        job->Fail(ServerEnds());
}

} // namespace vsctool::serve
