#include "camera_session.h"

#include "failure.h"
#include "identity.h"
#include "library_lines.h"
#include "planes.h"
#include "ramp.h"
#include "simulate.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <future>
#include <utility>

namespace vscindi {

using namespace std::chrono_literals;
using vsctool::Camera;
using vsctool::Failure;

namespace {

constexpr auto kReportInterval = 1s;
constexpr auto kLookInterval = 1s; // whether the camera is there
constexpr auto kReopenInterval = 500ms;
constexpr auto kVideoWait = 200; // ms
constexpr auto kShortPoll = 1ms;
constexpr auto kLongPoll = 20ms;
constexpr auto kUploadPoll = 2ms;
constexpr auto kIdlePoll = 200ms;
constexpr double kWarmEnoughC = 1; // below the warmest target
constexpr GuideD kLines[] = {GUIDE_NORTH, GUIDE_SOUTH, GUIDE_EAST, GUIDE_WEST};

// The library ends an exposure by itself, so much and four frame times after its own time; a frame
// comes no slower than these links carry. Only a library that does not do so needs the rest.
constexpr auto kLibraryBound = 5s;
constexpr auto kWatchdog = 2s;
constexpr int64_t kSlowUsb3 = 60; // bytes a microsecond
constexpr int64_t kSlowUsb2 = 8;

Microseconds LongestToEnd(size_t frameBytes)
{
    const int64_t rate = isUSB3Host() ? kSlowUsb3 : kSlowUsb2;
    const Microseconds frame(static_cast<int64_t>(frameBytes) / rate);
    return kLibraryBound + 4 * frame + kWatchdog;
}

size_t FrameBytes()
{
    const auto format = static_cast<PixelFormat>(getImgType());
    return static_cast<size_t>(getWidth()) * static_cast<size_t>(getHeight()) *
           static_cast<size_t>(vsctool::BytesPerPixel(format));
}

ControlValue ValueOf(Control_TYPE control)
{
    ControlValue value;
    value.value = getValue(control, &value.automatic);
    return value;
}

Axis AxisOf(GuideD direction)
{
    return direction == GUIDE_NORTH || direction == GUIDE_SOUTH ? Axis::NorthSouth : Axis::EastWest;
}

bool Chooses(const std::string &selector, std::string_view way)
{
    return selector.starts_with(way);
}

/// The camera that was open narrowed what the library sees of the bus.
void SeeAllCameras()
{
    // The variable exists since the start, and only this thread changes it: others that look at the
    // environment meanwhile find it whole.
    const auto &named = vsctool::CamerasNamedByUser();
    setenv("VSCCAM_CAMERA", named ? named->c_str() : "", 1); // NOLINT(concurrency-mt-unsafe)
}

} // namespace

const char *NameOf(State state)
{
    constexpr const char *kNames[] = {"closed",    "idle",  "exposing",  "reading",
                                      "uploading", "video", "recovering"};
    return kNames[static_cast<int>(state)];
}

// ------------------------------------------------------------------ jobs and events, any thread

CameraSession::CameraSession(ExposureTaker &exposures, VideoTaker &video,
                             std::function<void()> wake)
    : m_exposures(exposures), m_video(video), m_wake(std::move(wake))
{
}

void CameraSession::Post(Job job)
{
    {
        const std::lock_guard lock(m_mutex);
        m_jobs.push_back(std::move(job));
    }
    m_changed.notify_all();
}

void CameraSession::Tell(Event event)
{
    {
        const std::lock_guard lock(m_mutex);
        m_events.push_back(std::move(event));
    }
    m_wake();
}

std::optional<Event> CameraSession::Next()
{
    const std::lock_guard lock(m_mutex);
    if (m_events.empty())
        return std::nullopt;
    Event event = std::move(m_events.front());
    m_events.pop_front();
    return event;
}

std::string CameraSession::ModelOf(const std::string &selector)
{
    std::promise<std::string> model;
    Post([&] {
        try {
            const bool byId = Chooses(selector, "id:"); // it would have to be opened for that
            model.set_value(
                vsctool::SelectCamera(vsctool::ListCameras(), byId ? "" : selector).model);
        } catch (const Failure &) {
            model.set_value("");
        }
    });
    return model.get_future().get();
}

void CameraSession::Open(const std::string &selector)
{
    Post([this, selector] { OpenNow(selector); });
}

void CameraSession::Close(double warmCPerMin)
{
    Post([this, warmCPerMin] {
        if (m_state == State::Closed)
            return Tell(Closed{});
        FailExposure("disconnected");
        EndVideo();
        const bool warms = m_camera && warmCPerMin > 0 && getValue(CONTROL_COOLER_ON, nullptr);
        if (!warms) {
            CloseNow();
            return Tell(Closed{});
        }
        m_isLeaving = true;
        BeginRamp(getMax(CONTROL_TARGET_TEMP), warmCPerMin, true);
        Tell(Closed{});
    });
}

void CameraSession::End(double warmCPerMin)
{
    Close(warmCPerMin);
    Post([this] { m_endsThen = true; });
}

void CameraSession::Set(Control_TYPE control, ControlValue value)
{
    Post([=, this] {
        m_wanted.controls[control] = value;
        if (!m_camera)
            return; // it is set when the camera is back
        setValue(control, value.value, value.automatic);
        TellReport();
    });
}

void CameraSession::SetAutomatic(Control_TYPE control, bool automatic)
{
    Post([=, this] {
        m_wanted.controls[control] = {.value = getValue(control, nullptr), .automatic = automatic};
        if (m_camera)
            setValue(control, getValue(control, nullptr), automatic);
        TellReport();
    });
}

void CameraSession::SetFraming(const Framing &framing)
{
    Post([=, this] { ApplyFraming(framing); });
}

void CameraSession::SetFlips(bool x, bool y)
{
    Post([=, this] {
        m_wanted.flipX = x;
        m_wanted.flipY = y;
        SetMisc(x, y);
        TellReport();
    });
}

void CameraSession::Expose(uint64_t number, Microseconds time)
{
    Post([=, this] { BeginExposure(number, time); });
}

void CameraSession::AbortExposure()
{
    Post([this] { FailExposure("aborted"); });
}

void CameraSession::StartVideo(Microseconds exposure)
{
    Post([=, this] {
        FailExposure("video was started");
        m_videoExposure = exposure;
        m_lastFrame = {};
        if (m_camera)
            BeginVideo();
    });
}

void CameraSession::StopVideo()
{
    Post([this] { EndVideo(); });
}

void CameraSession::Cool(double targetC, double cPerMin)
{
    Post([=, this] { BeginRamp(targetC, cPerMin, false); });
}

void CameraSession::Warm(double cPerMin)
{
    Post([=, this] {
        const bool again = m_ramp && m_ramp->warming;
        const bool on = m_camera && getValue(CONTROL_COOLER_ON, nullptr);
        if (!on || again || cPerMin <= 0) {
            m_ramp.reset();
            setValue(CONTROL_COOLER_ON, 0, false);
            return TellReport();
        }
        BeginRamp(getMax(CONTROL_TARGET_TEMP), cPerMin, true);
    });
}

void CameraSession::Guide(GuideD direction, int ms)
{
    Post([=, this] {
        const Axis axis = AxisOf(direction);
        if (!m_camera || m_isLeaving)
            return Tell(PulseEnded{.axis = axis, .whole = false});
        m_axes[static_cast<int>(axis)]->Pulse(direction, ms);
    });
}

// ------------------------------------------------------------------ the thread of the camera

void CameraSession::Run(bool listens)
{
    std::optional<vsctool::LibraryLines> lines;
    if (listens) {
        lines.emplace(-1);
        setDebugPrint(true);
    } else {
        Tell(Trouble{"this system lets nobody listen to the library: times are less certain"});
    }
    for (const Axis axis : {Axis::NorthSouth, Axis::EastWest})
        m_axes[static_cast<int>(axis)].emplace(
            [this, axis](bool whole) { Tell(PulseEnded{.axis = axis, .whole = whole}); });
    while (!m_endsThen || m_isLeaving) {
        RunJobs(NextTurn());
        try {
            Turn();
        } catch (const Failure &failure) {
            Tell(Trouble{failure.what()});
        }
    }
    CloseNow();
    for (auto &axis : m_axes)
        axis.reset();
    setDebugPrint(false);
    m_ended = true;
    m_wake();
}

/// Waits for the first job, or until then.
void CameraSession::RunJobs(Clock::time_point until)
{
    std::unique_lock lock(m_mutex);
    m_changed.wait_until(lock, until, [this] { return !m_jobs.empty(); });
    while (!m_jobs.empty()) {
        const Job job = std::move(m_jobs.front());
        m_jobs.pop_front();
        lock.unlock();
        try {
            job();
        } catch (const Failure &failure) {
            Tell(Trouble{failure.what()});
        }
        lock.lock();
    }
}

CameraSession::Clock::time_point CameraSession::NextTurn() const
{
    const auto now = Clock::now();
    switch (m_state) {
    case State::Exposing:
        return now + (now - m_exposing.begun + 1s < m_exposing.planned ? kLongPoll : kShortPoll);
    case State::Reading:
        return now + kShortPoll;
    case State::Uploading:
        return now + kUploadPoll;
    case State::Video:
        return now; // reading a frame waits
    case State::Recovering:
        return now + kReopenInterval;
    case State::Idle:
        return now + kIdlePoll;
    case State::Closed:
        break;
    }
    return now + 1h;
}

void CameraSession::Turn()
{
    if (m_state == State::Closed)
        return;
    switch (m_state) {
    case State::Recovering:
        Recover();
        break;
    case State::Video:
        ReadVideoFrame();
        break;
    case State::Uploading:
        TakeExposure();
        break;
    case State::Exposing:
    case State::Reading:
        FollowExposure();
        break;
    case State::Idle:
    case State::Closed:
        LookForCamera();
        break;
    }
    FollowRamp();
    if (Clock::now() >= m_nextReport)
        TellReport();
}

// ------------------------------------------------------------------ opening and closing

void CameraSession::OpenNow(const std::string &selector)
{
    const bool same = m_isLeaving && selector == m_selector && m_camera;
    m_isLeaving = false;
    m_ramp.reset();
    if (same) { // it was still being warmed; now it regulates where it is
        m_state = State::Idle;
        return TellOpened();
    }
    CloseNow();
    m_selector = selector;
    m_wanted = {};
    SeeAllCameras();
    try {
        m_camera.emplace(vsctool::CameraChoice{.selector = selector, .settings = {}});
    } catch (const Failure &failure) {
        m_camera.reset();
        return Tell(NotOpened{failure.what()});
    }
    for (const GuideD line : kLines)
        pulseGuide(line, 0); // a program that was killed may have left it on
    m_address = m_camera->Entry().usb ? m_camera->Entry().usb->address : 0;
    m_identity = vsctool::IdentityForHeader();
    if (!isImgTypeSupported(static_cast<int>(m_wanted.framing.format)))
        m_wanted.framing.format = PixelFormat::kRaw8;
    m_camera->SetFraming(m_wanted.framing);
    m_state = State::Idle;
    TellOpened();
}

void CameraSession::TellOpened()
{
    m_nextLook = Clock::now() + kLookInterval;
    Tell(Opened{.facts = ReadFacts(), .framing = FramingInForce()});
    TellReport();
}

CameraFacts CameraSession::ReadFacts() const
{
    CameraFacts facts;
    const auto &entry = m_camera->Entry();
    facts.model = entry.model;
    facts.port = entry.usb ? entry.usb->port : "";
    facts.identity = m_identity;
    facts.notVerified = m_camera->NotVerified();
    facts.maxWidth = getMaxWidth();
    facts.maxHeight = getMaxHeight();
    facts.pixelUm = getPixelSize();
    facts.colour = isColorCam() != 0;
    facts.bayerCode = getColorBayer();
    facts.cooled = isCoolerCam() != 0;
    facts.thermometer = isAvailable(CONTROL_TEMPERATURE) != 0;
    for (int bin = 1; bin <= 8; ++bin)
        if (isBinSupported(bin))
            facts.bins.push_back(bin);
    for (int format = 0; format < 4; ++format)
        if (isImgTypeSupported(format))
            facts.formats.push_back(static_cast<PixelFormat>(format));
    facts.longestExposure = Microseconds(getMax(CONTROL_EXPOSURE));
    for (const vsctool::NamedControl &control : vsctool::AllControls())
        if (control.exported)
            facts.controls[*control.exported] = vsctool::StateOf(control);
    return facts;
}

/// Without a camera there is nothing to close, but for what is remembered.
void CameraSession::CloseNow()
{
    FailExposure("disconnected");
    for (auto &axis : m_axes)
        axis->Clear();
    CountDrops();
    m_camera.reset();
    m_videoExposure.reset();
    m_ramp.reset();
    m_isLeaving = false;
    m_state = State::Closed;
}

// ------------------------------------------------------------------ regions

Framing CameraSession::FramingInForce() const
{
    return {.bin = getBin(),
            .format = static_cast<PixelFormat>(getImgType()),
            .region = Region{getWidth(), getHeight(), getStartX(), getStartY()}};
}

void CameraSession::ApplyFraming(const Framing &framing)
{
    if (!m_camera) {
        m_wanted.framing = framing;
        return;
    }
    std::string refused;
    try {
        m_camera->SetFraming(framing);
        m_wanted.framing = framing;
    } catch (const Failure &failure) {
        refused = failure.what();
    }
    Tell(Framed{.framing = FramingInForce(), .refused = refused});
}

// ------------------------------------------------------------------ exposures

void CameraSession::BeginExposure(uint64_t number, Microseconds time)
{
    const auto refuse = [&](const std::string &why) {
        Tell(ExposureFailed{.exposure = number, .why = why});
    };
    if (m_isLeaving || m_state == State::Closed)
        return refuse("no camera is open");
    if (!m_camera)
        return refuse("the camera is away; everything is set again when it is back");
    if (m_videoExposure)
        return refuse("a video runs; stop it first");
    FailExposure("another exposure was started");
    (void)m_camera->Listen();
    setValue(CONTROL_EXPOSURE, static_cast<int>(time.count()), false);
    const Microseconds set(getValue(CONTROL_EXPOSURE, nullptr));
    const auto now = Clock::now();
    m_exposing = {.number = number,
                  .asked = time,
                  .planned =
                      vsctool::PlannedExposure(m_camera->Entry().model, isUSB3Host() != 0, set),
                  .begun = now,
                  .latest = now + set + LongestToEnd(FrameBytes()),
                  .times = {}};
    startExposure();
    m_state = State::Exposing;
}

void CameraSession::FollowExposure()
{
    const int status = getExpStatus();
    const auto now = Clock::now();
    m_exposing.dropped = std::max(m_exposing.dropped, getDroppedFrames());
    if (status == VSC_EXP_SUCCESS) {
        NoteDroppedInExposure();
        m_state = State::Uploading;
        return TakeExposure();
    }
    if (status != VSC_EXP_WORKING) {
        FailExposure(m_camera->IsPresent() ? "it ended without a frame; is the cable sound?"
                                           : "the camera was unplugged");
        m_nextLook = now;
        return LookForCamera();
    }
    if (now > m_exposing.latest)
        return FailExposure("no frame came in time");
    m_state = now - m_exposing.begun > m_exposing.planned ? State::Reading : State::Exposing;
}

FrameFacts CameraSession::FactsOfFrame() const
{
    FrameFacts facts;
    facts.exposure = m_exposing.number;
    facts.width = getWidth();
    facts.height = getHeight();
    facts.format = static_cast<PixelFormat>(getImgType());
    facts.bin = getBin();
    facts.region = {facts.width, facts.height, getStartX(), getStartY()};
    const auto times = m_exposing.times.Tell(m_camera->Entry().model,
                                             Microseconds(getValue(CONTROL_EXPOSURE, nullptr)));
    vsctool::Exposure exposure;
    exposure.picture.format = facts.format;
    exposure.start = times.start;
    exposure.asked = m_exposing.asked;
    exposure.planned = times.planned;
    exposure.measured = times.measured;
    exposure.droppedFrames = m_exposing.dropped;
    facts.header = vsctool::FactsOf(*m_camera, exposure, m_identity);
    facts.header.software = fmt::format("indi_vsccam_ccd {}", VSCCAM_VERSION);
    facts.header.simulated = vsctool::IsSimulated();
    facts.uncertainty = times.uncertainty;
    return facts;
}

void CameraSession::TakeExposure()
{
    const size_t bytes = FrameBytes();
    uint8_t *const to = m_exposures.TryBegin(bytes);
    if (!to)
        return; // the frame before it is still being sent: abort and close go on meanwhile
    const FrameFacts facts = FactsOfFrame();
    const bool copied = CopyFrame(to, facts);
    m_exposures.End(copied ? &facts : nullptr);
    if (!copied)
        return FailExposure("its frame was lost");
    ++m_statistics.frames;
    m_state = State::Idle;
    Tell(FrameReady{facts});
}

/// The library copies straight into the buffer that is sent. Only colour has to be taken apart.
bool CameraSession::CopyFrame(uint8_t *to, const FrameFacts &facts)
{
    const size_t bytes = FrameBytes();
    if (facts.format != PixelFormat::kRgb24)
        return getImageAfterExp(to, static_cast<int>(bytes)) != 0;
    m_scratch.resize(bytes);
    if (!getImageAfterExp(m_scratch.data(), static_cast<int>(bytes)))
        return false;
    PlanesFromBgr(m_scratch, to);
    return true;
}

/// The library forgets the count when the exposure ends; its messages tell it.
void CameraSession::NoteDroppedInExposure()
{
    m_exposing.times.Hear(m_camera->Listen());
    m_exposing.dropped = std::max(m_exposing.dropped, m_exposing.times.DroppedFrames());
    m_statistics.dropped += m_exposing.dropped;
}

/// Does nothing unless there is one.
void CameraSession::FailExposure(const std::string &why)
{
    if (m_state != State::Exposing && m_state != State::Reading && m_state != State::Uploading)
        return;
    if (m_state != State::Uploading)
        NoteDroppedInExposure();
    if (getExpStatus() == VSC_EXP_SUCCESS)
        ++m_statistics.discarded;
    stopExposure();
    m_state = State::Idle;
    Tell(ExposureFailed{.exposure = m_exposing.number, .why = why});
}

// ------------------------------------------------------------------ video

void CameraSession::BeginVideo()
{
    setValue(CONTROL_EXPOSURE, static_cast<int>(m_videoExposure->count()), false);
    m_countedDrops = 0;
    startCapture();
    m_state = State::Video;
}

void CameraSession::ReadVideoFrame()
{
    const size_t bytes = FrameBytes();
    uint8_t *to = m_video.TryBegin(bytes);
    const bool taken = to != nullptr;
    if (!taken) { // capture goes on at its rate whoever watches
        m_scratch.resize(bytes);
        to = m_scratch.data();
    }
    const bool got = getImageData(to, static_cast<int>(bytes), kVideoWait) != 0;
    if (taken)
        m_video.End(got);
    const auto now = Clock::now();
    if (!got)
        return LookForCamera();
    ++(taken ? m_statistics.frames : m_statistics.discarded);
    if (m_lastFrame != Clock::time_point())
        m_statistics.worstGap = std::max(
            m_statistics.worstGap, std::chrono::duration_cast<Microseconds>(now - m_lastFrame));
    m_lastFrame = now;
    m_nextLook = now + kLookInterval;
}

void CameraSession::EndVideo()
{
    if (!m_videoExposure)
        return;
    m_videoExposure.reset();
    if (m_state == State::Video) {
        CountDrops();
        stopCapture();
        m_countedDrops = 0;
        m_state = State::Idle;
    }
}

// ------------------------------------------------------------------ cooling

void CameraSession::BeginRamp(double toC, double cPerMin, bool warming)
{
    m_ramp = Ramp{.fromC = m_camera ? vsctool::Decimal(getSensorTemp()) : toC,
                  .toC = toC,
                  .cPerMin = cPerMin,
                  .since = Clock::now(),
                  .warming = warming};
    m_nextRampStep = Clock::now();
    FollowRamp();
    TellReport();
}

void CameraSession::FollowRamp()
{
    if (!m_ramp || !m_camera || Clock::now() < m_nextRampStep)
        return;
    m_nextRampStep = Clock::now() + vsctool::kCoolingInterval;
    const Ramp &ramp = *m_ramp;
    const bool warm =
        ramp.warming && (getValue(CONTROL_COOLER_POWER, nullptr) == 0 ||
                         vsctool::Decimal(getSensorTemp()) >= ramp.toC - kWarmEnoughC);
    if (!warm)
        return vsctool::MoveTarget(
            ramp.cPerMin <= 0
                ? ramp.toC
                : vsctool::OnRamp(ramp.fromC, ramp.toC, ramp.cPerMin, Clock::now() - ramp.since));
    setValue(CONTROL_COOLER_ON, 0, false);
    m_ramp.reset();
    if (m_isLeaving)
        CloseNow();
}

// ------------------------------------------------------------------ loss and return

/// A camera that was unplugged and is back already has another address.
void CameraSession::LookForCamera()
{
    const auto now = Clock::now();
    if (!m_camera || now < m_nextLook)
        return;
    m_nextLook = now + kLookInterval;
    const auto cameras = vsctool::ListCameras();
    const auto &entry = m_camera->Entry();
    const auto isIt = [&](const vsctool::CameraEntry &camera) {
        return camera.model == entry.model &&
               (!camera.usb || m_address == 0 || camera.usb->address == m_address);
    };
    if (std::ranges::any_of(cameras, isIt))
        return;
    Lose();
}

void CameraSession::Lose()
{
    FailExposure("the camera was unplugged");
    CountDrops();
    for (auto &axis : m_axes)
        axis->Clear();
    const bool leaving = m_isLeaving;
    m_camera.reset(); // ends a video and guide pulses, too
    m_countedDrops = 0;
    if (leaving)
        return CloseNow();
    m_state = State::Recovering;
    Tell(Lost{});
    TellReport();
}

/// The library sees nothing but this camera, at its port or, when it is the only one of its model,
/// wherever it is.
void CameraSession::Recover()
{
    const bool byId = Chooses(m_selector, "id:");
    try {
        m_camera.emplace(vsctool::CameraChoice{.selector = byId ? m_selector : "", .settings = {}});
    } catch (const Failure &) {
        m_camera.reset();
        return; // it is not there yet, or does not answer yet
    }
    m_address = m_camera->Entry().usb ? m_camera->Entry().usb->address : 0;
    ++m_statistics.reconnects;
    m_state = State::Idle;
    Replay();
    m_nextLook = Clock::now() + kLookInterval;
    Tell(Recovered{Differences()});
    Tell(Framed{.framing = FramingInForce(), .refused = ""});
    if (m_videoExposure)
        BeginVideo();
    TellReport();
}

void CameraSession::Replay()
{
    for (const GuideD line : kLines)
        pulseGuide(line, 0);
    for (const auto &[control, wanted] : m_wanted.controls)
        setValue(control, wanted.value, wanted.automatic);
    SetMisc(m_wanted.flipX, m_wanted.flipY);
    m_camera->SetFraming(m_wanted.framing);
    if (m_ramp) { // on from where the sensor is now
        m_ramp->fromC = vsctool::Decimal(getSensorTemp());
        m_ramp->since = Clock::now();
        m_nextRampStep = m_ramp->since;
    }
}

/// What does not read back as it was set.
std::string CameraSession::Differences() const
{
    std::string names;
    const auto note = [&](bool same, std::string_view name) {
        if (!same)
            names += fmt::format("{}{}", names.empty() ? "" : ", ", name);
    };
    for (const vsctool::NamedControl &control : vsctool::AllControls()) {
        if (!control.exported)
            continue;
        const auto wanted = m_wanted.controls.find(*control.exported);
        if (wanted == m_wanted.controls.end())
            continue;
        const ControlValue is = ValueOf(*control.exported);
        note(wanted->second.automatic ? is.automatic : is == wanted->second, control.word);
    }
    const Framing is = FramingInForce();
    note(is.bin == m_wanted.framing.bin, "bin");
    note(is.format == m_wanted.framing.format, "format");
    note(!m_wanted.framing.region || is.region == m_wanted.framing.region, "region");
    bool flipX = false;
    bool flipY = false;
    GetMisc(&flipX, &flipY);
    note(flipX == m_wanted.flipX && flipY == m_wanted.flipY, "flips");
    return names;
}

// ------------------------------------------------------------------ what is told

/// Of a video. The library's count begins anew with each.
void CameraSession::CountDrops()
{
    if (m_state != State::Video)
        return;
    const int dropped = getDroppedFrames();
    m_statistics.dropped += std::max(dropped - m_countedDrops, 0);
    m_countedDrops = dropped;
}

void CameraSession::TellReport()
{
    m_nextReport = Clock::now() + kReportInterval;
    CountDrops();
    Report report{.state = m_isLeaving ? State::Closed : m_state,
                  .temperatureC = {},
                  .coolerPerCent = 0,
                  .setPointC = {},
                  .warming = m_ramp && m_ramp->warming,
                  .controls = {},
                  .statistics = m_statistics};
    if (m_camera) {
        if (isAvailable(CONTROL_TEMPERATURE))
            report.temperatureC = vsctool::Decimal(getSensorTemp());
        report.coolerPerCent = getValue(CONTROL_COOLER_POWER, nullptr);
        if (getValue(CONTROL_COOLER_ON, nullptr))
            report.setPointC = getValue(CONTROL_TARGET_TEMP, nullptr);
        for (const vsctool::NamedControl &control : vsctool::AllControls())
            if (control.exported && *control.exported != CONTROL_TEMPERATURE)
                report.controls[*control.exported] = ValueOf(*control.exported);
    }
    Tell(report);
}

} // namespace vscindi
