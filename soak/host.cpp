#include "soak/host.h"

#include <sys/stat.h>
#include <unistd.h>
#include <vsccam.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace soak {

using namespace std::chrono_literals;
using vsccam::Clock;
using vsccam::SectionLock;
using vsccam::SleepFor;
using vscsim::FrameEnd;

namespace {

constexpr int kCallMs = 2000;

vscsim::Bus &Bus()
{
    return vscsim::Bus::Instance();
}

int64_t ElapsedMs(Clock::time_point since)
{
    return (Clock::now() - since) / 1ms;
}

off_t PrintedBytes()
{
    struct stat file {};
    return fstat(STDOUT_FILENO, &file) == 0 ? file.st_size : 0;
}

/// Frames that the library has counted as dropped, by the lines that it printed from there on.
/// Those that it could not see, while the camera was away, are an estimate and left out.
int64_t PrintedDrops(off_t from)
{
    std::string text(static_cast<size_t>(PrintedBytes() - from), '\0');
    if (pread(STDOUT_FILENO, text.data(), text.size(), from) != static_cast<ssize_t>(text.size()))
        return -1;
    int64_t drops = 0;
    for (size_t at = 0; (at = text.find("> dropped ", at)) != std::string::npos; ++at) {
        const size_t end = text.find(", empty", at);
        for (size_t colon = at; (colon = text.find(':', colon + 1)) < end;)
            if (text.compare(colon - 4, 4, "lost") != 0)
                drops += std::atoll(&text[colon + 1]);
    }
    return drops;
}

} // namespace

Host::Host(const char *model, vscsim::LinkSpeed link)
    : m_headBytes(vscsim::FindModel(model)->controller == vscsim::ControllerKind::Fx2 ? 8 : 4),
      m_tailBytes(m_headBytes == 8 ? 0 : 4), m_colour(vscsim::FindModel(model)->Colour()),
      m_multipliesStart(std::string_view(model) == "VSC2800MM")
{
    m_device =
        Bus().Plug(model, {.link = link, .onFrameEnd = [this](uint32_t number, FrameEnd end) {
                               const std::lock_guard lock(m_sentSection);
                               m_sent.push_back({number, end});
                           }});
}

void Host::Fail(const std::string &what)
{
    const SectionLock lock(m_section);
    if (m_fault.empty())
        m_fault = "at " + std::to_string(Clock::now().time_since_epoch() / 1ms) + " ms: " + what;
}

std::string Host::Fault() const
{
    return m_fault;
}

template <class Call> auto Host::Within(const char *name, int64_t boundMs, Call call)
{
    const auto began = Clock::now();
    const auto check = [&] {
        if (const int64_t tookMs = ElapsedMs(began); tookMs > boundMs)
            Fail(std::string(name) + " took " + std::to_string(tookMs) + " ms");
    };
    if constexpr (std::is_void_v<decltype(call())>) {
        call();
        check();
    } else {
        const auto result = call();
        check();
        return result;
    }
}

size_t Host::SentSoFar()
{
    const std::lock_guard lock(m_sentSection);
    return m_sent.size();
}

Image Host::PresentImage() const
{
    const bool hardware = getValue(CONTROL_HARDWARE_BIN, nullptr) != 0;
    return {.width = getWidth(),
            .height = getHeight(),
            .bin = getBin(),
            .type = getImgType(),
            .x = getStartX(),
            .y = getStartY(),
            .sensorBin = hardware ? getBin() : 1,
            .head = m_headBytes,
            .tail = m_tailBytes};
}

/// Frames may look as before or as afterwards while it lasts, and afterwards as before if the
/// change tells that nothing began anew.
void Host::Change(const std::function<bool()> &change)
{
    const size_t sent = SentSoFar();
    m_changing = true;
    const bool anew = Within("a change", kCallMs + kernelMs, change);
    Image image = PresentImage();
    {
        const SectionLock lock(m_section);
        for (Shown &shown : m_shown) {
            if (anew && shown.until == vsccam::kNever)
                shown.until = Clock::now();
        }
        m_shown.push_back({.image = image});
        if (m_multipliesStart) {
            image.y *= image.bin;
            m_shown.push_back({.image = image});
        }
        if (anew)
            m_runBegan = sent;
    }
    m_changing = false;
}

