#include "serve/camera_works.h"

#include "cooling.h"
#include "failure.h"
#include "product_list.h"
#include "video/ser_header.h"
#include "video/video_options.h"

#include <fmt/format.h>
#include <vsccam.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace vsctool::serve {
namespace {

using namespace std::chrono_literals;

constexpr auto kTelemetryInterval = 1s;
constexpr auto kLookInterval = 250ms; // for a camera that is silent or gone
constexpr auto kIdleTurn = 100ms;
constexpr auto kExposingTurn = 5ms;
constexpr auto kPauseWithoutCamera = 20ms; // while it is gone the library does not wait
constexpr auto kPauseAfterTrouble = 1s;
constexpr auto kNormalSilence = 500ms; // beside the exposure
constexpr int kMostBin = 16;

CameraFacts FactsOf(const Camera &camera, bool simulated)
{
    CameraFacts facts = {.model = camera.Entry().model,
                         .simulated = simulated,
                         .width = getMaxWidth(),
                         .height = getMaxHeight(),
                         .pixelUm = getPixelSize(),
                         .colour = isColorCam() != 0,
                         .cooled = isCoolerCam() != 0,
                         .thermometer = isAvailable(CONTROL_TEMPERATURE) != 0,
                         .electronsPerAdu = Decimal(getElectronsPerADU()),
                         .bayerCode = getColorBayer(),
                         .shortestExposure = Microseconds(getMin(CONTROL_EXPOSURE)),
                         .longestExposure = Microseconds(getMax(CONTROL_EXPOSURE)),
                         .bins = {},
                         .formats = {},
                         .notVerified = camera.NotVerified()};
    if (const vsccam::Product *const product = camera.Entry().Product())
        facts.adcBits = product->adcBits;
    for (int bin = 1; bin <= kMostBin; ++bin)
        if (isBinSupported(bin))
            facts.bins.push_back(bin);
    for (const PixelFormat format :
         {PixelFormat::kRaw8, PixelFormat::kRaw16, PixelFormat::kRgb24, PixelFormat::kY8})
        if (isImgTypeSupported(static_cast<int>(format)))
            facts.formats.push_back(format);
    return facts;
}

/// Setting them makes an exposure begin anew, or pauses a video.
bool Interrupts(const NamedControl &control)
{
    return control.exported == CONTROL_HARDWARE_BIN || control.exported == CONTROL_HIGH_SPEED;
}

/// Whether the camera is there, and does not do what it is told.
bool IsMute(const Failure &failure)
{
    return failure.Code() == static_cast<int>(Exit::kFailure);
}

bool IsOfCooler(const NamedControl &control)
{
    return control.exported == CONTROL_TARGET_TEMP || control.exported == CONTROL_COOLER_ON;
}

} // namespace

CameraWorks::CameraWorks(Context &context, const std::filesystem::path &folder)
    : m_context(context), m_folder(folder), m_log(context.console), m_camera(context.camera),
      m_facts(FactsOf(m_camera, context.simulated))
{
    GuidePort::SwitchAllOff();
    m_settings["exposure"] = {.control = &FindControl("exposure"),
                              .value = static_cast<int>(UsualVideoExposure().count())};
    for (const Setting &setting : context.camera.settings)
        m_settings[setting.control->word] = setting;
    m_log.Add(fmt::format("{} is served", m_facts.model));
    Telemetry();
}

CameraWorks::~CameraWorks() = default;

std::shared_ptr<const Snapshot> CameraWorks::Now() const
{
    const std::lock_guard lock(m_mutex);
    return m_now;
}

std::shared_ptr<const TakenPicture> CameraWorks::LastPicture() const
{
    const std::lock_guard lock(m_mutex);
    return m_lastPicture;
}

std::deque<CoolingReading> CameraWorks::CoolingHistory() const
{
    const std::lock_guard lock(m_mutex);
    return m_coolingHistory;
}

// ---- jobs

void CameraWorks::RequireNoRecording(const char *what) const
{
    if (m_recording)
        throw Failure(Exit::kBusy, fmt::format("{} while a video is recorded", what));
}

void CameraWorks::RequirePresence() const
{
    if (!m_present)
        throw Failure(Exit::kCameraLost, fmt::format("{} is gone", m_facts.model));
}

