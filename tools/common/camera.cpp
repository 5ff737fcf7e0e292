#include "camera.h"

#include "failure.h"
#include "stop_signals.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <utility>

namespace vsctool {
namespace {

using namespace std::chrono_literals;
using SteadyClock = std::chrono::steady_clock;

constexpr auto kPollInterval = 10ms;
// From here on exposures are timed by the host, in whole steps; shorter ones by the sensor.
constexpr Microseconds kTimedByHostFrom = 1s;
// What 100 per cent of the bandwidth control stand for. From the data of one model, not verified on
// hardware for the others.
constexpr double kUsb3BytesPerSecond = 360e6;
constexpr double kUsb2BytesPerSecond = 43e6;

Failure WhyNotOpened(const CameraEntry &camera)
{
    if (camera.IsVariant())
        return {
            Exit::kNotSupported,
            fmt::format("{} is listed but cannot be opened: only the primary edition of a model "
                        "can",
                        camera.model)};
    if (camera.usb && !camera.usb->permitted)
        return {
            Exit::kPermission,
            fmt::format("no permission for {} at {}. Install the udev rule of the package "
                        "vsccam-common (or copy 60-vsccam.rules to /etc/udev/rules.d), join the "
                        "group plugdev, then plug the camera in again",
                        camera.model, camera.usb->node)};
    if (camera.usb && camera.usb->busy)
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

template <class Duration> Microseconds ToMicroseconds(Duration time)
{
    return std::chrono::duration_cast<Microseconds>(time);
}

} // namespace

Camera::Camera(const CameraChoice &choice)
{
    m_entry = SelectCamera(ListCameras(), choice.selector);
    if (!openCamera(m_entry.index))
        throw WhyNotOpened(m_entry);
    if (!initCamera())
        throw Failure(Exit::kFailure,
                      fmt::format("{} does not answer; plug it in again", m_entry.model));
    for (const Setting &setting : choice.settings)
        Apply(setting);
}

void Camera::SetFraming(const Framing &framing)
{
    if (!isBinSupported(framing.bin))
        throw Failure(Exit::kNotSupported,
                      fmt::format("{} has no binning {}", m_entry.model, framing.bin));
    if (!isImgTypeSupported(static_cast<int>(framing.format)))
        throw Failure(Exit::kNotSupported, fmt::format("{} does not deliver {}", m_entry.model,
                                                       FormatName(framing.format)));
    const Region region = framing.region.value_or(WholeSensor(framing.bin));
    CheckRegion(region, framing.bin);
    if (!setImageFormat(region.width, region.height, framing.bin, static_cast<int>(framing.format)))
        throw Failure(Exit::kNotSupported,
                      fmt::format("{} refuses {} x {} pixels at binning {}", m_entry.model,
                                  region.width, region.height, framing.bin));
    if (framing.region)
        setStartPos(region.x, region.y);
}

Microseconds Camera::SetExposure(Microseconds time)
{
    const Microseconds longest(getMax(CONTROL_EXPOSURE));
    if (time > longest)
        throw Failure(Exit::kUsage,
                      fmt::format("{} exposes {} at most", m_entry.model, FormatTime(longest)));
    setValue(CONTROL_EXPOSURE, static_cast<int>(time.count()), false);
    return Microseconds(getValue(CONTROL_EXPOSURE, nullptr));
}

Exposure Camera::Take(Microseconds asked, Microseconds patience, ProgressBar &bar)
{
    Exposure exposure;
    exposure.asked = asked;
    Picture &picture = exposure.picture;
    picture.width = getWidth();
    picture.height = getHeight();
    picture.format = static_cast<PixelFormat>(getImgType());
    picture.bytes.resize(picture.Pixels() * static_cast<size_t>(BytesPerPixel(picture.format)));

    exposure.start = std::chrono::floor<Microseconds>(std::chrono::system_clock::now());
    const auto begin = SteadyClock::now();
    startExposure();
    while (getExpStatus() == VSC_EXP_WORKING) {
        const auto elapsed = ToMicroseconds(SteadyClock::now() - begin);
        if (elapsed > asked + patience)
            ThrowNoFrame(
                fmt::format("no frame within {} after the exposure", FormatTime(patience)));
        bar.Show(elapsed);
        exposure.droppedFrames = std::max(exposure.droppedFrames, getDroppedFrames());
        StopSignals::SleepFor(kPollInterval);
    }
    const auto untilFrame = ToMicroseconds(SteadyClock::now() - begin);
    if (!getImageAfterExp(picture.bytes.data(), static_cast<int>(picture.bytes.size())))
        ThrowNoFrame("the exposure ended without a frame");
    exposure.measured = ExposedTime(Microseconds(getValue(CONTROL_EXPOSURE, nullptr)), untilFrame);
    return exposure;
}

/// The tool sees when the frame has arrived; before that it was read out.
Microseconds Camera::ExposedTime(Microseconds asked, Microseconds untilFrame) const
{
    if (asked < kTimedByHostFrom)
        return asked;
    const double sensorPixels = static_cast<double>(getWidth()) * getHeight() * getBin() * getBin();
    const double bytes = sensorPixels * (getImgType() == VSC_IMG_RAW16 ? 2 : 1);
    const double rate = (isUSB3Host() ? kUsb3BytesPerSecond : kUsb2BytesPerSecond) *
                        std::max(getValue(CONTROL_BANDWIDTH, nullptr), 1) / 100;
    const std::chrono::duration<double> readOut(bytes / rate);
    return std::max(untilFrame - ToMicroseconds(readOut), Microseconds(0));
}

void Camera::CheckPresence() const
{
    const std::vector<CameraEntry> cameras = ListCameras();
    const auto isIt = [this](const CameraEntry &camera) { return camera.IsSamePlace(m_entry); };
    if (std::ranges::none_of(cameras, isIt))
        throw Failure(Exit::kCameraLost,
                      fmt::format("{} was unplugged; check plug and power", m_entry.model));
}

void Camera::ThrowNoFrame(const std::string &what) const
{
    CheckPresence();
    throw Failure(Exit::kNoFrame,
                  fmt::format("{}: {}. Try another cable or port", m_entry.model, what));
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
