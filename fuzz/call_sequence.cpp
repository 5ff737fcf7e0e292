#include "base/sync.h"
#include "lying_camera.h"

#include <cstring>
#include <vector>

// Fifty calls of a host in any order and with any arguments, on a camera that answers anything.
// Whatever comes of it, the library neither touches memory that is not its own nor leaves anything.

namespace {

constexpr int kCalls = 50;
constexpr const char *kModels[] = {"VSC450MC-Cool", "VSC048MC", "VSC340MC", "VSC340MM-S",
                                   "VSC052MC",      "VSC350MM", "VSC047MC", "VSC056MM"};

/// A host that may say anything but what takes for ever, or more memory than it has.
struct Host {
    Decisions decisions;

    int Int() { return decisions.Number(); }
    bool Flag() { return decisions.Flag(); }
    template <class Value> Value *Maybe(Value &value) { return Flag() ? &value : nullptr; }

    /// Lets `call` have a buffer for an image, of its size or of another one.
    template <class Call> void WithBuffer(Call call)
    {
        constexpr int kMost = 1 << 22;
        constexpr int kBytesPerPixel[] = {1, 3, 2, 1};
        const int frame = getWidth() * getHeight() * kBytesPerPixel[getImgType()];
        const int size = Flag() ? frame : Int();
        std::vector<uint8_t> buffer(static_cast<size_t>(std::clamp(size, 1, kMost)));
        call(Flag() || Flag() ? buffer.data() : nullptr, std::min(size, kMost));
    }

    /// A wait without end is ended by a stop from another thread.
    void TakeFrame()
    {
        const int wait = decisions.Byte() - 1;
        vsccam::Thread stop;
        if (wait == -1)
            Must(stop.Start([] {
                vsccam::SleepFor(std::chrono::seconds(1));
                stopCapture();
            }));
        WithBuffer([wait](uint8_t *buffer, int size) { (void)getImageData(buffer, size, wait); });
    }

    _VSC_ID Identity() { return {{decisions.Byte(), decisions.Byte()}}; }
};

void AskForAll(Host &host)
{
    int numbers[4];
    bool flags[2];
    getAutoPara(host.Maybe(numbers[0]), host.Maybe(numbers[1]), host.Maybe(numbers[2]));
    getGainOffset(host.Maybe(numbers[0]), nullptr, host.Maybe(numbers[2]), host.Maybe(numbers[3]));
    GetMisc(host.Maybe(flags[0]), host.Maybe(flags[1]));
    Must(std::strlen(getSDKVersion()) > 0 && getMaxWidth() >= getWidth() * getBin());
    Must(getMaxHeight() >= getHeight() * getBin() && getPixelSize() >= 0);
    Must(isUSB3Host() <= isUSB3Camera() || getWidth() == 0);
    (void)(isColorCam() + isCoolerCam() + getColorBayer() + getStartX() + getStartY());
    Must(getElectronsPerADU() >= 0 && getDroppedFrames() >= 0);
}

using Call = void (*)(Host &);
constexpr Call kAnyCall[] = {
    [](Host &) { Must(getNumberOfConnectedCameras() <= 1); },
    [](Host &host) { (void)getCameraModel(host.Int()); },
    [](Host &host) { (void)openCamera(host.Int()); },
    [](Host &) { (void)openCamera(0); },
    [](Host &) { (void)initCamera(); },
    [](Host &) { closeCamera(); },
    [](Host &host) {
        bool automatic = false;
        (void)getValue(host.Int(), host.Maybe(automatic));
    },
    [](Host &host) { setValue(host.decisions.Byte() % 17, host.Int(), host.Flag()); },
    [](Host &host) { setValue(host.Int(), host.Int(), host.Flag()); },
    [](Host &host) {
        const int control = host.Int();
        Must(getMin(control) <= getMax(control) && isAutoSupported(control) <= 1);
        Must(isAvailable(control) <= 1);
    },
    [](Host &host) { setAutoPara(host.Int(), host.Int(), host.Int()); },
    [](Host &host) { (void)setImageFormat(host.Int(), host.Int(), host.Int(), host.Int()); },
    [](Host &host) {
        const int width = host.decisions.Byte();
        const int height = host.decisions.Byte() * 2;
        (void)setImageFormat(width * 8, height, host.decisions.Byte() % 5, host.Int());
    },
    [](Host &host) {
        Must(isImgTypeSupported(host.Int()) <= 1 && isBinSupported(host.Int()) <= 1);
    },
    [](Host &host) { setStartPos(host.Int(), host.Int()); },
    AskForAll,
    [](Host &) { startCapture(); },
    [](Host &) { stopCapture(); },
    [](Host &host) { host.TakeFrame(); },
    [](Host &) { startExposure(); },
    [](Host &) { stopExposure(); },
    [](Host &) { Must(getExpStatus() >= VSC_EXP_IDLE && getExpStatus() <= VSC_EXP_FAILED); },
    [](Host &host) {
        host.WithBuffer([](uint8_t *buffer, int size) { (void)getImageAfterExp(buffer, size); });
    },
    [](Host &) { (void)getSensorTemp(); },
    [](Host &host) { (void)SetMisc(host.Flag(), host.Flag()); },
    [](Host &host) { pulseGuide(host.Int(), host.decisions.Byte() - 2); },
    [](Host &host) {
        constexpr const char *kPaths[] = {nullptr, "", "/", "/dev/null", "/no/such/file"};
        (void)EnableDarkSubtract(kPaths[host.decisions.Below(std::size(kPaths))]);
    },
    [](Host &) { DisableDarkSubtract(); },
    [](Host &host) {
        _VSC_ID id{};
        (void)GetID(host.Maybe(id));
    },
    [](Host &host) { (void)SetID(host.Identity()); },
    [](Host &host) { setDebugPrint(host.Flag()); },
    [](Host &host) { vsccam::SleepFor(std::chrono::milliseconds(host.decisions.Byte() * 4)); },
    [](Host &) { LyingCamera::Bus().Unplug(0); },
    [](Host &) { LyingCamera::Bus().Replug(0); },
};

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    const std::span input(bytes, size);
    Host host{Decisions(input)};
    const LyingCamera camera(kModels[host.decisions.Byte() % std::size(kModels)],
                             std::make_shared<Liar>(input), 1);
    (void)getNumberOfConnectedCameras(); // what an earlier input counted is forgotten
    // Most sequences of any calls would never come far.
    const uint8_t begin = host.decisions.Byte();
    if (begin >= 0x10)
        (void)(openCamera(0) && begin >= 0x20 && initCamera());
    for (int i = 0; i < kCalls && !host.decisions.UsedUp(); ++i)
        kAnyCall[host.decisions.Byte() % std::size(kAnyCall)](host);
    setDebugPrint(false);
    return 0;
}