void CameraWorks::SetVideo(bool on)
{
    if (!on)
        RequireNoRecording("the video cannot end");
    m_wantsVideo = on;
    if (on || !m_feed.IsRunning())
        return;
    m_feed.Stop();
    m_handleIsStale = m_handleIsStale || !m_present; // nobody looks for it any more
}

void CameraWorks::PauseVideo()
{
    if (!m_recording)
        SetVideo(false);
}

void CameraWorks::SetControl(const Setting &setting)
{
    const NamedControl &control = *setting.control;
    RequirePresence();
    if (m_series && Interrupts(control))
        throw Failure(Exit::kBusy,
                      fmt::format("{} cannot change during an exposure", control.word));
    if (Interrupts(control)) {
        RequireNoRecording("this cannot change");
        m_feed.Stop();
    }
    if (IsOfCooler(control))
        m_cooling.Forget();
    if (m_series && control.exported == CONTROL_EXPOSURE)
        Check(setting); // it is that of the next video
    else
        Apply(setting);
    Setting &kept = m_settings[control.word] = setting;
    if (!setting.automatic && !m_series)
        kept.value = StateOf(control).value; // what the camera has made of it
    m_log.Add(fmt::format("{} is {}", control.word,
                          setting.automatic ? "auto" : FormatValue(control, kept.value)));
}

void CameraWorks::SetForm(const PictureForm &form)
{
    RequirePresence();
    RequireNoRecording("the form of pictures cannot change");
    if (m_series)
        throw Failure(Exit::kBusy, "the form of pictures cannot change during an exposure");
    m_feed.Stop();
    m_formIsSet = false; // what is refused leaves the form of before
    m_camera.SetFraming(form.framing);
    SetMisc(form.flipX, form.flipY);
    m_form = form;
    m_log.Add(fmt::format("pictures are {}x{}+{}+{}, bin {}, {}", getWidth(), getHeight(),
                          getStartX(), getStartY(), getBin(), FormatName(form.framing.format)));
}

void CameraWorks::StartSeries(const SeriesPlan &plan)
{
    if (m_series)
        throw Failure(Exit::kBusy, "an exposure is under way");
    RequirePresence();
    RequireNoRecording("no exposure can begin");
    m_feed.Stop();
    m_formIsSet = false;
    m_seriesFailure.clear();
    try {
        BeginSeries(plan);
    } catch (const Failure &failure) {
        if (!IsMute(failure))
            throw;
        OpenAnew();
        BeginSeries(plan);
    }
    m_log.Add(plan.count == 1
                  ? fmt::format("exposing {}", FormatTime(plan.exposure))
                  : fmt::format("exposing {} times {}", plan.count, FormatTime(plan.exposure)));
}

void CameraWorks::BeginSeries(const SeriesPlan &plan)
{
    m_series.emplace(plan, Series::Host{.camera = m_camera,
                                        .feed = m_feed,
                                        .folder = m_folder,
                                        .console = m_context.console,
                                        .patience = m_context.timeout,
                                        .simulated = m_facts.simulated});
}

void CameraWorks::AbortSeries()
{
    if (m_series)
        EndSeries(kAborted);
}

void CameraWorks::StartRecording(const RecordingPlan &plan)
{
    if (m_recording)
        throw Failure(Exit::kBusy, "a video is recorded already");
    if (m_series)
        throw Failure(Exit::kBusy, "an exposure is under way");
    RequirePresence();
    m_wantsVideo = true;
    if (!m_feed.IsRunning())
        StartVideo();
    m_recording.emplace(plan, SerHeaderOf(m_camera), m_feed.Figures().dropped);
    m_lastRecording.reset();
    m_log.Add(fmt::format("recording {}", plan.file.filename().string()));
}

void CameraWorks::StopRecording()
{
    if (m_recording)
        m_recording->Finish();
}

void CameraWorks::SetCooling(const CoolingWish &wish)
{
    RequirePresence();
    RequireCooler(m_camera);
    m_cooling.Set(wish, static_cast<double>(getSensorTemp()));
    m_settings.erase("target-temp");
    m_settings.erase("cooler");
    m_log.Add(!wish.on ? "the cooler is switched off"
                       : fmt::format("the sensor is cooled to {} C", wish.targetC));
}

// ---- what goes on

std::chrono::milliseconds CameraWorks::Turn()
{
    try {
        return Work();
    } catch (const Failure &failure) {
        m_log.Add(failure.what());
        m_nextLook = Clock::now();
        LookForCamera();
        return kPauseAfterTrouble;
    }
}