bool Host::Open()
{
    mayCountMore += m_video;
    m_video = false;
    Change([&] {
        (void)getNumberOfConnectedCameras();
        m_open = Within("openCamera", kCallMs, [] { return openCamera(0); }) &&
                 Within("initCamera", kCallMs, initCamera);
        return true;
    });
    return m_open;
}

void Host::Close()
{
    m_video = m_open = false;
    Within("closeCamera", kCallMs + kernelMs, closeCamera);
}

void Host::Start()
{
    Within("startCapture", kCallMs + kernelMs, startCapture);
    m_video = m_open.load();
}

void Host::Stop()
{
    m_video = false;
    Within("stopCapture", kCallMs + kernelMs, stopCapture);
    const size_t sent = SentSoFar();
    const SectionLock lock(m_section);
    m_runBegan = sent;
}

void Host::Format(int width, int height, int bin, int type)
{
    Change([=] { return setImageFormat(width, height, bin, type) != 0; });
}

void Host::Move(int x, int y)
{
    Change([=] {
        setStartPos(x, y);
        return false;
    });
}

void Host::SwitchBinning(bool hardware)
{
    Change([=] {
        setValue(CONTROL_HARDWARE_BIN, hardware, false);
        return false; // as long as nobody knows whether it was on already
    });
}

/// Not during video: a frame that begins meanwhile may be dark.
void Host::SwitchSpeed(bool high)
{
    const bool video = m_video;
    Stop();
    Set(CONTROL_HIGH_SPEED, high, false);
    if (video)
        Start();
}

