#include "usb/request_budget.h"

#include <algorithm>

namespace vsccam {

using std::chrono::milliseconds;

namespace {

thread_local RequestBudget *t_budget = nullptr; // the innermost of this thread
thread_local bool t_leavesSafe = false;

} // namespace

void LossAccount::Open(const LossLimit &limit)
{
    m_workMs = static_cast<int>(limit.work.count());
    m_leaveSafeMs = static_cast<int>(limit.leaveSafe.count());
}

milliseconds LossAccount::Left(Purpose purpose) const
{
    return milliseconds(purpose == Purpose::LeaveSafe ? m_leaveSafeMs : m_workMs);
}

void LossAccount::Charge(Purpose purpose, milliseconds lost)
{
    (purpose == Purpose::LeaveSafe ? m_leaveSafeMs : m_workMs) += -static_cast<int>(lost.count());
}

milliseconds EndingAccount::Left(Purpose purpose, milliseconds atMost) const
{
    return m_waiting ? std::min(atMost, m_account.Left(purpose)) : atMost;
}

void EndingAccount::Charge(Purpose purpose, milliseconds lost)
{
    if (m_waiting)
        m_account.Charge(purpose, lost);
}

EndingAccount::Wait::Wait(EndingAccount &account)
    : m_ending(account), m_given{RequestBudget::Left(Purpose::Work, LossLimit().work),
                                 RequestBudget::Left(Purpose::LeaveSafe, LossLimit().leaveSafe)},
      m_outermost(!account.m_waiting)
{
    if (!m_outermost)
        return;
    m_ending.m_account.Open(m_given);
    m_ending.m_waiting = true;
}

EndingAccount::Wait::~Wait()
{
    if (!m_outermost)
        return;
    m_ending.m_waiting = false;
    const LossAccount &account = m_ending.m_account;
    RequestBudget::Charge(Purpose::Work, m_given.work - account.Left(Purpose::Work));
    RequestBudget::Charge(Purpose::LeaveSafe, m_given.leaveSafe - account.Left(Purpose::LeaveSafe));
}

RequestBudget::RequestBudget(const LossLimit &limit, const RunFlag *goOn)
    : m_account(limit), m_countsWaits(limit.countsWaits), m_goOn(goOn), m_outer(t_budget)
{
    t_budget = this;
}

RequestBudget::~RequestBudget()
{
    t_budget = m_outer;
}

milliseconds RequestBudget::Left(Purpose purpose, milliseconds atMost)
{
    milliseconds left = atMost;
    for (const RequestBudget *budget = t_budget; budget; budget = budget->m_outer) {
        const bool ended = budget->m_goOn && !*budget->m_goOn && purpose != Purpose::LeaveSafe;
        left = std::min(left, ended ? milliseconds(0) : budget->m_account.Left(purpose));
    }
    return left;
}

void RequestBudget::Charge(Purpose purpose, milliseconds lost)
{
    for (RequestBudget *budget = t_budget; budget; budget = budget->m_outer) {
        budget->m_account.Charge(purpose, lost);
        budget->m_hasLost = true;
    }
}

bool RequestBudget::HasLost()
{
    return t_budget && t_budget->m_hasLost;
}

void RequestBudget::ChargeWait(Clock::time_point since)
{
    constexpr milliseconds kUsual{100};
    constexpr milliseconds kStaysLeft{300};
    const auto waited = std::chrono::floor<milliseconds>(Clock::now() - since);
    if (waited <= kUsual)
        return;
    for (RequestBudget *budget = t_budget; budget; budget = budget->m_outer) {
        const milliseconds spare = budget->m_account.Left(Purpose::Work) - kStaysLeft;
        if (budget->m_countsWaits && spare.count() > 0)
            budget->m_account.Charge(Purpose::Work, std::min(waited, spare));
    }
}

LeavingSafe::LeavingSafe() : m_outer(t_leavesSafe)
{
    t_leavesSafe = true;
}

LeavingSafe::~LeavingSafe()
{
    t_leavesSafe = m_outer;
}

Purpose LeavingSafe::PurposeNow()
{
    return t_leavesSafe ? Purpose::LeaveSafe : Purpose::Work;
}

} // namespace vsccam
