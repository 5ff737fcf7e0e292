#include "core/delivery.h"

#include "base/debug_print.h"
#include "image/frame_marks.h"
#include "image/time_mark.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <span>
#include <utility>

namespace vsccam {

namespace {

int64_t ImageBytes(const Settings &set)
{
    return int64_t{set.width} * set.height * static_cast<int64_t>(BytesPerPixel(set.imageType));
}

bool Aligned16(const uint8_t *bytes)
{
    return reinterpret_cast<uintptr_t>(bytes) % 2 == 0;
}

using std::chrono::milliseconds;

constexpr int kNoLimit = -1;
// The frame of an exposure is there or is not: nobody is held up for longer by another reader.
constexpr milliseconds kTurnForExposure{1000};
constexpr int kFrameIsThereMs = 1000; // it was inserted before the exposure ended
// A host that waits is held up so much longer for the frame behind the one that has come.
constexpr milliseconds kGraceForFollower{100};

void SwapBytes(std::span<uint8_t> samples)
{
    for (size_t i = 0; i + 1 < samples.size(); i += 2)
        std::swap(samples[i], samples[i + 1]);
}

} // namespace

/// How long a host waits for a frame.
class Delivery::Wait {
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

Delivery::Delivery(const CameraModel &model, Capture &capture, const Guarded<Settings> &settings)
    : corrections(model, settings), gamma(model.gamma.initial), m_model(model), m_capture(capture),
      m_settings(settings), m_work(LargestFrameBytes(model)),
      m_rowScratch(static_cast<size_t>(model.sensorWidth))
{
    m_algorithm.RGBYUV_Init();
}

void Delivery::EndWaits()
{
    m_readers.Close();
    m_capture.Frames().InterruptReaders(true);
}

Delivery::Pause::Pause(Delivery &delivery)
    : m_readers(delivery.m_readers), m_frames(delivery.m_capture.Frames())
{
    m_frames.InterruptReaders(true);
    m_readers.AwaitEnd();
}

Delivery::Pause::~Pause()
{
    m_frames.InterruptReaders(false);
}

bool Delivery::GetImageAfterExp(uint8_t *buffer, int size)
{
    // In turn: a state that comes later is not touched, and its frame not waited for.
    const Turns::Turn turn(m_readers, Clock::now() + kTurnForExposure);
    return m_capture.TakeExposure() && turn && Deliver(buffer, size, Wait(kFrameIsThereMs));
}

bool Delivery::GetImage(uint8_t *buffer, int size, int waitMs)
{
    const Wait wait(waitMs);
    const Turns::Turn turn(m_readers, wait.Deadline());
    return turn && Deliver(buffer, size, wait);
}

/// Runs in the turn of a reader. Size and format stay as they are during it, because whoever
/// changes them ends it first. Everything else may change at any time.
bool Delivery::Deliver(uint8_t *buffer, int size, const Wait &wait)
{
    if (!buffer || ImageBytes(m_settings.Now()) > size)
        return false;
    Job job;
    do {
        if (!AwaitFrame(wait))
            return false;
        job = JobFor(buffer);
    } while (!ReadFrame(job)); // a start has just thrown it away
    if (job.readout.is16)
        Deliver16(job);
    else
        Deliver8(job);
    if (job.set.timeMark)
        DrawCurrentTime(buffer, job.set.width, job.set.height, job.set.imageType);
    return true;
}

Delivery::Job Delivery::JobFor(uint8_t *buffer)
{
    Job job;
    job.set = m_settings.Now();
    job.gamma = gamma.Tables();
    job.readout = ReadoutOf(m_model, job.set);
    job.buffer = buffer;
    // The buffer of the host serves as the work buffer where each pixel stays in its place.
    job.frame = DeliversAsRead(job) && Aligned16(buffer) ? buffer : m_work.data();
    return job;
}

bool Delivery::AwaitFrame(const Wait &wait)
{
    return ReaderChecksFrames() ? AwaitHeadMarkedFrame(wait)
                                : m_capture.Frames().WaitForBuff(wait.LeftMs());
}

/// Takes the frame that was waited for, hides what the camera wrote over its pixels, and brings its
/// samples into the byte order of the host.
bool Delivery::ReadFrame(const Job &job)
{
    const Readout &readout = job.readout;
    if (!m_capture.Frames().ReadBuff(job.frame, readout.Bytes(), 0))
        return false;
    const std::span bytes(job.frame, static_cast<size_t>(readout.Bytes()));
    if (ReaderChecksFrames())
        HideHeadMark(bytes, readout.RowBytes());
    else
        HideFrameMarks(bytes, readout.RowBytes());
    if (readout.is16 && m_model.highByteFirst)
        SwapBytes(bytes);
    return true;
}

/// Waits for a good frame, which is the next to be read then. Frames without their mark are thrown
/// away here. In fast video a frame is thrown away, too, when the one behind it has no mark,
/// because its end is missing. A frame that nothing follows in time stays for the next call; when
/// the capture stops, it goes with all others that were not taken. A finite wait does not begin
/// anew for the next frame.
bool Delivery::AwaitHeadMarkedFrame(const Wait &wait)
{
    while (m_capture.Frames().WaitForBuff(wait.LeftMs())) {
        if (m_capture.Frames().IsBuffHeadCorrect(kHeadMark, 0) != CirBuf::Head::Correct) {
            OutputDbgPrint("*buf head error*\n");
        } else if (m_capture.Single() || m_settings.Now().exposureUs >= kFastVideoBelowUs) {
            return true;
        } else {
            const CirBuf::Head follower = m_capture.Frames().IsBuffHeadCorrect(
                kHeadMark, wait.LeftMs(kGraceForFollower), CirBuf::Place::Behind);
            if (follower != CirBuf::Head::Wrong)
                return follower == CirBuf::Head::Correct;
            OutputDbgPrint("*next buf head error*\n");
        }
        m_capture.Frames().DiscardBuff();
        m_capture.CountDrop(DropReason::Marks);
    }
    return false;
}

/// Whether hosts get the samples themselves, and not what is made of several or for a colour.
bool Delivery::DeliversSamples(const Settings &set) const
{
    return set.imageType == kRaw16 ||
           (set.imageType == kByteImage && (set.rawOutput || !m_model.colour));
}

/// Whether the delivered image has the pixels of the read-out where they were, apart from their
/// values.
bool Delivery::DeliversAsRead(const Job &job) const
{
    return DeliversSamples(job.set) && job.readout.size == Size{job.set.width, job.set.height} &&
           !job.set.flipH && !job.set.flipV;
}

/// The steps that are left to be done row by row. Corrections that are the only steps are done in
/// the frame itself. So are patches without other corrections, because the rows can then be used
/// where they are, and all corrections before large bins, which leave no room for them.
template <class Sample>
FrameSteps<Sample> Delivery::Prepare(const Job &job, const FrameCorrections &fixes)
{
    auto *const frame = reinterpret_cast<Sample *>(job.frame);
    FrameSteps<Sample> steps{.samples = frame,
                             .width = static_cast<size_t>(job.readout.size.width),
                             .height = static_cast<size_t>(job.readout.size.height),
                             .patches = {fixes.hotPixels.get(), fixes.dark.bright.get()},
                             .bin = static_cast<unsigned>(job.readout.softwareBin),
                             .mosaic = m_model.colour && !job.set.monoBin,
                             .flipH = job.set.flipH,
                             .flipV = job.set.flipV};
    if constexpr (sizeof(Sample) == 2)
        steps.converterBits = static_cast<uint16_t>(0xFFFF << (16 - m_model.adcBits));
    if (job.gamma) {
        if constexpr (sizeof(Sample) == 1)
            steps.gamma = job.gamma->of8Bits.data();
        else
            steps.gamma = job.gamma->of16Bits.data();
    }
    if (const WorkingDark *dark = fixes.dark.working.get())
        steps.dark = {dark->pixels.data(), static_cast<unsigned>(dark->mean)};
    const bool inPlace = job.frame == job.buffer;
    if (inPlace || !steps.CorrectsEachSample() || steps.bin > RowScratch::kLargestBin)
        CorrectInPlace(steps, m_rowScratch, frame);
    return steps;
}

void Delivery::Deliver16(const Job &job)
{
    const FrameCorrections fixes = corrections.For(job.set); // holds the lists in use
    const auto steps = Prepare<uint16_t>(job, fixes);
    if (DeliversSamples(job.set))
        FrameRows(steps, m_rowScratch).CopyTo(job.buffer);
}

void Delivery::Deliver8(const Job &job)
{
    corrections.TakeForDark(job.frame, job.set);
    const FrameCorrections fixes = corrections.For(job.set); // holds the dark frame in use
    const auto steps = Prepare<uint8_t>(job, fixes);
    if (DeliversSamples(job.set)) {
        FrameRows(steps, m_rowScratch).CopyTo(job.buffer);
    } else if (m_model.colour) {
        FollowBalance(job.set);
        Demosaic(steps, m_rowScratch, m_algorithm, static_cast<BayerPhase>(m_model.bayer),
                 job.buffer, job.set.imageType);
    } else if (job.set.imageType == kRgb24) {
        CopyGrey(steps, m_rowScratch, job.buffer);
    }
}

/// Has the tables of the balance made anew when it changed.
void Delivery::FollowBalance(const Settings &set)
{
    const int balance[2] = {set.red, set.blue};
    if (std::ranges::equal(balance, m_balanceInTable))
        return;
    m_algorithm.SetRGBWB(balance[0], balance[1]);
    std::ranges::copy(balance, m_balanceInTable);
}

} // namespace vsccam
