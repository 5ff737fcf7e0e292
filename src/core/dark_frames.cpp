#include "core/dark_frames.h"

#include "base/debug_print.h"
#include "core/camera_base.h"
#include "core/dark_file.h"
#include "core/raw_frame.h"

#include <algorithm>
#include <mutex>
#include <new>
#include <utility>

// Dark frames: the sensor's fixed pattern, subtracted from 8-bit frames.
namespace vsccam {

namespace {

constexpr int kBrightOverMean = 30;
constexpr int kSuccess = 1; // of operations that return numbers
constexpr uint32_t kSubtractedInAutoFromUs = 500'000;
constexpr char kNoMemory[] = "no memory for the dark frame\n";

bool IsBright(int value, int mean)
{
    return value > mean + kBrightOverMean;
}

std::vector<uint32_t> BrightPixelsOf(const WorkingDark &dark)
{
    std::vector<uint32_t> bright;
    for (size_t i = 0; i < dark.pixels.size(); ++i)
        if (IsBright(dark.pixels[i], dark.mean))
            bright.push_back(static_cast<uint32_t>(i));
    return bright;
}

} // namespace

int DarkFramesFor(uint32_t exposureUs)
{
    constexpr struct {
        uint32_t belowMs;
        int frames;
    } kFrames[] = {{101, 5}, {326, 4}, {551, 3}, {776, 2}};
    for (const auto [belowMs, frames] : kFrames)
        if (exposureUs / 1000 < belowMs)
            return frames;
    return 1;
}

void DarkFrames::Disable()
{
    m_enabled = false;
    const std::lock_guard imageLock(m_imageSection);
    m_image = {};
    Install({});
}

void DarkFrames::Request(int frames)
{
    const std::lock_guard lock(m_imageSection);
    m_sum = {};
    m_framesTaken = 0;
    m_framesWanted = std::max(frames, 1);
    m_requested = frames > 0;
}

bool DarkFrames::Add(std::span<const uint8_t> frame)
{
    const std::lock_guard lock(m_imageSection);
    if (!m_requested) // cancelled in the meantime
        return false;
    m_sum.resize(frame.size());
    std::ranges::transform(m_sum, frame, m_sum.begin(), [this](uint8_t sum, uint8_t sample) {
        return static_cast<uint8_t>(std::min(sum + sample / m_framesWanted, kBrightest));
    });
    if (++m_framesTaken < m_framesWanted)
        return false;
    m_image = std::exchange(m_sum, {});
    m_requested = false;
    return true;
}

void DarkFrames::SetImage(std::vector<uint8_t> image)
{
    const std::lock_guard lock(m_imageSection);
    m_image = std::move(image);
}

std::vector<uint8_t> DarkFrames::Image()
{
    const std::lock_guard lock(m_imageSection);
    return m_image;
}

std::vector<uint8_t> DarkFrames::BrightBitmap()
{
    const std::lock_guard lock(m_imageSection);
    const auto working = Current().working;
    const int mean = working ? working->mean : 0;
    std::vector<uint8_t> bitmap(m_image.size() / 8);
    for (size_t i = 0; i < bitmap.size() * 8; ++i)
        if (IsBright(m_image[i], mean))
            bitmap[i / 8] |= static_cast<uint8_t>(1U << (i % 8));
    return bitmap;
}

void DarkFrames::Cut(const FrameRegion &region)
{
    const std::lock_guard lock(m_imageSection);
    if (m_image.empty())
        return;
    ImageCut cut = CutImage(m_image, region);
    WorkingDark dark{region.frame, cut.mean, std::move(cut.pixels)};
    OutputDbgPrint("avarage:%d\n", dark.mean);
    const std::vector<uint32_t> bright = BrightPixelsOf(dark);
    OutputDbgPrint("Dead pixel:%d\n", static_cast<int>(bright.size()));
    Install({std::make_shared<const WorkingDark>(std::move(dark)),
             PatchesFor(bright, region, PatchRule::kMeanOfSides)});
}

void DarkFrames::Install(DarkCut cut)
{
    const std::lock_guard workingLock(m_workingSection);
    const std::lock_guard brightLock(m_brightSection);
    m_cut = std::move(cut);
}

DarkCut DarkFrames::Current()
{
    const std::lock_guard workingLock(m_workingSection);
    const std::lock_guard brightLock(m_brightSection);
    return m_cut;
}

int CCameraBase::GettingDark(bool on, unsigned long long)
{
    const int frames = DarkFramesFor(m_exposureUs);
    m_darkFrames.Request(on ? frames : 0);
    return frames;
}

void CCameraBase::DoGetDark(const uint8_t *frame, Size readout)
{
    // Decision: only whole frames count, and a request waits for them: what the host reads at other
    // sizes is no failure, and the request is still there when it reads the whole sensor again.
    const bool whole = readout == m_maxSize && m_startX == 0 && m_startY == 0;
    if (!m_darkFrames.Requested() || !whole)
        return;
    const auto pixels = static_cast<size_t>(readout.width) * static_cast<size_t>(readout.height);
    try {
        if (m_darkFrames.Add({frame, pixels}))
            (void)AdjustDarkBuff(); // without it the host gets the frame as it is
    } catch (const std::bad_alloc &) {
        OutputDbgPrint(kNoMemory);
        m_darkFrames.Request(0);
    }
}

bool CCameraBase::AdjustDarkBuff()
try {
    FrameRegion region;
    do { // until it is the region that others, who may be moving it meanwhile, have come to
        region = RawFrameRegion();
        m_darkFrames.Cut(region);
    } while (region != RawFrameRegion());
    return true;
} catch (const std::bad_alloc &) {
    OutputDbgPrint(kNoMemory);
    m_darkFrames.Disable();
    return false;
}

void CCameraBase::UsingDark(bool on)
{
    if (on)
        m_darkFrames.Enable();
    else
        m_darkFrames.Disable();
}

int CCameraBase::SaveBMPToFile(const char *path)
try {
    const std::vector<uint8_t> image = m_darkFrames.Image();
    if (image.empty() || !CreateBMP(path, m_maxSize, image))
        return 0;
    OutputDbgPrint("Save file %s --> succeed!\n", path);
    return kSuccess;
} catch (const std::bad_alloc &) {
    OutputDbgPrint(kNoMemory);
    return 0;
}

int CCameraBase::LoadBMPFromFile(const char *path)
try {
    const File file = OpenRegularFile(path);
    if (!file) {
        UsingDark(false);
        OutputDbgPrint("Open file %s failed!\n", path);
        return static_cast<int>(DarkFileResult::kNotFound);
    }
    std::vector<uint8_t> image;
    const DarkFileResult result = ReadDarkFile(file.get(), m_maxSize, &image);
    if (result == DarkFileResult::kRead) {
        m_darkFrames.SetImage(std::move(image));
        if (!AdjustDarkBuff())
            return static_cast<int>(DarkFileResult::kUnusable);
        UsingDark(true);
        OutputDbgPrint("Open file %s --> succeed!\n", path);
    }
    return static_cast<int>(result);
} catch (const std::bad_alloc &) {
    OutputDbgPrint(kNoMemory);
    return static_cast<int>(DarkFileResult::kUnusable);
}

FrameRegion CCameraBase::RawFrameRegion()
{
    const int bin = m_bin; // each is looked at once: the host may be setting another format
    const int software = SoftwareBin(bin, m_hardwareBin);
    const Size frame{m_width * software, m_height * software};
    return {.sensor = m_maxSize,
            .x = m_startX,
            .y = m_startY,
            .frame = frame,
            .binning = bin / software,
            .mosaic = m_model.colour};
}

FrameCorrections CCameraBase::Corrections(Size readout)
{
    FrameCorrections corrections;
    if (m_darkFrames.Enabled()) {
        corrections.dark = m_darkFrames.Current();
        if (corrections.dark.working && corrections.dark.working->size != readout)
            corrections.dark = {};
        // Auto exposure looks at frames as they come; short ones have little dark current.
        const bool leftAlone = m_exposureAuto && m_exposureUs < kSubtractedInAutoFromUs;
        if (m_output16Bits || leftAlone)
            corrections.dark.working = nullptr;
    }
    if (m_hotPixels.Enabled()) {
        corrections.hotPixels = m_hotPixels.Patches();
        const PixelPatches *patches = corrections.hotPixels.get();
        if (patches && Size{patches->width, patches->height} != readout)
            corrections.hotPixels = nullptr;
    }
    return corrections;
}

} // namespace vsccam
