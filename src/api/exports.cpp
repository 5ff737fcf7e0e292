#include "api/session.h"
#include "base/config.h"
#include "base/debug_print.h"

#include <vsccam.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <utility>

using namespace vsccam;

namespace {

/// An exported image format and what stands behind it.
struct ImageFormat {
    IMAGE_TYPE type;
    bool rawOutput;
    int bytesPerPixel;
};

constexpr ImageFormat kFormats[] = {
    // by VSC_IMG_TYPE
    {kByteImage, true, 1},
    {kRgb24, false, 3},
    {kRaw16, true, 2},
    {kByteImage, false, 1},
};

const ImageFormat *FormatOf(int imgType)
{
    return imgType >= 0 && imgType < static_cast<int>(std::size(kFormats)) ? &kFormats[imgType]
                                                                           : nullptr;
}

/// What `ask` says of the open camera, `fallback` when there is none.
template <class Result, class Ask> Result WithCamera(Result fallback, Ask ask)
{
    const Call camera;
    return camera ? static_cast<Result>(ask(*camera)) : fallback;
}

template <class Value> void WriteTo(Value *target, Value value)
{
    if (target)
        *target = value;
}

} // namespace

namespace vsccam {

bool SetImageFormat(CCameraBase &camera, int width, int height, int bin, int imgType)
{
    Session &session = TheSession();
    session.NoteImageType(imgType);
    OutputDbgPrint("width:%d, height:%d, bin:%d, ImgType:%d\n", width, height, bin, imgType);
    const ImageFormat *format = FormatOf(imgType);
    if (!format)
        return false;
    const Delivery::Pause pause(camera.delivery); // no frame is of the one format by half
    const bool rawBefore = camera.settings.With(
        [format](Settings &s) { return std::exchange(s.rawOutput, format->rawOutput); });
    if (!camera.SetResolution(width, height, bin, format->type)) {
        camera.settings.With([rawBefore](Settings &s) { s.rawOutput = rawBefore; });
        return false;
    }
    const Settings now = camera.settings.Now();
    session.SetFrameBytes(now.width * now.height * format->bytesPerPixel);
    // One that has stopped answering is programmed for the format before its next frame.
    return !(camera.programming.IsHalfDone() && RequestBudget::IsUsedUp());
}

} // namespace vsccam

const char *getSDKVersion()
{
    return kLibraryVersion;
}

void setDebugPrint(bool on)
{
    SetDebugPrint(on);
}

VSC_BOOL setImageFormat(int width, int height, int bin, int imgType)
{
    const Call camera(Call::Kind::InTurn);
    return camera && SetImageFormat(*camera, width, height, bin, imgType);
}

int getImgType()
{
    return WithCamera(VSC_IMG_Y8 + 0, [](CCameraBase &camera) {
        const Settings now = camera.settings.Now();
        const auto *format = std::ranges::find_if(kFormats, [&now](const ImageFormat &f) {
            return f.type == now.imageType &&
                   (f.type != kByteImage || f.rawOutput == now.rawOutput);
        });
        return format == std::end(kFormats) ? VSC_IMG_Y8 + 0
                                            : static_cast<int>(format - std::begin(kFormats));
    });
}

VSC_BOOL isImgTypeSupported(int imgType)
{
    return WithCamera(false, [imgType](CCameraBase &) {
        return FormatOf(imgType) != nullptr; // every model delivers all of them
    });
}

VSC_BOOL isBinSupported(int bin)
{
    return WithCamera(0, [bin](CCameraBase &camera) {
        const auto &bins = camera.model.bins;
        const auto *end = std::ranges::find(bins, 0);
        return std::find(bins.begin(), end, bin) != end;
    });
}

int getBin()
{
    return WithCamera(1, [](CCameraBase &camera) { return camera.settings.Now().bin; });
}

int getMaxWidth()
{
    return WithCamera(0, [](CCameraBase &camera) { return MaxSizeOf(camera.model).width; });
}

int getMaxHeight()
{
    return WithCamera(0, [](CCameraBase &camera) { return MaxSizeOf(camera.model).height; });
}

int getWidth()
{
    return WithCamera(0, [](CCameraBase &camera) { return camera.settings.Now().width; });
}

int getHeight()
{
    return WithCamera(0, [](CCameraBase &camera) { return camera.settings.Now().height; });
}

void setStartPos(int x, int y)
{
    const Call camera(Call::Kind::InTurn); // the size must not change meanwhile
    if (!camera)
        return;
    const Settings now = camera->settings.Now();
    const int64_t bin = now.bin;
    const auto clamp = [](int64_t v) {
        return static_cast<int>(std::clamp<int64_t>(v, INT32_MIN, INT32_MAX));
    };
    (void)camera->SetStartPos(clamp(x * bin), clamp(y * bin));
}