void Host::Expose(int exposureMs, int abortAfterMs)
{
    const bool video = m_video;
    m_exposing = true;
    Stop();
    while (m_readersBusy > 0) // its frame belongs to the operator
        SleepFor(5ms);
    const size_t before = SentSoFar();
    const off_t printed = PrintedBytes();
    setValue(CONTROL_EXPOSURE, exposureMs * 1000, false);
    const auto began = Clock::now();
    Within("startExposure", kCallMs + kernelMs, startExposure);
    while (getExpStatus() == VSC_EXP_WORKING && ElapsedMs(began) < abortAfterMs) {
        SleepFor(5ms);
        if (ElapsedMs(began) > 10'000 + exposureMs + kernelMs)
            return Fail("an exposure that does not end");
    }
    Reader reader{.next = before, .buffer = std::vector<uint8_t>(PresentImage().Bytes())};
    if (getImageAfterExp(reader.buffer.data(), static_cast<int>(reader.buffer.size()))) {
        ++counts.exposures;
        Check(reader, began, before, &reader.next);
    }
    Within("stopExposure", kCallMs + kernelMs, stopExposure);
    m_exposing = false;
    setValue(CONTROL_EXPOSURE, 10'000, false);
    m_dropsOfExposures += PrintedDrops(printed);
    const std::lock_guard lock(m_sentSection);
    for (size_t i = before; i < m_sent.size(); ++i)
        m_sent[i].exposure = true;
    if (video)
        Start();
}

void Host::Read(Reader &reader)
{
    ++m_readersBusy;
    const bool read = !m_exposing && ReadVideo(reader);
    --m_readersBusy;
    if (!read)
        SleepFor(5ms);
}

bool Host::ReadVideo(Reader &reader)
{
    size_t from = 0;
    {
        const SectionLock lock(m_section);
        from = std::max(reader.next, m_runBegan);
    }
    const auto began = Clock::now();
    reader.buffer.resize(PresentImage().Bytes());
    const int64_t boundMs = reader.waitMs < 0 ? INT32_MAX : reader.waitMs + 100;
    const bool read = Within("getImageData", boundMs, [&reader] {
        return getImageData(reader.buffer.data(), static_cast<int>(reader.buffer.size()),
                            reader.waitMs);
    });
    if (read) {
        ++counts.delivered;
        Check(reader, began, from, &reader.next);
    }
    return read;
}

void Host::Check(const Reader &reader, Clock::time_point began, size_t from, size_t *next)
{
    for (bool changing = true; changing;) {
        changing = m_changing;
        std::vector<Shown> shown;
        {
            const SectionLock lock(m_section);
            std::erase_if(m_shown, [](Shown &s) { return s.until < Clock::now() - 30s; });
            shown = m_shown;
        }
        for (const Shown &s : shown) {
            if (s.until < began || s.image.Bytes() > reader.buffer.size())
                continue;
            const auto number = s.image.NumberOf(reader.buffer);
            if (!number)
                continue;
            const std::lock_guard lock(m_sentSection);
            const auto found = std::find_if(
                m_sent.begin() + static_cast<std::ptrdiff_t>(from), m_sent.end(), [=](auto &sent) {
                    return sent.end == FrameEnd::Whole && !sent.taken && !sent.exposure &&
                           sent.number % 256 == *number;
                });
            if (found == m_sent.end())
                return Fail("frame " + std::to_string(*number) + " comes twice or late");
            found->taken = true;
            *next = static_cast<size_t>(found - m_sent.begin()) + 1;
            return;
        }
        SleepFor(10ms);
    }
    Fail("a frame that is not whole");
}

void Host::Set(int control, int value, bool automatic)
{
    Within("setValue", kCallMs + kernelMs, [=] { setValue(control, value, automatic); });
}

void Host::Pulse(int line, int ms)
{
    Within("pulseGuide", ms + kCallMs, [=] { pulseGuide(line, ms); });
}

void Host::Spoil(const vscsim::FaultRule &rule)
{
    Bus().With(m_device, [&rule](vscsim::Camera &camera) { camera.PlanFaults({rule}); });
}

void Host::Replug(int afterMs, const vscsim::Place &place)
{
    Bus().Unplug(m_device);
    SleepFor(std::chrono::milliseconds(afterMs));
    Bus().Replug(m_device, place);
}

/// Nothing goes wrong any more.
void Host::PutBack()
{
    Bus().DelayCancel(0ms);
    Bus().With(m_device, [](vscsim::Camera &camera) { camera.PlanFaults({}); });
}

void Host::ExpectVideo()
{
    static constexpr auto kRecovery = 5s + 5 * 3s; // five reads that time out
    const auto comes = [this] {
        const uint64_t before = counts.delivered;
        for (const auto end = Clock::now() + kRecovery; Clock::now() < end; SleepFor(50ms))
            if (counts.delivered > before)
                return true;
        return false;
    };
    if (m_video && !comes())
        Fail("the video does not recover");
    Close();
    if (!Open())
        return Fail("the camera does not open again");
    Start();
    if (!comes())
        Fail("no video");
}

void Host::Finish()
{
    Stop();
    Close();
    m_ended = true;
}

void Host::CompareAccounts()
{
    Bus().Unplug(m_device);
    const auto left = Bus().LiveObjects();
    if (left.deviceLists + left.deviceReferences + left.handles + left.transfers != 0)
        Fail("objects of libusb are left");
    for (const std::string &misuse : Bus().TakeMisuse())
        Fail(misuse);
    Bus().Reset(); // frames under way end here
    int64_t taken = 0;
    int64_t delivered = 0;
    for (const Sent &sent : m_sent) {
        ++counts.ends[static_cast<size_t>(sent.end)];
        taken += !sent.exposure && sent.end <= FrameEnd::Cut;
        delivered += !sent.exposure && sent.taken;
    }
    const int64_t dropped = PrintedDrops(0) - m_dropsOfExposures;
    const int64_t missing = taken - delivered - dropped;
    if (missing > 0 || -missing > mayCountMore)
        Fail(std::to_string(taken) + " frames were sent, " + std::to_string(delivered) +
             " delivered and " + std::to_string(dropped) +
             " dropped: " + std::to_string(std::abs(missing)) +
             (missing > 0 ? " not accounted for" : " too many"));
}

} // namespace soak
