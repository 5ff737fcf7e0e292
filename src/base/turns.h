#pragma once

#include "base/sync.h"

#include <thread>

namespace vsccam {

/// Something that one thread at a time may do. The others wait, and get their turns in the order in
/// which they came.
class Turns {
  public:
    class Turn;
    class Pause;

    Turns() = default;
    Turns(const Turns &) = delete;
    Turns &operator=(const Turns &) = delete;

    /// Ends all turns, as a Pause does, and grants none from now on. Waits for nobody.
    void Close();

  private:
    void EndAll() VSC_REQUIRES(m_section);
    void Remove(const Turn &turn) VSC_EXCLUDES(m_section);
    bool OthersToLeave() const VSC_REQUIRES(m_section);

    CriticalSection m_section; // also guards the turns in the queue
    Condition m_changed;
    /// The turn that is taken, and behind it those that wait.
    Turn *m_first VSC_GUARDED_BY(m_section) = nullptr;
    int m_pauses VSC_GUARDED_BY(m_section) = 0;
    bool m_closed VSC_GUARDED_BY(m_section) = false;
};

/// The turn of one thread. The constructor waits for it, and the destructor ends it.
class Turns::Turn {
  public:
    /// The turn is not granted when the deadline passes, or a Pause or Close comes, before the
    /// thread's turn has come.
    explicit Turn(Turns &turns, Clock::time_point deadline = kNever);
    ~Turn();
    Turn(const Turn &) = delete;
    Turn &operator=(const Turn &) = delete;

    explicit operator bool() const { return m_granted; }

  private:
    friend Turns;

    bool IsNext() const VSC_REQUIRES(m_turns.m_section);

    Turns &m_turns;
    const std::thread::id m_thread = std::this_thread::get_id();
    Turn *m_next = nullptr;
    bool m_ended = false; // it is to leave
    bool m_granted = false;
};

/// Ends the turn that is taken, and those that threads wait for. Threads that come later wait until
/// the pause is over.
class Turns::Pause {
  public:
    explicit Pause(Turns &turns);
    ~Pause();
    Pause(const Pause &) = delete;
    Pause &operator=(const Pause &) = delete;

    /// Waits until the threads whose turns were ended have left. It waits neither after a Close nor
    /// for the calling thread itself, which a signal may have brought here from within its turn.
    void AwaitEnd();

  private:
    Turns &m_turns;
};

} // namespace vsccam
