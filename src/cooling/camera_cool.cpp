#include "cooling/camera_cool.h"

#include "base/debug_print.h"
#include "usb/requests.h"

#include <cmath>
#include <utility>

namespace vsccam {

using namespace std::chrono_literals;

namespace {

constexpr uint16_t kFpgaFan = 25;
constexpr uint16_t kFanRuns = 0x00; // what the other bits do is not known
constexpr uint16_t kFanStands = 0x80;

constexpr ControlGains kGains{.p = 0.2F, .i = 0.0F, .d = 0.6F};

// A control step about every 3.6 s, with two readings in between.
constexpr auto kPauseBeforeFirstStep = 200ms;
constexpr auto kPauseBeforeReading = 200ms;
constexpr auto kPauseAfterReading = 1590ms;

// Without a reading, the power is held for so long and then taken back in each turn.
constexpr auto kHoldWithoutReading = 60s;
constexpr float kGiveWayPercent = 5.0F;

} // namespace

bool CCameraCool::CloseCamera()
{
    const RequestBudget budget;
    cooler.running.Clear(); // both threads end at the same time
    (void)StopCapture();
    StopAutoTempThr();
    return CCameraBase::CloseCamera();
}

bool CCameraCool::SetDA(int code)
{
    const SectionLock lock(cooler.section);
    if (code == m_cooler.lastCodeSent)
        return true;
    m_cooler.driveCode = m_cooler.lastCodeSent = code;
    OutputDbgPrint("Set DA %d \n", code);
    const auto value = static_cast<uint16_t>(code);
    const bool ok = code == kNoCurrentCode
                        ? SendOff(request::kCoolerDrive, value)
                        : SendCMD(request::kCoolerDrive, value, 0, false, nullptr, 0);
    // A code whose request failed counts as sent, and the controller goes on from it. "Off" does
    // not: it is sent again the next time it is asked for, since a cooler must not stay on.
    if (!ok && code == kNoCurrentCode)
        m_cooler.lastCodeSent = kNothingSent;
    return ok;
}

bool CCameraCool::SetPowerPerc(float percent)
{
    const SectionLock lock(cooler.section);
    const DriveSetting drive = DriveForPower(percent);
    OutputDbgPrint("fIPerc%.2f iDA%d \n", static_cast<double>(drive.percent), drive.code);
    const bool ok = SetDA(drive.code);
    cooler.state.With([&drive](CoolerState &s) { s.powerPercent = drive.percent; });
    return ok;
}

void CCameraCool::SetAutoTemp(bool on, float targetC)
{
    const SectionLock lock(cooler.section);
    cooler.state.With([=](CoolerState &s) {
        s.on = on;
        s.targetC = TargetDegrees(targetC);
    });
    m_cooler.heldPower.reset();
    PID_init(kGains.p, kGains.i, kGains.d);
}

void CCameraCool::PID_init(float kp, float ki, float kd)
{
    m_cooler.control.Restart({kp, ki, kd});
    OutputDbgPrint("p%.2f d%.2f\n", static_cast<double>(kp), static_cast<double>(kd));
}

bool CCameraCool::SetFanOn(bool on)
{
    const SectionLock lock(cooler.section);
    const bool ok = WriteFPGAREG(kFpgaFan, on ? kFanRuns : kFanStands);
    if (ok)
        cooler.state.With([on](CoolerState &s) { s.fanOn = on; });
    return ok;
}

void CCameraCool::StartAutoTempThr()
{
    (void)SetFanOn(true); // its state tells
    if (cooler.running)
        return;
    {
        const SectionLock lock(cooler.section);
        m_cooler.lastReading = Clock::now(); // the wait for the first one begins
    }
    cooler.running.Set();
    if (!cooler.thread.Start([this] { AutoTempFunc(); }))
        cooler.running.Clear();
}

void CCameraCool::StopAutoTempThr()
{
    if (!cooler.thread.Started())
        return;
    cooler.running.Clear();
    OutputDbgPrint("AutoTempThr bf wait\n");
    {
        const EndOfThreads end(*this);
        cooler.thread.Join();
    }
    OutputDbgPrint("AutoTempThr af wait\n");
    (void)SetPowerPerc(0.0F); // nothing is left to try
}

void CCameraCool::OnInitialised()
{
    const SectionLock lock(cooler.section); // no control step in between
    StartAutoTempThr();
    (void)SetPowerPerc(0.0F); // that a camera is mute is noticed elsewhere
    SetAutoTemp(false, static_cast<float>(cooler.state.Now().targetC));
}

void CCameraCool::OnReconnected()
{
    const SectionLock lock(cooler.section);
    (void)SetFanOn(cooler.state.Now().fanOn);
    m_cooler.lastCodeSent = kNothingSent; // the camera forgot it
    (void)SetDA(m_cooler.driveCode);
}

void CCameraCool::AutoTempFunc()
{
    OutputDbgPrint("Thread AutoTemp start!\n");
    uint32_t readings = temperature.Readings();
    bool running = cooler.running.SleepFor(kPauseBeforeFirstStep);
    while (running) {
        const uint32_t before = std::exchange(readings, temperature.Readings());
        AutoTemp(readings != before ? std::optional<float>(temperature.Celsius()) : std::nullopt);
        running = ReadTemperature() && ReadTemperature();
    }
    OutputDbgPrint("Thread AutoTemp Exit!\n");
}

/// Lets the driver store a fresh reading; false when the thread is to end.
bool CCameraCool::ReadTemperature()
{
    if (!cooler.running.SleepFor(kPauseBeforeReading))
        return false;
    (void)GetSensorTemp();
    return cooler.running.SleepFor(kPauseAfterReading);
}

/// The end of a turn, with the last reading that was made in it.
void CCameraCool::AutoTemp(std::optional<float> reading)
{
    const SectionLock lock(cooler.section);
    const bool taken = reading && TakeReading(*reading);
    if (!cooler.state.Now().on)
        return;
    if (taken)
        Regulate(*reading);
    else if (Clock::now() - m_cooler.lastReading >= kHoldWithoutReading)
        GiveWay();
}

/// @return false for a glitch
bool CCameraCool::TakeReading(float celsius)
{
    if (const auto change = m_cooler.control.TakeReading(celsius, GetTickCount())) {
        OutputDbgPrint("fPreTemp%.2f, now_temp%.2f, deltaMs %d, %.2fC/S\n",
                       static_cast<double>(change->previousC), static_cast<double>(celsius),
                       static_cast<int>(change->deltaMs), static_cast<double>(change->cPerS));
        if (change->IsGlitch())
            return false;
    }
    m_cooler.lastReading = Clock::now();
    return true;
}

void CCameraCool::Regulate(float celsius)
{
    if (m_cooler.heldPower)
        EndGivingWay(celsius);
    const Correction step =
        m_cooler.control.Step(static_cast<float>(cooler.state.Now().targetC), celsius);
    OutputDbgPrint("T%.2f p%.2f i%.2f d%.2f cur%.2f\n", static_cast<double>(celsius),
                   static_cast<double>(step.p), static_cast<double>(step.i),
                   static_cast<double>(step.d),
                   static_cast<double>(cooler.state.Now().powerPercent));
    // Called before this returns, with the section held.
    const auto setPower = [this](float percent) VSC_NO_ANALYSIS {
        (void)SetPowerPerc(percent); // the controller does not repeat what failed
        return DriveSetting{cooler.state.Now().powerPercent, m_cooler.driveCode};
    };
    ApplyCorrection(step, {cooler.state.Now().powerPercent, m_cooler.driveCode}, setPower);
}

/// Takes some of the power back. Target and regulation stay as they are set.
void CCameraCool::GiveWay()
{
    if (!m_cooler.heldPower) {
        OutputDbgPrint("no temperature for %d s, cooler power falls\n",
                       static_cast<int>(kHoldWithoutReading.count()));
        m_cooler.heldPower = cooler.state.Now().powerPercent;
    }
    const float percent = cooler.state.Now().powerPercent - kGiveWayPercent;
    (void)SetPowerPerc(percent); // at 0 until it is heard
}

/// A sensor that is still at its target was kept there by the power that was held before. The same
/// goes for one at exactly 0 degrees, which looks like no reading until it gets a little warmer.
void CCameraCool::EndGivingWay(float celsius)
{
    PID_init(kGains.p, kGains.i, kGains.d); // the last error is too old to make a slope of
    if (std::abs(static_cast<float>(cooler.state.Now().targetC) - celsius) <= kDeadBandC)
        (void)SetPowerPerc(*m_cooler.heldPower);
    m_cooler.heldPower.reset();
}

} // namespace vsccam