std::chrono::milliseconds CameraWorks::Work()
{
    if (Clock::now() >= m_nextTelemetry)
        Telemetry();
    if (m_recording && m_recording->IsClosed())
        CloseRecording();
    if (m_handleIsStale) {
        LookForCamera();
        return kIdleTurn;
    }
    if (m_series) {
        TurnSeries();
        return kExposingTurn;
    }
    if (m_wantsVideo && !m_feed.IsRunning())
        StartVideo();
    if (!m_feed.IsRunning())
        return kIdleTurn;
    ReadVideo();
    return m_present ? 0ms : kPauseWithoutCamera;
}

void CameraWorks::StartVideo()
{
    if (!m_formIsSet) {
        m_camera.SetFraming(m_form.framing);
        Apply(m_settings.at("exposure"));
        m_formIsSet = true;
    }
    m_feed.Start();
}

void CameraWorks::ReadVideo()
{
    if (const FramePtr frame = m_feed.Read(m_camera)) {
        m_news = true;
        if (m_recording && !m_recording->Put(frame))
            m_recording->Finish();
    } else if (m_feed.Silence() >
               Microseconds(getValue(CONTROL_EXPOSURE, nullptr)) + kNormalSilence) {
        LookForCamera();
    }
}

void CameraWorks::TurnSeries()
{
    try {
        auto taken = m_series->Turn();
        if (!taken)
            return;
        m_openedAnew = false;
        KeepPicture(std::make_shared<TakenPicture>(std::move(*taken)));
        if (m_series->IsDone())
            EndSeries("");
        Publish();
    } catch (const Failure &failure) {
        if (failure.Code() == static_cast<int>(Exit::kCameraLost))
            return TellLost(); // the series waits for it
        if (IsMute(failure) && !std::exchange(m_openedAnew, true))
            return OpenAnew(); // which begins the exposure again
        EndSeries(failure.what());
        throw;
    }
}

void CameraWorks::KeepPicture(std::shared_ptr<const TakenPicture> taken)
{
    m_log.Add(taken->file.empty() ? "a picture was taken"
                                  : fmt::format("{} was written", taken->file));
    if (const auto &report = m_series->State().plan.report)
        report(taken, "");
    const std::lock_guard lock(m_mutex);
    m_lastPicture = std::move(taken);
}

void CameraWorks::EndSeries(const std::string &failure)
{
    if (const auto &report = m_series->State().plan.report; report && !failure.empty())
        report(nullptr, failure);
    m_lastSeries = m_series->State();
    m_seriesFailure = failure;
    m_series.reset();
    if (!failure.empty())
        m_log.Add(fmt::format("the exposure ended: {}", failure));
    Publish();
}

void CameraWorks::CloseRecording()
{
    RecordingNews news = {.file = m_recording->File().filename(),
                          .running = false,
                          .state = m_recording->State(),
                          .failure = {}};
    try {
        m_recording->CheckResult();
    } catch (const std::exception &failure) {
        news.failure = failure.what();
    }
    m_recording.reset();
    m_log.Add(fmt::format("{}: {} frames, {} dropped{}{}", news.file, news.state.frames,
                          news.state.dropped, news.failure.empty() ? "" : "; ", news.failure));
    m_lastRecording = std::move(news);
    Publish();
}

void CameraWorks::Telemetry()
{
    const auto now = Clock::now();
    m_nextTelemetry = now + kTelemetryInterval;
    if (!m_series || !m_series->IsExposing()) // looking takes away what the library says of those
        LookForCamera();
    if (m_present && m_facts.thermometer) {
        m_celsius = Decimal(getSensorTemp());
        m_feed.SetTemperature(m_celsius);
    }
    if (m_present && m_facts.cooled && now >= m_nextCooling) {
        m_nextCooling = now + kCoolingInterval;
        m_cooling.Step(m_celsius.value_or(0));
        const std::lock_guard lock(m_mutex);
        m_coolingHistory = m_cooling.History();
    }
    Publish();
}

// ---- a camera that goes and comes

void CameraWorks::LookForCamera()
{
    if (Clock::now() < m_nextLook)
        return;
    m_nextLook = Clock::now() + kLookInterval;
    (void)m_camera.Listen();
    const bool isThere = m_camera.IsPresent();
    if (m_present && !isThere)
        return TellLost();
    if (!m_present && isThere && m_handleIsStale)
        return Recover();
    if (!m_present && isThere) { // the library has looked for it
        m_present = true;
        ++m_reconnects;
        m_log.Add(fmt::format("{} is back", m_facts.model));
        Publish();
    }
}

