#include "camera.h"

#include "exposure_times.h"
#include "failure.h"
#include "identity.h"
#include "stop_signals.h"
#include "udev_rule.h"
#include "usbfs_memory.h"

#include <fmt/format.h>
#include <strings.h>

#include <algorithm>
#include <string_view>

namespace vsctool {
namespace {

using namespace std::chrono_literals;
using SteadyClock = std::chrono::steady_clock;

constexpr auto kPollInterval = 10ms;

// Beginning of a message of the library.
constexpr std::string_view kNotVerified = "not verified on hardware: ";

Failure WhyNotOpened(const CameraEntry &camera)
{
    if (camera.IsVariant())
        return {
            Exit::kNotSupported,
            fmt::format("{} is listed but cannot be opened: only the primary edition of a model "
                        "can",
                        camera.model)};
    if (camera.usb && !camera.usb->permitted)
        return {Exit::kPermission,
                fmt::format("no permission for {} at {}. What mends it: {}", camera.model,
                            camera.usb->node, GainPermission(FindUdevRule(), MembershipOfUser()))};
    if (camera.usb && camera.usb->Busy())
        return {Exit::kBusy, fmt::format("{} is in use by another program. Close that one first; "
                                         "'fuser -v {}' names it",
                                         camera.model, camera.usb->node)};
    return {Exit::kFailure, fmt::format("{} cannot be opened. Plug it in again; 'vsccam -v info' "
                                        "shows what the library says",
                                        camera.model)};
}

/// Frames have a width of whole groups of eight pixels and an even height.
Region WholeSensor(int bin)
{
    return {getMaxWidth() / bin / 8 * 8, getMaxHeight() / bin / 2 * 2, 0, 0};
}

void CheckRegion(const Region &region, int bin)
{
    const Region whole = WholeSensor(bin);
    const bool fits = region.width % 8 == 0 && region.height % 2 == 0 &&
                      region.x <= getMaxWidth() / bin - region.width &&
                      region.y <= getMaxHeight() / bin - region.height;
    if (!fits)
        throw Failure(Exit::kUsage,
                      fmt::format("region {}x{}+{}+{} does not fit; the largest at bin {} is "
                                  "{}x{}+0+0, widths are multiples of 8, heights are even",
                                  region.width, region.height, region.x, region.y, bin, whole.width,
                                  whole.height));
}

/// "1.0 s"
std::string InSeconds(Microseconds time)
{
    const std::string digits = fmt::format("{}", Seconds(time));
    return digits + (digits.find('.') == std::string::npos ? ".0 s" : " s");
}

/// Of a region that fits and a camera that is there.
Failure WhyNotFramed(const std::string &model, const Region &region, int bin)
{
    constexpr int kBlock = 1024;
    const bool hasBlocks =
        model.find(" VSC340") != std::string::npos || model.find(" VSC052") != std::string::npos;
    const int pixels = region.width * region.height * bin * bin;
    if (!hasBlocks || pixels % kBlock == 0)
        return {Exit::kFailure, fmt::format("{} does not answer; plug it in again", model)};
    return {Exit::kNotSupported,
            fmt::format("{} refuses {} x {} pixels at binning {}: frames of this camera are whole "
                        "blocks of {} pixels of the sensor, and {} are no multiple of that",
                        model, region.width, region.height, bin, kBlock, pixels)};
}

/// What to do when the open camera is there but sends nothing, the likeliest first.
std::string AdviceWithoutFrames()
{
    std::string advice = "Try another cable or port";
    if (isUSB3Camera() && !isUSB3Host())
        advice += " (it is attached by USB 2.0 only)";
    if (getValue(CONTROL_BANDWIDTH, nullptr) > getMin(CONTROL_BANDWIDTH))
        advice += fmt::format(", or leave more of the bus to others: 'vsccam set bandwidth={} -- "
                              "...'",
                              getMin(CONTROL_BANDWIDTH));
    return advice + "; 'vsccam doctor --live' looks at the rest";
}

template <class Duration> Microseconds ToMicroseconds(Duration time)
{
    return std::chrono::duration_cast<Microseconds>(time);
}

/// Identifiers lie in the flash of the cameras: each that can be used is opened and asked.
CameraEntry FindById(const std::vector<CameraEntry> &cameras, std::string_view digits)
{
    const std::string wanted = InHex(ParseId(std::string(digits)));
    for (const CameraEntry &camera : cameras) {
        if (camera.Usable() != "yes")
            continue;
        const auto there = NarrowTo(camera); // nothing: it has gone meanwhile
        const bool opened = there && openCamera(there->index) != 0;
        const auto id = opened ? IdOfCamera() : std::nullopt;
        closeCamera(); // also one that did not open: else the next would be taken for it
        if (id && InHex(*id) == wanted)
            return camera;
    }
    throw Failure(Exit::kNoCamera,
                  fmt::format("no camera that can be used has the identifier {}", wanted));
}

CameraEntry FindCamera(const std::string &selector)
{
    const std::vector<CameraEntry> cameras = ListCameras();
    constexpr std::string_view kById = "id:";
    if (strncasecmp(selector.c_str(), kById.data(), kById.size()) == 0)
        return FindById(cameras, std::string_view(selector).substr(kById.size()));
    return SelectCamera(cameras, selector);
}

} // namespace

Camera::Camera(const CameraChoice &choice)
{
    m_open = s_kept;
    if (!m_open)
        OpenAnew(choice.selector);
    for (const Setting &setting : choice.settings)
        Apply(setting);
}

void Camera::OpenAnew(const std::string &selector)
{
    const bool keepPort = PortOf(selector).has_value();
    const CameraEntry found = FindCamera(selector);
    const auto there = NarrowTo(found, keepPort);
    if (!there)
        throw Failure(Exit::kNoCamera, fmt::format("{} has just gone", found.model));
    m_open = std::make_shared<Open>();
    m_open->entry = *there;
    OpenFound();
    for (const NamedControl &control : AllControls())
        if (control.writable)
            m_open->defaults[&control] = StateOf(control).value;
    if (s_keeps)
        s_kept = m_open;
}

void Camera::OpenAgain()
{
    closeCamera();
    const std::vector<CameraEntry> cameras = ListCameras(); // no others are listed, see NarrowTo
    const auto found = std::ranges::find_if(
        cameras, [this](const CameraEntry &camera) { return camera.model == Entry().model; });
    if (found == cameras.end())
        throw Failure(Exit::kNoCamera, fmt::format("{} is not there", Entry().model));
    m_open->entry = *found;
    OpenFound();
}

void Camera::OpenFound()
{
    const CameraEntry &entry = Entry();
    if (!openCamera(entry.index))
        throw WhyNotOpened(entry);
    if (!initCamera())
        throw Failure(Exit::kFailure,
                      fmt::format("{} does not answer; plug it in again", entry.model));
    (void)Listen();
}

std::vector<LibraryLine> Camera::Listen()
{
    std::vector<LibraryLine> lines = LibraryLines::Take();
    for (const LibraryLine &line : lines)
        if (line.text.starts_with(kNotVerified))
            m_open->notVerified = After(kNotVerified, line.text);
    if (const std::string advice = UsbfsAdvice(lines); !advice.empty())
        m_open->memoryAdvice = advice;
    return lines;
}

void Camera::SetFraming(const Framing &framing)
{
    if (!isBinSupported(framing.bin))
        throw Failure(Exit::kNotSupported,
                      fmt::format("{} has no binning {}", Entry().model, framing.bin));
    if (!isImgTypeSupported(static_cast<int>(framing.format)))
        throw Failure(Exit::kNotSupported, fmt::format("{} does not deliver {}", Entry().model,
                                                       FormatName(framing.format)));
    const Region region = framing.region.value_or(WholeSensor(framing.bin));
    CheckRegion(region, framing.bin);
    if (!setImageFormat(region.width, region.height, framing.bin,
                        static_cast<int>(framing.format))) {
        CheckPresence();
        throw WhyNotFramed(Entry().model, region, framing.bin);
    }
    // Always: after a new size alone, some cameras read other rows than those that it names.
    if (framing.region)
        setStartPos(region.x, region.y);
    else
        setStartPos(getStartX(), getStartY());
}

void Camera::SetExposure(Microseconds time, Console &console)
{
    const Microseconds longest(getMax(CONTROL_EXPOSURE));
    if (time > longest)
        throw Failure(Exit::kUsage,
                      fmt::format("{} exposes {} at most", Entry().model, FormatTime(longest)));
    m_asked = time;
    setValue(CONTROL_EXPOSURE, static_cast<int>(time.count()), false);
    const Microseconds set(getValue(CONTROL_EXPOSURE, nullptr));
    const Microseconds planned = PlannedExposure(Entry().model, isUSB3Host() != 0, set);
    if (set != time)
        console.Note(fmt::format("exposure is {} on this camera", FormatTime(set)));
    else if (planned != set)
        console.Note(fmt::format("{} is exposed as {}", InSeconds(time), InSeconds(planned)));
}

Exposure Camera::Take(Microseconds patience, ProgressBar &bar)
{
    Exposure exposure;
    exposure.asked = m_asked;
    Picture &picture = exposure.picture;
    picture.width = getWidth();
    picture.height = getHeight();
    picture.format = static_cast<PixelFormat>(getImgType());
    picture.bytes.resize(picture.Pixels() * static_cast<size_t>(BytesPerPixel(picture.format)));

    (void)Listen();
    ExposureTimes times;
    startExposure();
    AwaitFrame(exposure, patience, bar);
    times.Hear(Listen());
    const auto account =
        times.Tell(Entry().model, Microseconds(getValue(CONTROL_EXPOSURE, nullptr)));
    exposure.start = account.start;
    exposure.planned = account.planned;
    exposure.measured = account.measured;
    if (!getImageAfterExp(picture.bytes.data(), static_cast<int>(picture.bytes.size())))
        ThrowNoFrame("the exposure ended without a frame");
    return exposure;
}

void Camera::AwaitFrame(Exposure &exposure, Microseconds patience, ProgressBar &bar)
{
    const auto begin = SteadyClock::now();
    while (getExpStatus() == VSC_EXP_WORKING) {
        const auto elapsed = ToMicroseconds(SteadyClock::now() - begin);
        if (elapsed > exposure.asked + patience)
            ThrowNoFrame(
                fmt::format("no frame within {} after the exposure", FormatTime(patience)));
        bar.Show(elapsed);
        exposure.droppedFrames = std::max(exposure.droppedFrames, getDroppedFrames());
        StopSignals::SleepFor(kPollInterval);
    }
}

bool Camera::IsPresent() const
{
    // No others of the model are listed, see NarrowTo; this one may be at another port by now. The
    // library may count one for a while that the system has lost.
    const std::vector<CameraEntry> cameras = ListCameras();
    const auto isIt = [this](const CameraEntry &camera) {
        return camera.model == Entry().model && camera.usb.has_value() == Entry().usb.has_value();
    };
    return std::ranges::any_of(cameras, isIt);
}

void Camera::CheckPresence() const
{
    if (!IsPresent())
        throw Failure(Exit::kCameraLost,
                      fmt::format("{} was unplugged; check plug and power", Entry().model));
}

void Camera::ThrowNoFrame(const std::string &what)
{
    (void)Listen();
    CheckPresence();
    throw Failure(Exit::kNoFrame, fmt::format("{}: {}. {}", Entry().model, what,
                                              m_open->memoryAdvice.empty() ? AdviceWithoutFrames()
                                                                           : m_open->memoryAdvice));
}

std::optional<Mosaic> Camera::PictureMosaic() const
{
    const auto format = static_cast<PixelFormat>(getImgType());
    const bool isRaw = format == PixelFormat::kRaw8 || format == PixelFormat::kRaw16;
    const bool blendsColours = getBin() > 1 && getValue(CONTROL_MONO_BIN, nullptr) != 0;
    if (!isColorCam() || !isRaw || blendsColours)
        return std::nullopt;
    bool flipX = false;
    bool flipY = false;
    GetMisc(&flipX, &flipY);
    return MosaicOf(getColorBayer(), flipX, flipY);
}

std::optional<int> Camera::DefaultOf(const NamedControl &control) const
{
    const auto found = m_open->defaults.find(&control);
    return found == m_open->defaults.end() ? std::nullopt : std::optional(found->second);
}

KeptCamera::KeptCamera()
{
    Camera::s_keeps = true;
}

KeptCamera::~KeptCamera()
{
    LetGo();
    Camera::s_keeps = false;
}

bool KeptCamera::IsOpen() const
{
    return Camera::s_kept != nullptr;
}

void KeptCamera::Rest() const
{
    stopCapture();
    DisableDarkSubtract();
    SetMisc(false, false);
}

void KeptCamera::LetGo()
{
    Camera::s_kept.reset();
}

Mosaic MosaicOf(int bayerCode, bool flipX, bool flipY)
{
    constexpr Mosaic kByCode[] = {{0, 0}, {1, 1}, {1, 0}, {0, 1}}; // RG, BG, GR, GB
    Mosaic mosaic = kByCode[static_cast<unsigned>(bayerCode) % std::size(kByCode)];
    // Widths and heights are even: a mirrored picture begins with what was the second of a pair.
    mosaic.redColumn ^= static_cast<int>(flipX);
    mosaic.redRow ^= static_cast<int>(flipY);
    return mosaic;
}

const char *BayerPattern(Mosaic mosaic)
{
    constexpr const char *kByRedSite[] = {"RGGB", "GRBG", "GBRG", "BGGR"};
    return kByRedSite[mosaic.redRow * 2 + mosaic.redColumn];
}

} // namespace vsctool
