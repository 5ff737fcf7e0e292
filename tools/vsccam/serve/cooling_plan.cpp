#include "serve/cooling_plan.h"

#include "controls.h"
#include "cooling.h"

#include <vsccam.h>

#include <algorithm>

namespace vsctool::serve {
namespace {

constexpr size_t kMostReadings = 900; // an hour
constexpr double kWarmEnoughC = 1;    // below the warmest target, on a hot day

} // namespace

void CoolingPlan::Set(const CoolingWish &wish, double nowC)
{
    if (wish.on) {
        if (wish.rampCPerMin) {
            // What the camera refuses it refuses now.
            vsctool::Set("target-temp", wish.targetC);
            m_ramp = Ramp{nowC, static_cast<double>(wish.targetC), *wish.rampCPerMin, Clock::now()};
            Follow(nowC);
        } else {
            Regulate(wish.targetC);
            m_ramp.reset();
        }
        m_regulatesAt = wish.targetC;
        return;
    }
    m_regulatesAt.reset();
    m_ramp.reset();
    if (wish.atOnce || !getValue(CONTROL_COOLER_ON, nullptr))
        vsctool::Set("cooler", 0);
    else
        m_ramp = Ramp{nowC, static_cast<double>(getMax(CONTROL_TARGET_TEMP)),
                      wish.rampCPerMin.value_or(kUsualWarmingCPerMin), Clock::now(), true};
}

void CoolingPlan::Follow(double nowC)
{
    const double targetC =
        OnRamp(m_ramp->fromC, m_ramp->toC, m_ramp->cPerMin, Clock::now() - m_ramp->begun);
    const bool isWarm = m_ramp->endsOff && (nowC >= m_ramp->toC - kWarmEnoughC ||
                                            getValue(CONTROL_COOLER_POWER, nullptr) == 0);
    if (isWarm)
        vsctool::Set("cooler", 0);
    else
        MoveTarget(targetC);
    if (isWarm || (!m_ramp->endsOff && targetC == m_ramp->toC))
        m_ramp.reset();
}

void CoolingPlan::Step(double nowC)
{
    if (m_ramp)
        Follow(nowC);
    m_history.push_back({std::chrono::floor<Microseconds>(std::chrono::system_clock::now()), nowC,
                         getValue(CONTROL_TARGET_TEMP, nullptr),
                         getValue(CONTROL_COOLER_POWER, nullptr)});
    if (m_history.size() > kMostReadings)
        m_history.pop_front();
}

void CoolingPlan::Resume(double nowC)
{
    if (m_ramp)
        Follow(nowC);
    else if (m_regulatesAt)
        Regulate(*m_regulatesAt);
}

} // namespace vsctool::serve
