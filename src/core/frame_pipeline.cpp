#include "base/debug_print.h"
#include "core/camera_base.h"
#include "image/frame_marks.h"
#include "image/time_mark.h"

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <utility>

// From the raw frame to the host's buffer, on the thread of the host that asks for it.
namespace vsccam {

namespace {

int64_t Area(Size size)
{
    return int64_t{size.width} * size.height;
}

bool Aligned16(const uint8_t *bytes)
{
    return reinterpret_cast<uintptr_t>(bytes) % 2 == 0;
}

constexpr int kNoLimit = -1;
constexpr uint32_t kSlowVideoFromUs = 100'000; // frames this far apart are taken as they come
// A host that waits is held up so much longer for the frame behind the one that has come.
constexpr std::chrono::milliseconds kGraceForFollower{100};

void SwapBytes(std::span<uint8_t> samples)
{
    for (size_t i = 0; i + 1 < samples.size(); i += 2)
        std::swap(samples[i], samples[i + 1]);
}

} // namespace

Size CCameraBase::ReadoutSize()
{
    const int factor = SoftwareBin();
    return {m_width * factor, m_height * factor};
}

int CCameraBase::SoftwareBin()
{
    if (!m_hardwareBin)
        return m_bin;
    return m_bin == 4 && m_model.hardwareBin4IsHalf ? 2 : 1;
}

int CCameraBase::ReadoutBytes()
{
    return static_cast<int>(Area(ReadoutSize()) * (m_output16Bits ? 2 : 1));
}

bool CCameraBase::GetImageAfterExp(unsigned char *buffer, int size)
{
    const bool taken = m_expStatus == kExpSuccess && GetImage(buffer, size, -1);
    m_expStatus = kExpIdle;
    return taken;
}

bool CCameraBase::GetImage(unsigned char *buffer, int size, int waitMs)
{
    if (!buffer ||
        Area({m_width, m_height}) * static_cast<int64_t>(BytesPerPixel(ImageType())) > size)
        return false;
    // The buffer of the host serves as the work buffer where each pixel stays in its place.
    const bool inPlace = DeliversAsRead() && Aligned16(buffer);
    uint8_t *frame = inPlace ? buffer : m_work.data();
    if (!TakeFrame(frame, waitMs))
        return false;
    if (m_output16Bits)
        Deliver16(reinterpret_cast<uint16_t *>(frame), buffer);
    else
        Deliver8(frame, buffer);
    if (m_timeMark)
        AddTimeMark(buffer, m_width, ImageType());
    return true;
}

/// Takes the next good frame, without what the camera wrote over its pixels, samples in the order
/// of the host.
bool CCameraBase::TakeFrame(uint8_t *frame, int waitMs)
{
    const size_t rowBytes =
        static_cast<size_t>(ReadoutSize().width) * static_cast<size_t>(m_output16Bits ? 2 : 1);
    const std::span bytes(frame, static_cast<size_t>(ReadoutBytes()));
    if (ReaderChecksFrames()) {
        if (!AwaitHeadMarkedFrame(waitMs) || !m_frames.ReadBuff(frame, ReadoutBytes(), 0))
            return false;
        HideHeadMark(bytes, rowBytes);
    } else {
        if (!m_frames.ReadBuff(frame, ReadoutBytes(), waitMs))
            return false;
        HideFrameMarks(bytes, rowBytes);
    }
    if (m_output16Bits && m_model.highByteFirst)
        SwapBytes(bytes);
    return true;
}

/// Waits for a good frame, which is next to be read then. Frames whose mark is missing are thrown
/// away here. So is, in fast video, a frame that a frame without mark follows: it has lost its end
/// to it. One that nothing follows in time stays for the next call; when the capture stops, it is
/// gone with all that was not taken. A finite wait is not begun anew for the next frame.
bool CCameraBase::AwaitHeadMarkedFrame(int waitMs)
{
    using std::chrono::milliseconds;
    const auto deadline = Clock::now() + milliseconds(waitMs);
    const auto left = [&](milliseconds grace) {
        const auto ms = std::chrono::floor<milliseconds>(deadline + grace - Clock::now());
        return waitMs == kNoLimit ? kNoLimit : static_cast<int>(std::max<int64_t>(ms.count(), 0));
    };
    const bool standsAlone = m_singleExposure || m_exposureUs >= kSlowVideoFromUs;
    while (m_frames.WaitForBuff(left(milliseconds(0)))) {
        if (m_frames.IsBuffHeadCorrect(kHeadMark, 0) != CirBuf::Head::Correct) {
            OutputDbgPrint("*buf head error*\n");
        } else if (standsAlone) {
            return true;
        } else {
            const CirBuf::Head follower = m_frames.IsBuffHeadCorrect(
                kHeadMark, left(kGraceForFollower), CirBuf::Place::Behind);
            if (follower != CirBuf::Head::Wrong)
                return follower == CirBuf::Head::Correct;
            OutputDbgPrint("*next buf head error*\n");
        }
        m_frames.DiscardBuff();
        AddDroppedFrames(1);
    }
    return false;
}

/// Whether hosts get the samples themselves, and not what is made of several or for a colour.
bool CCameraBase::DeliversSamples()
{
    const IMAGE_TYPE type = ImageType();
    return type == kRaw16 || (type == kByteImage && (m_rawOutput || !m_model.colour));
}

/// Whether the delivered image has the pixels of the read-out where they were, apart from their
/// values.
bool CCameraBase::DeliversAsRead()
{
    return DeliversSamples() && ReadoutSize() == Size{m_width, m_height} && !m_flipH && !m_flipV;
}

/// What is left to be done with a frame row by row: nothing in place, where the corrections are all
/// there is to do. Patches alone are put into the frame, whose rows can then be used where they
/// are; and before large bins, the corrections are a pass of their own.
template <class Sample>
FrameSteps<Sample> CCameraBase::Prepare(Sample *frame, bool inPlace,
                                        const FrameCorrections &corrections)
{
    const Size readout = ReadoutSize();
    FrameSteps<Sample> steps{
        .samples = frame,
        .width = static_cast<size_t>(readout.width),
        .height = static_cast<size_t>(readout.height),
        .patches = {corrections.hotPixels.get(), corrections.dark.bright.get()},
        .bin = static_cast<unsigned>(SoftwareBin()),
        .mosaic = m_model.colour && !m_monoBin,
        .flipH = m_flipH,
        .flipV = m_flipV};
    if constexpr (sizeof(Sample) == 2)
        steps.converterBits = static_cast<uint16_t>(0xFFFF << (16 - m_model.adcBits));
    if (m_gamma != kLinearGamma) {
        if constexpr (sizeof(Sample) == 1)
            steps.gamma = m_gamma8.data();
        else
            steps.gamma = m_gamma16->data();
    }
    if (const WorkingDark *dark = corrections.dark.working.get())
        steps.dark = {dark->pixels.data(), static_cast<unsigned>(dark->mean)};
    if (inPlace || !steps.CorrectsEachSample() || steps.bin > RowScratch::kLargestBin)
        CorrectInPlace(steps, m_rowScratch, frame);
    return steps;
}

void CCameraBase::Deliver16(uint16_t *frame, uint8_t *buffer)
{
    const FrameCorrections corrections = Corrections(ReadoutSize()); // holds the lists in use
    const bool inPlace = reinterpret_cast<uint8_t *>(frame) == buffer;
    const FrameSteps<uint16_t> steps = Prepare(frame, inPlace, corrections);
    if (DeliversSamples())
        FrameRows(steps, m_rowScratch).CopyTo(buffer);
}

void CCameraBase::Deliver8(uint8_t *frame, uint8_t *buffer)
{
    DoGetDark(frame, ReadoutSize());
    const FrameCorrections corrections = Corrections(ReadoutSize()); // holds the dark frame in use
    const FrameSteps<uint8_t> steps = Prepare(frame, frame == buffer, corrections);
    const IMAGE_TYPE type = ImageType();
    if (DeliversSamples()) {
        FrameRows(steps, m_rowScratch).CopyTo(buffer);
    } else if (m_model.colour) {
        FollowBalance();
        Demosaic(steps, m_rowScratch, m_algorithm, static_cast<BayerPhase>(m_model.bayer), buffer,
                 type);
    } else if (type == kRgb24) {
        CopyGrey(steps, m_rowScratch, buffer);
    }
}

/// Has the tables of the balance made anew when it changed.
void CCameraBase::FollowBalance()
{
    const int balance[2] = {m_red, m_blue};
    if (std::ranges::equal(balance, m_balanceInTable))
        return;
    m_algorithm.SetRGBWB(balance[0], balance[1]);
    std::ranges::copy(balance, m_balanceInTable);
}

void CCameraBase::AddTimeMark(unsigned char *image, int width, IMAGE_TYPE type)
{
    const bool drawable = type == kByteImage || type == kRgb24;
    if (!drawable || width < kTimeMarkWidth || m_height < kTimeMarkHeight)
        return;
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    if (localtime_r(&now, &local))
        DrawTimeMark(image, width, BytesPerPixel(type), local);
}

} // namespace vsccam
