#include "core/corrections.h"

#include "base/debug_print.h"
#include "core/dark_file.h"

#include <new>
#include <utility>

namespace vsccam {

namespace {

constexpr int kSuccess = 1; // of operations that return numbers
constexpr uint32_t kSubtractedInAutoFromUs = 500'000;
constexpr char kNoMemoryForDark[] = "no memory for the dark frame\n";

/// Auto exposure looks at frames as they come; short ones have little dark current.
bool SubtractsDark(const Settings &settings)
{
    const bool leftAlone = settings.exposureAuto && settings.exposureUs < kSubtractedInAutoFromUs;
    return !settings.output16Bits && !leftAlone;
}

} // namespace

void Corrections::FollowRegion()
{
    const FrameRegion region = Region();
    const FrameRegion before =
        m_fitted.With([&region](FrameRegion &fitted) { return std::exchange(fitted, region); });
    if (region == before) // cutting them of a large sensor takes its time
        return;
    (void)FitDark(); // frames are delivered without it, too
    FitHotPixels();
}

bool Corrections::FitDark()
try {
    FrameRegion region;
    do { // others may be moving the region meanwhile
        region = Region();
        dark.Cut(region);
    } while (region != Region());
    return true;
} catch (const std::bad_alloc &) {
    OutputDbgPrint(kNoMemoryForDark);
    dark.Disable();
    return false;
}

void Corrections::FitHotPixels()
try {
    hotPixels.Cut(Region());
} catch (const std::bad_alloc &) {
    OutputDbgPrint("no memory for the hot pixels\n");
    hotPixels.Disable();
}

void Corrections::SetHotPixels(std::vector<uint32_t> pixels)
{
    hotPixels.SetPixels(std::move(pixels), Region());
}

void Corrections::TakeForDark(const uint8_t *frame, const Settings &settings)
{
    if (!dark.Requested())
        return;
    // Decision: only whole frames count, and a request waits for them: what the host reads at other
    // sizes is no failure, and the request is still there when it reads the whole sensor again.
    const Readout readout = ReadoutOf(m_model, settings);
    const bool whole =
        readout.size == MaxSizeOf(m_model) && settings.startX == 0 && settings.startY == 0;
    if (!whole)
        return;
    try {
        if (dark.Add({frame, static_cast<size_t>(readout.Bytes())}))
            (void)FitDark(); // without it the host gets the frame as it is
    } catch (const std::bad_alloc &) {
        OutputDbgPrint(kNoMemoryForDark);
        dark.Request(0);
    }
}

int Corrections::SaveDark(const char *path)
try {
    const std::vector<uint8_t> image = dark.Image();
    if (image.empty() || !CreateBMP(path, MaxSizeOf(m_model), image))
        return 0;
    OutputDbgPrint("Save file %s --> succeed!\n", path);
    return kSuccess;
} catch (const std::bad_alloc &) {
    OutputDbgPrint(kNoMemoryForDark);
    return 0;
}

int Corrections::LoadDark(const char *path)
try {
    const File file = OpenRegularFile(path);
    if (!file) {
        dark.Disable();
        OutputDbgPrint("Open file %s failed!\n", path);
        return static_cast<int>(DarkFileResult::kNotFound);
    }
    std::vector<uint8_t> image;
    const DarkFileResult result = ReadDarkFile(file.get(), MaxSizeOf(m_model), &image);
    if (result == DarkFileResult::kRead) {
        dark.SetImage(std::move(image));
        if (!FitDark())
            return static_cast<int>(DarkFileResult::kUnusable);
        dark.Enable();
        OutputDbgPrint("Open file %s --> succeed!\n", path);
    }
    return static_cast<int>(result);
} catch (const std::bad_alloc &) {
    OutputDbgPrint(kNoMemoryForDark);
    return static_cast<int>(DarkFileResult::kUnusable);
}

FrameCorrections Corrections::For(const Settings &settings) const
{
    FrameCorrections corrections;
    const Size readout = ReadoutOf(m_model, settings).size;
    if (dark.Enabled()) {
        corrections.dark = dark.Current();
        if (corrections.dark.working && corrections.dark.working->size != readout)
            corrections.dark = {};
        if (!SubtractsDark(settings))
            corrections.dark.working = nullptr;
    }
    if (hotPixels.Enabled()) {
        corrections.hotPixels = hotPixels.Patches();
        const PixelPatches *patches = corrections.hotPixels.get();
        if (patches && Size{patches->width, patches->height} != readout)
            corrections.hotPixels = nullptr;
    }
    return corrections;
}

} // namespace vsccam
