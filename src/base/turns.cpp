#include "base/turns.h"

#include <mutex>

namespace vsccam {

Turns::Turn::Turn(Turns &turns, Clock::time_point deadline) : m_turns(turns)
{
    {
        std::unique_lock lock(turns.m_section);
        Turn **last = &turns.m_first;
        while (*last)
            last = &(*last)->m_next;
        *last = this;
        m_ended = turns.m_closed;
        const auto isNext = [this] { return m_turns.m_first == this && m_turns.m_pauses == 0; };
        (void)turns.m_changed.WaitUntil(lock, deadline, [&] { return m_ended || isNext(); });
        m_granted = !m_ended && isNext();
    }
    if (!m_granted)
        m_turns.Remove(*this);
}

Turns::Turn::~Turn()
{
    if (m_granted)
        m_turns.Remove(*this);
}

void Turns::Remove(const Turn &turn)
{
    {
        const std::lock_guard lock(m_section);
        Turn **link = &m_first;
        while (*link != &turn)
            link = &(*link)->m_next;
        *link = turn.m_next;
    }
    m_changed.NotifyAll();
}

void Turns::EndAll()
{
    for (Turn *turn = m_first; turn; turn = turn->m_next)
        turn->m_ended = true;
}

bool Turns::OthersToLeave() const
{
    const auto self = std::this_thread::get_id();
    const Turn *turn = m_first;
    while (turn && (!turn->m_ended || turn->m_thread == self))
        turn = turn->m_next;
    return turn != nullptr;
}

void Turns::Close()
{
    {
        const std::lock_guard lock(m_section);
        m_closed = true;
        EndAll();
    }
    m_changed.NotifyAll();
}

Turns::Pause::Pause(Turns &turns) : m_turns(turns)
{
    {
        const std::lock_guard lock(turns.m_section);
        if (turns.m_pauses++ == 0) // in a pause that contains this one, all have left already
            turns.EndAll();
    }
    turns.m_changed.NotifyAll();
}

Turns::Pause::~Pause()
{
    {
        const std::lock_guard lock(m_turns.m_section);
        --m_turns.m_pauses;
    }
    m_turns.m_changed.NotifyAll();
}

void Turns::Pause::AwaitEnd()
{
    std::unique_lock lock(m_turns.m_section);
    m_turns.m_changed.Wait(lock, [this] { return m_turns.m_closed || !m_turns.OthersToLeave(); });
}

} // namespace vsccam
