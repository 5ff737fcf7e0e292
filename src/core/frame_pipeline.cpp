#include "base/debug_print.h"
#include "core/camera_base.h"
#include "image/frame_marks.h"
#include "image/time_mark.h"

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <mutex>
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

using std::chrono::milliseconds;

constexpr int kNoLimit = -1;
// The frame of an exposure is there or is not: nobody is held up for longer by another reader.
constexpr milliseconds kTurnForExposure{1000};
constexpr int kFrameIsThereMs = 1000;          // it was inserted before the exposure ended
// Frames this far apart are taken as they come.
constexpr uint32_t kSlowVideoFromUs = ExposureSetting::kShortBelowUs;
// A host that waits is held up so much longer for the frame behind the one that has come.
constexpr milliseconds kGraceForFollower{100};

void SwapBytes(std::span<uint8_t> samples)
{
    for (size_t i = 0; i + 1 < samples.size(); i += 2)
        std::swap(samples[i], samples[i + 1]);
}

} // namespace

/// How long a host waits for a frame.
class CCameraBase::Wait {
  public:
    explicit Wait(int ms) : m_deadline(ms == kNoLimit ? kNever : Clock::now() + milliseconds(ms)) {}

    Clock::time_point Deadline() const { return m_deadline; }
    /// What is left of it, as the frame buffer wants it.
    int LeftMs(milliseconds grace = milliseconds(0)) const
    {
        if (m_deadline == kNever)
            return kNoLimit;
        const auto left = std::chrono::ceil<milliseconds>(m_deadline + grace - Clock::now());
        return static_cast<int>(std::max<int64_t>(left.count(), 0));
    }

  private:
    Clock::time_point m_deadline;
};

Size CCameraBase::ReadoutSize()
{
    const int factor = SoftwareBin();
    return {m_width * factor, m_height * factor};
}

int CCameraBase::SoftwareBin(int bin, bool hardwareBin) const
{
    if (!hardwareBin)
        return bin;
    return bin == 4 && m_model.hardwareBin4IsHalf ? 2 : 1;
}

int CCameraBase::ReadoutBytes()
{
    return static_cast<int>(Area(ReadoutSize()) * (m_output16Bits ? 2 : 1));
}

bool CCameraBase::GetImageAfterExp(unsigned char *buffer, int size)
{
    // In turn: a state that comes later is not touched, and its frame not waited for.
    const Turns::Turn turn(m_readers, Clock::now() + kTurnForExposure);
    return m_expStatus.exchange(kExpIdle) == kExpSuccess && turn &&
           DeliverFrame(buffer, size, Wait(kFrameIsThereMs));
}

bool CCameraBase::GetImage(unsigned char *buffer, int size, int waitMs)
{
    const Wait wait(waitMs);
    const Turns::Turn turn(m_readers, wait.Deadline());
    return turn && DeliverFrame(buffer, size, wait);
}

/// For who has the turn. Geometry and format stay as they are as long as it lasts: what changes
/// them ends it first. Everything else may change at any time, and is looked at once.
bool CCameraBase::DeliverFrame(uint8_t *buffer, int size, const Wait &wait)
{
    if (!buffer ||
        Area({m_width, m_height}) * static_cast<int64_t>(BytesPerPixel(ImageType())) > size)
        return false;
    DeliverySettings settings{};
    uint8_t *frame = nullptr;
    do {
        if (!AwaitFrame(wait))
            return false;
        settings = CurrentDelivery();
        // The buffer of the host serves as the work buffer where each pixel stays in its place.
        frame = DeliversAsRead(settings) && Aligned16(buffer) ? buffer : m_work.data();
    } while (!ReadFrame(frame)); // a start has just thrown it away
    if (m_output16Bits)
        Deliver16(reinterpret_cast<uint16_t *>(frame), buffer, settings);
    else
        Deliver8(frame, buffer, settings);
    if (m_timeMark)
        AddTimeMark(buffer, m_width, ImageType());
    return true;
}

DeliverySettings CCameraBase::CurrentDelivery()
{
    const std::lock_guard lock(m_gammaSection);
    const uint8_t flip = m_flip;
    return {.flipH = (flip & kFlipH) != 0,
            .flipV = (flip & kFlipV) != 0,
            .monoBin = m_monoBin,
            .gamma = m_gammaTables};
}

bool CCameraBase::AwaitFrame(const Wait &wait)
{
    return ReaderChecksFrames() ? AwaitHeadMarkedFrame(wait) : m_frames.WaitForBuff(wait.LeftMs());
}

