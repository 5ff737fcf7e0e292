#include "serve/http/waiters.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

namespace vsctool::serve {
namespace {

using namespace std::chrono_literals;

constexpr auto kLookInterval = 1s;

/// Who waits sends nothing more, or the next request; an end that can be read is the end.
bool IsGone(int socket)
{
    char byte = 0;
    const ssize_t read = recv(socket, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
    return read == 0 || (read < 0 && errno != EAGAIN && errno != EINTR);
}

} // namespace

Waiters::Waiters(unsigned threads)
{
    for (unsigned i = 0; i < threads; ++i)
        m_threads.emplace_back([this] { Work(); });
}

Waiters::~Waiters()
{
    End();
}

bool Waiters::Add(Ask ask, Clock::time_point deadline, int socket)
{
    {
        const std::lock_guard lock(m_mutex);
        if (m_ending)
            return false;
        m_items.push_back({std::move(ask), deadline, socket, Clock::now() + kLookInterval});
    }
    m_changed.notify_one();
    return true;
}

void Waiters::Wake()
{
    {
        const std::lock_guard lock(m_mutex);
        ++m_changes;
    }
    m_changed.notify_all();
}

void Waiters::End()
{
    {
        const std::lock_guard lock(m_mutex);
        m_ending = true;
    }
    m_changed.notify_all();
    for (std::thread &thread : m_threads)
        thread.join();
    m_threads.clear();
}

void Waiters::Work()
{
    std::unique_lock lock(m_mutex);
    for (;;) {
        const auto now = Clock::now();
        if (const auto due = NextDue(now); due != m_items.end())
            Serve(due, now, lock);
        else if (m_ending)
            return; // those that are left are being asked, for the last time
        else if (m_items.empty())
            m_changed.wait(lock);
        else
            m_changed.wait_until(lock, NextTime());
    }
}

Waiters::Items::iterator Waiters::NextDue(Clock::time_point now)
{
    return std::ranges::find_if(m_items, [&](const Item &item) {
        return !item.busy &&
               (m_ending || item.seen != m_changes || now >= item.deadline || now >= item.nextLook);
    });
}

Waiters::Clock::time_point Waiters::NextTime() const
{
    auto next = Clock::time_point::max();
    for (const Item &item : m_items)
        if (!item.busy)
            next = std::min({next, item.deadline, item.nextLook});
    // A wait without an end overflows inside the library; whoever is busy looks again by itself.
    return std::min(next, Clock::now() + kLookInterval);
}

void Waiters::Serve(Items::iterator item, Clock::time_point now, std::unique_lock<std::mutex> &lock)
{
    bool last = m_ending || now >= item->deadline;
    item->busy = true;
    item->seen = m_changes;
    lock.unlock();
    if (now >= item->nextLook) {
        last = last || IsGone(item->socket);
        item->nextLook = now + kLookInterval; // of this thread alone while it is busy
    }
    const bool done = item->ask(last);
    lock.lock();
    item->busy = false;
    if (done)
        m_items.erase(item);
}

} // namespace vsctool::serve
