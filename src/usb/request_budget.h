#pragma once

#include "base/sync.h"

#include <chrono>

namespace vsccam {

/// What a request is for, which decides how long it may keep somebody waiting.
enum class Purpose {
    Work,
    LeaveSafe, // brings the camera into a harmless state when something ends
    Probe,     // finds out whether the camera answers
};

/// The time that requests without an answer may take. Requests that leave the camera safe have a
/// time of their own, which is still there when the other one is used up.
struct LossLimit {
    std::chrono::milliseconds work{1000};
    std::chrono::milliseconds leaveSafe{700};
    /// Whether time counts as lost, too, in which this thread waits while another thread waits for
    /// an answer. It counts where somebody waits for this thread.
    bool countsWaits = true;
};

/// How much of it is left. Thread-safe.
class LossAccount {
  public:
    explicit LossAccount(const LossLimit &limit) { Open(limit); }

    void Open(const LossLimit &limit);

    std::chrono::milliseconds Left(Purpose purpose) const;
    void Charge(Purpose purpose, std::chrono::milliseconds lost);

  private:
    Shared<int> m_workMs;
    Shared<int> m_leaveSafeMs;
};

/// The time that threads may lose while somebody waits for them to end: all of them together may
/// lose no more than is left to the one who waits. While nobody waits there is no limit.
/// Thread-safe.
class EndingAccount {
  public:
    /// The least of what is left and `atMost`.
    std::chrono::milliseconds Left(Purpose purpose, std::chrono::milliseconds atMost) const;
    void Charge(Purpose purpose, std::chrono::milliseconds lost);

    /// While it lives, this thread waits for the others, and is charged in the end with what they
    /// lost. One within another does nothing.
    class Wait {
      public:
        explicit Wait(EndingAccount &account);
        ~Wait();
        Wait(const Wait &) = delete;
        Wait &operator=(const Wait &) = delete;

      private:
        EndingAccount &m_ending;
        const LossLimit m_given;
        const bool m_outermost;
    };

  private:
    LossAccount m_account{LossLimit()}; // in force while somebody waits
    Shared<bool> m_waiting;
};

/// While it lives, the requests of this thread together may lose no more than its limit: a camera
/// that answers now and then must not hold a call of the host for the sum of all time-outs. Once it
/// is used up, requests fail without being sent. One within another ends with whichever is used up
/// first.
class RequestBudget {
  public:
    /// The limit is by default that of a call of the host, with all that the call waits for.
    /// @param goOn  once it is cleared, only requests that leave the camera safe have time left
    explicit RequestBudget(const LossLimit &limit = {}, const RunFlag *goOn = nullptr);
    ~RequestBudget();
    RequestBudget(const RequestBudget &) = delete;
    RequestBudget &operator=(const RequestBudget &) = delete;

    /// The least of what is left of `atMost` and of all budgets that this thread is within.
    static std::chrono::milliseconds Left(Purpose purpose, std::chrono::milliseconds atMost);
    static bool HasLost();
    static bool IsUsedUp() { return Left(Purpose::Work, kShortest) < kShortest; }
    static void Charge(Purpose purpose, std::chrono::milliseconds lost);
    /// Counts a wait, unless it is of the usual length. It leaves enough for a request or two,
    /// which a healthy camera answers.
    static void ChargeWait(Clock::time_point since);

    /// Less than this is too short for any answer: nothing is sent then.
    static constexpr std::chrono::milliseconds kShortest{20};

  private:
    LossAccount m_account;
    bool m_hasLost = false;
    const bool m_countsWaits;
    const RunFlag *const m_goOn;
    RequestBudget *const m_outer;
};

/// The lock for requests that belong together. Waiting for it is waiting for the answers that
/// another thread waits for, and is charged like that.
class VSC_CAPABILITY RequestSection {
  public:
    void lock() VSC_ACQUIRE() VSC_NO_ANALYSIS // it passes for the section that it is made of
    {
        const auto start = Clock::now();
        m_section.lock();
        RequestBudget::ChargeWait(start);
    }
    void unlock() VSC_RELEASE() VSC_NO_ANALYSIS { m_section.unlock(); }

  private:
    RecursiveCriticalSection m_section;
};

/// While it lives, the requests of this thread leave the camera safe: they go out also to a camera
/// that has been mute of late, and once more when it refuses.
class LeavingSafe {
  public:
    LeavingSafe();
    ~LeavingSafe();
    LeavingSafe(const LeavingSafe &) = delete;
    LeavingSafe &operator=(const LeavingSafe &) = delete;

    /// What the requests of this thread are for.
    static Purpose PurposeNow();

  private:
    const bool m_outer;
};

} // namespace vsccam