void CameraWorks::TellLost()
{
    m_present = false;
    m_handleIsStale = !m_feed.IsRunning(); // then the library does not look for it
    m_log.Add(fmt::format("{} is gone; check plug and power", m_facts.model));
    Publish();
}

/// A camera that was away for a moment, which nobody has seen, does not answer any more.
void CameraWorks::OpenAnew()
{
    m_log.Add(fmt::format("{} does not answer, and is opened anew", m_facts.model));
    m_present = false;
    m_handleIsStale = true;
    m_nextLook = Clock::now();
    LookForCamera();
    RequirePresence();
}

void CameraWorks::Recover()
{
    try {
        m_camera.OpenAgain();
    } catch (const Failure &failure) {
        if (failure.Code() != static_cast<int>(Exit::kNoCamera)) // it is just being plugged in
            m_log.Add(failure.what());
        m_nextLook = Clock::now() + kPauseAfterTrouble;
        return;
    }
    m_handleIsStale = false;
    m_present = true;
    m_formIsSet = false;
    ++m_reconnects;
    Replay();
    m_log.Add(fmt::format("{} is back, with its settings", m_facts.model));
    if (m_series)
        m_series->Restart();
    Publish();
}

/// Sets again what was set, and tells what is not as it was.
void CameraWorks::Replay()
{
    SetMisc(m_form.flipX, m_form.flipY);
    for (const auto &[name, setting] : m_settings) {
        try {
            Apply(setting);
            if (!setting.automatic && StateOf(*setting.control).value != setting.value)
                m_log.Add(fmt::format("{} is not what it was", name));
        } catch (const Failure &failure) {
            m_log.Add(failure.what());
        }
    }
    if (m_facts.cooled)
        m_cooling.Resume(static_cast<double>(getSensorTemp()));
}

// ---- what is told

Mode CameraWorks::PresentMode() const
{
    if (!m_present)
        return Mode::kLost;
    if (m_series)
        return m_series->IsExposing() ? Mode::kExposing : Mode::kWaiting;
    return m_feed.IsRunning() ? Mode::kVideo : Mode::kIdle;
}

std::optional<CoolingNews> CameraWorks::PresentCooling() const
{
    if (!m_facts.cooled)
        return std::nullopt;
    return CoolingNews{.celsius = m_celsius.value_or(0),
                       .targetC = getValue(CONTROL_TARGET_TEMP, nullptr),
                       .powerPerCent = getValue(CONTROL_COOLER_POWER, nullptr),
                       .on = getValue(CONTROL_COOLER_ON, nullptr) != 0,
                       .onRamp = m_cooling.IsOnRamp(),
                       .warming = m_cooling.IsWarming()};
}

void CameraWorks::Publish()
{
    auto now = std::make_shared<Snapshot>();
    now->revision = ++m_revision;
    now->mode = PresentMode();
    now->present = m_present;
    now->reconnects = m_reconnects;
    now->form = m_form;
    now->region = {getWidth(), getHeight(), getStartX(), getStartY()};
    for (const NamedControl &control : AllControls())
        if (const ControlState state = StateOf(control); state.available)
            now->controls.push_back({&control, state, m_camera.DefaultOf(control)});
    now->celsius = m_celsius;
    now->feed = m_feed.Figures();
    now->series = m_series ? m_series->State() : m_lastSeries;
    now->seriesFailure = m_seriesFailure;
    now->recording = m_lastRecording;
    if (m_recording)
        now->recording = {.file = m_recording->File().filename(),
                          .running = true,
                          .state = m_recording->State(),
                          .failure = {}};
    now->cooling = PresentCooling();
    m_news = true;
    const std::lock_guard lock(m_mutex);
    m_now = std::move(now);
}

void CameraWorks::End()
{
    if (m_series)
        EndSeries("the server ends");
    m_feed.Stop();
    m_recording.reset(); // writes what waits
}

void CameraWorks::Warm()
{
    if (m_facts.cooled && getValue(CONTROL_COOLER_ON, nullptr))
        WarmUp(m_camera, m_context.console);
}

} // namespace vsctool::serve
