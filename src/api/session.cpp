#include "api/session.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <new>
#include <utility>

namespace vsccam {

using namespace std::chrono_literals;

namespace {

// The time that calls have to leave a camera before its device is closed. After that their requests
// fail at once, so that they end soon.
constexpr auto kTimeToLeave = 300ms;

// At the end of the process, when nobody may be left who could leave.
constexpr auto kLastTurn = 2s;
constexpr auto kLastTimeToLeave = 1s;

thread_local int t_inside = 0; // calls of this thread in a camera

} // namespace

CCameraBase *Session::Enter()
{
    const SectionLock lock(m_insideSection);
    if (pCamera) {
        ++m_inside;
        ++t_inside;
    }
    return pCamera.get();
}

void Session::Leave()
{
    {
        const SectionLock lock(m_insideSection);
        --m_inside;
        --t_inside;
    }
    m_left.NotifyAll();
}

bool Session::AwaitLeaving(Clock::time_point limit)
{
    SectionLock lock(m_insideSection);
    return m_left.WaitUntil(
        lock, limit, [this]() VSC_REQUIRES(m_insideSection) { return m_inside <= t_inside; });
}

bool Session::HasCamera() const
{
    const SectionLock lock(m_insideSection);
    return pCamera != nullptr;
}

void Session::InstallCamera(std::unique_ptr<CCameraBase> camera, int index)
{
    iCamIndex = index;
    m_ownerPid = getpid();
    data_lenth = 0;
    const SectionLock lock(m_insideSection);
    pCamera = std::move(camera);
}

void Session::CloseCamera(Clock::time_point limit)
{
    std::unique_ptr<CCameraBase> camera;
    {
        const SectionLock lock(m_insideSection);
        camera = std::move(pCamera); // nobody enters it any more
    }
    data_lenth = 0;
    if (!camera)
        return;
    camera->delivery.EndWaits();
    camera->guide.EndPulses();
    (void)AwaitLeaving(Clock::now() + kTimeToLeave);
    (void)camera->CloseCamera(); // false when the device was not open
    if (!AwaitLeaving(limit) || t_inside > 0)
        (void)camera.release();
}

void Session::EndWithProcess()
{
    if (m_ownerPid != getpid())
        return; // never opened, or a forked child: camera and threads are its parent's
    // A signal handler may have ended the process from within a call, which then never leaves.
    const Turns::Turn turn(m_lifecycle, Clock::now() + kLastTurn);
    if (turn)
        CloseCamera(Clock::now() + kLastTimeToLeave);
}

CameraList Session::ConnectedCameras()
{
    const SectionLock lock(m_listSection);
    return m_cameras;
}

CameraChoice Session::Choice()
{
    const SectionLock lock(m_listSection);
    return m_choice;
}

void Session::SetConnectedCameras(std::span<const uint32_t> productIds, CameraChoice choice)
{
    const SectionLock lock(m_listSection);
    m_choice = std::move(choice);
    std::ranges::copy(productIds, m_cameras.productIds);
    m_cameras.count = static_cast<int>(productIds.size());
}

Session &TheSession()
{
    struct EndOfProcess {
        Session &session;
        ~EndOfProcess() { session.EndWithProcess(); }
    };
    // Never destroyed: threads of the host may be inside when its process ends.
    alignas(Session) static std::byte room[sizeof(Session)];
    static Session &session = *new (room) Session;
    static const EndOfProcess end{session};
    return session;
}

Call::Call(Kind kind)
{
    Session &session = TheSession();
    if (kind != Kind::Beside)
        m_turn.emplace(session.Lifecycle());
    if (kind != Kind::Replacing)
        m_camera = session.Enter();
}

Call::~Call()
{
    if (m_camera)
        TheSession().Leave();
}

CCameraBase *CurrentCamera()
{
    const Call call;
    return call ? &*call : nullptr;
}

} // namespace vsccam
