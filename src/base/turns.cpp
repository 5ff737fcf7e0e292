#include "base/turns.h"

namespace vsccam {

Turns::Turn::Turn(Turns &turns, Clock::time_point deadline) : m_turns(turns)
{
    {
        SectionLock lock(m_turns.m_section);
        Turn **last = &m_turns.m_first;
        while (*last)
            last = &(*last)->m_next;
        *last = this;
        m_ended = m_turns.m_closed;
        (void)m_turns.m_changed.WaitUntil(lock, deadline, [this]() VSC_REQUIRES(m_turns.m_section) {
            return m_ended || IsNext();
        });
        m_granted = !m_ended && IsNext();
    }
    if (!m_granted)
        m_turns.Remove(*this);
}

bool Turns::Turn::IsNext() const
{
    return m_turns.m_first == this && m_turns.m_pauses == 0;
}

Turns::Turn::~Turn()
{
    if (m_granted)
        m_turns.Remove(*this);
}

void Turns::Remove(const Turn &turn)
{
    {
        const SectionLock lock(m_section);
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
        const SectionLock lock(m_section);
        m_closed = true;
        EndAll();
    }
    m_changed.NotifyAll();
}

Turns::Pause::Pause(Turns &turns) : m_turns(turns)
{
    {
        const SectionLock lock(turns.m_section);
        if (turns.m_pauses++ == 0) // in a pause that contains this one, all have left already
            turns.EndAll();
    }
    turns.m_changed.NotifyAll();
}

Turns::Pause::~Pause()
{
    {
        const SectionLock lock(m_turns.m_section);
        --m_turns.m_pauses;
    }
    m_turns.m_changed.NotifyAll();
}

void Turns::Pause::AwaitEnd()
{
    SectionLock lock(m_turns.m_section);
    m_turns.m_changed.Wait(lock, [this]() VSC_REQUIRES(m_turns.m_section) {
        return m_turns.m_closed || !m_turns.OthersToLeave();
    });
}

} // namespace vsccam