/// Takes the frame that was waited for, without what the camera wrote over its pixels, samples in
/// the order of the host.
bool CCameraBase::ReadFrame(uint8_t *frame)
{
    if (!m_frames.ReadBuff(frame, ReadoutBytes(), 0))
        return false;
    const size_t rowBytes =
        static_cast<size_t>(ReadoutSize().width) * static_cast<size_t>(m_output16Bits ? 2 : 1);
    const std::span bytes(frame, static_cast<size_t>(ReadoutBytes()));
    if (ReaderChecksFrames())
        HideHeadMark(bytes, rowBytes);
    else
        HideFrameMarks(bytes, rowBytes);
    if (m_output16Bits && m_model.highByteFirst)
        SwapBytes(bytes);
    return true;
}

/// Waits for a good frame, which is next to be read then. Frames whose mark is missing are thrown
/// away here. So is, in fast video, a frame that a frame without mark follows: it has lost its end
/// to it. One that nothing follows in time stays for the next call; when the capture stops, it is
/// gone with all that was not taken. A finite wait is not begun anew for the next frame.
bool CCameraBase::AwaitHeadMarkedFrame(const Wait &wait)
{
    while (m_frames.WaitForBuff(wait.LeftMs())) {
        if (m_frames.IsBuffHeadCorrect(kHeadMark, 0) != CirBuf::Head::Correct) {
            OutputDbgPrint("*buf head error*\n");
        } else if (m_singleExposure || m_exposureUs >= kSlowVideoFromUs) {
            return true;
        } else {
            const CirBuf::Head follower = m_frames.IsBuffHeadCorrect(
                kHeadMark, wait.LeftMs(kGraceForFollower), CirBuf::Place::Behind);
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
bool CCameraBase::DeliversAsRead(const DeliverySettings &settings)
{
    return DeliversSamples() && ReadoutSize() == Size{m_width, m_height} && !settings.flipH &&
           !settings.flipV;
}

/// What is left to be done with a frame row by row: nothing in place, where the corrections are all
/// there is to do. Patches alone are put into the frame, whose rows can then be used where they
/// are; and before large bins, the corrections are a pass of their own.
template <class Sample>
FrameSteps<Sample> CCameraBase::Prepare(Sample *frame, bool inPlace,
                                        const FrameCorrections &corrections,
                                        const DeliverySettings &settings)
{
    const Size readout = ReadoutSize();
    FrameSteps<Sample> steps{
        .samples = frame,
        .width = static_cast<size_t>(readout.width),
        .height = static_cast<size_t>(readout.height),
        .patches = {corrections.hotPixels.get(), corrections.dark.bright.get()},
        .bin = static_cast<unsigned>(SoftwareBin()),
        .mosaic = m_model.colour && !settings.monoBin,
        .flipH = settings.flipH,
        .flipV = settings.flipV};
    if constexpr (sizeof(Sample) == 2)
        steps.converterBits = static_cast<uint16_t>(0xFFFF << (16 - m_model.adcBits));
    if (settings.gamma) {
        if constexpr (sizeof(Sample) == 1)
            steps.gamma = settings.gamma->of8Bits.data();
        else
            steps.gamma = settings.gamma->of16Bits.data();
    }
    if (const WorkingDark *dark = corrections.dark.working.get())
        steps.dark = {dark->pixels.data(), static_cast<unsigned>(dark->mean)};
    if (inPlace || !steps.CorrectsEachSample() || steps.bin > RowScratch::kLargestBin)
        CorrectInPlace(steps, m_rowScratch, frame);
    return steps;
}

void CCameraBase::Deliver16(uint16_t *frame, uint8_t *buffer, const DeliverySettings &settings)
{
    const FrameCorrections corrections = Corrections(ReadoutSize()); // holds the lists in use
    const bool inPlace = reinterpret_cast<uint8_t *>(frame) == buffer;
    const FrameSteps<uint16_t> steps = Prepare(frame, inPlace, corrections, settings);
    if (DeliversSamples())
        FrameRows(steps, m_rowScratch).CopyTo(buffer);
}

void CCameraBase::Deliver8(uint8_t *frame, uint8_t *buffer, const DeliverySettings &settings)
{
    DoGetDark(frame, ReadoutSize());
    const FrameCorrections corrections = Corrections(ReadoutSize()); // holds the dark frame in use
    const FrameSteps<uint8_t> steps = Prepare(frame, frame == buffer, corrections, settings);
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