int getStartX()
{
    return WithCamera(0, [](CCameraBase &camera) {
        const Settings now = camera.settings.Now();
        return now.startX / now.bin;
    });
}

int getStartY()
{
    return WithCamera(0, [](CCameraBase &camera) {
        const Settings now = camera.settings.Now();
        return now.startY / now.bin;
    });
}

VSC_BOOL isColorCam()
{
    return WithCamera(0, [](CCameraBase &camera) { return camera.model.colour; });
}

double getPixelSize()
{
    return WithCamera(0.0, [](CCameraBase &camera) { return camera.model.pixelSizeUm; });
}

int getColorBayer()
{
    return WithCamera(2, [](CCameraBase &camera) { return camera.model.bayer; });
}

VSC_BOOL isUSB3Host()
{
    return WithCamera(0, [](CCameraBase &camera) { return camera.settings.Now().usb3Host; });
}

VSC_BOOL isUSB3Camera()
{
    return WithCamera(0, [](CCameraBase &camera) { return camera.model.usb3Camera; });
}

VSC_BOOL isCoolerCam()
{
    return WithCamera(0, [](CCameraBase &camera) { return camera.model.cooled; });
}

float getElectronsPerADU()
{
    return WithCamera(0.0F, [](CCameraBase &camera) { return camera.model.electronsPerAdu; });
}

void getGainOffset(int *a, int *b, int *c, int *d)
{
    const Call camera;
    if (!camera)
        return;
    const auto &figures = camera->model.gainOffset;
    WriteTo(a, figures[0]);
    WriteTo(b, figures[1]);
    WriteTo(c, figures[2]);
    WriteTo(d, figures[3]);
}

void startCapture()
{
    if (const Call camera(Call::Kind::InTurn); camera)
        (void)camera->StartCapture(false); // false: the device is not open, and stays silent
}

void stopCapture()
{
    if (const Call camera(Call::Kind::InTurn); camera)
        (void)camera->StopCapture();
}

VSC_BOOL getImageData(unsigned char *buffer, int bufferSize, int waitMs)
{
    const int length = TheSession().FrameBytes();
    return WithCamera(0, [=](CCameraBase &camera) {
        return length <= bufferSize && camera.GetImage(buffer, length, waitMs);
    });
}

int getDroppedFrames()
{
    return WithCamera(0, [](CCameraBase &camera) { return camera.capture.Dropped(); });
}

void startExposure()
{
    if (const Call camera(Call::Kind::InTurn); camera)
        camera->StartExposure();
}

void stopExposure()
{
    if (const Call camera(Call::Kind::InTurn); camera)
        camera->StopExposure();
}

int getExpStatus()
{
    return WithCamera(VSC_EXP_FAILED + 0,
                      [](CCameraBase &camera) { return camera.capture.ExpStatus(); });
}

VSC_BOOL getImageAfterExp(unsigned char *buffer, int bufferSize)
{
    const int length = TheSession().FrameBytes();
    return WithCamera(0, [=](CCameraBase &camera) {
        return buffer && length <= bufferSize && camera.GetImageAfterExp(buffer, length);
    });
}

float getSensorTemp()
{
    return WithCamera(0.0F, [](CCameraBase &camera) { return camera.GetSensorTemp(); });
}

VSC_BOOL SetMisc(bool bFlipX, bool bFlipY)
{
    return WithCamera(false, [=](CCameraBase &camera) {
        camera.settings.With([=](Settings &s) {
            s.flipH = bFlipX;
            s.flipV = bFlipY;
        });
        return true;
    });
}

void GetMisc(bool *pbFlipX, bool *pbFlipY)
{
    const Call camera;
    if (!camera)
        return;
    const Settings now = camera->settings.Now();
    WriteTo(pbFlipX, now.flipH);
    WriteTo(pbFlipY, now.flipV);
}

void pulseGuide(GuideD direction, int ms)
{
    if (const Call camera; camera)
        (void)camera->pulseGuide(direction, ms);
}

VSC_BOOL EnableDarkSubtract(const char *bmpPath)
{
    return WithCamera(0, [bmpPath](CCameraBase &camera) {
        return bmpPath && camera.LoadBMPFromFile(bmpPath) == 1;
    });
}

void DisableDarkSubtract()
{
    if (const Call camera; camera)
        camera->UsingDark(false);
}

VSC_BOOL GetID(_VSC_ID *id)
{
    const Call camera;
    CameraId stored{};
    if (!camera || !id || !camera->ReadIDFromSPI(&stored))
        return false;
    std::ranges::copy(stored, id->id);
    return true;
}

VSC_BOOL SetID(_VSC_ID id)
{
    CameraId stored{};
    std::ranges::copy(id.id, stored.begin());
    return WithCamera(0, [&stored](CCameraBase &camera) { return camera.WriteIDToSPI(stored); });
}
