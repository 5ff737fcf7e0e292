#include "core/dark_frames.h"

#include "base/debug_print.h"
#include "core/raw_frame.h"

#include <algorithm>
#include <utility>

// Dark frames: the sensor's fixed pattern, subtracted from 8-bit frames.
namespace vsccam {

namespace {

constexpr int kBrightOverMean = 30;

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
    const SectionLock imageLock(m_imageSection);
    m_image = {};
    Install({});
}

void DarkFrames::Request(int frames)
{
    const SectionLock lock(m_imageSection);
    m_sum = {};
    m_framesTaken = 0;
    m_framesWanted = std::max(frames, 1);
    m_requested = frames > 0;
}

bool DarkFrames::Add(std::span<const uint8_t> frame)
{
    const SectionLock lock(m_imageSection);
    if (!m_requested) // cancelled in the meantime
        return false;
    m_sum.resize(frame.size());
    const int wanted = m_framesWanted;
    std::ranges::transform(m_sum, frame, m_sum.begin(), [wanted](uint8_t sum, uint8_t sample) {
        return static_cast<uint8_t>(std::min(sum + sample / wanted, kBrightest));
    });
    if (++m_framesTaken < m_framesWanted)
        return false;
    m_image = std::exchange(m_sum, {});
    m_requested = false;
    return true;
}

void DarkFrames::SetImage(std::vector<uint8_t> image)
{
    const SectionLock lock(m_imageSection);
    m_image = std::move(image);
}

std::vector<uint8_t> DarkFrames::Image()
{
    const SectionLock lock(m_imageSection);
    return m_image;
}

std::vector<uint8_t> DarkFrames::BrightBitmap()
{
    const SectionLock lock(m_imageSection);
    const auto working = m_cut.Now().working;
    const int mean = working ? working->mean : 0;
    std::vector<uint8_t> bitmap(m_image.size() / 8);
    for (size_t i = 0; i < bitmap.size() * 8; ++i)
        if (IsBright(m_image[i], mean))
            bitmap[i / 8] |= static_cast<uint8_t>(1U << (i % 8));
    return bitmap;
}

void DarkFrames::Cut(const FrameRegion &region)
{
    const SectionLock lock(m_imageSection);
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
    m_cut.With([&cut](DarkCut &current) { std::swap(current, cut); });
}

} // namespace vsccam
