#include "base/debug_print.h"
#include "core/camera_base.h"
#include "image/frame_marks.h"

#include <algorithm>
#include <climits>
#include <cstdint>
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

/// How long the frame behind one may take to come.
int WaitForFollower(int waitMs)
{
    return static_cast<int>(std::min<int64_t>((int64_t{waitMs} + 250) * 2, INT_MAX));
}

void SwapBytes(std::span<uint8_t> samples)
{
    for (size_t i = 0; i + 1 < samples.size(); i += 2)
        std::swap(samples[i], samples[i + 1]);
}

int BytesPerPixel(IMAGE_TYPE type)
{
    switch (type) {
    case kRgb24:
        return 3;
    case kYuv2:
    case kReserved16:
    case kRaw16:
        return 2;
    case kByteImage:
        break;
    }
    return 1;
}

} // namespace

Size CCameraBase::ReadoutSize()
{
    const int factor = m_hardwareBin ? 1 : Bin();
    return {m_width * factor, m_height * factor};
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
    if (!buffer || Area({m_width, m_height}) * BytesPerPixel(ImageType()) > size)
        return false;
    // The buffer of the host serves as the work buffer where the frame leaves as it came.
    const bool inPlace = DeliveredAsRead() && Aligned16(buffer) && !ReaderChecksFrames();
    uint8_t *frame = inPlace ? buffer : m_work.data();
    if (!TakeFrame(frame, waitMs))
        return false;
    ProcessFrame(frame, ReadoutSize());
    DeliverFrame(frame, buffer);
    return true;
}

/// Takes the next good frame, without what the camera wrote over its pixels, samples in the order
/// of the host.
bool CCameraBase::TakeFrame(uint8_t *frame, int waitMs)
{
    const size_t rowBytes =
        static_cast<size_t>(ReadoutSize().width) * static_cast<size_t>(m_output16Bits ? 2 : 1);
    const std::span bytes(frame, static_cast<size_t>(ReadoutBytes()));
    if (!ReaderChecksFrames()) {
        if (!m_frames.ReadBuff(frame, ReadoutBytes(), waitMs))
            return false;
        HideFrameMarks(bytes, rowBytes);
        return true;
    }
    if (!TakeHeadMarkedFrame(bytes, waitMs))
        return false;
    HideHeadMark(bytes, rowBytes);
    if (m_output16Bits && m_model.highByteFirst)
        SwapBytes(bytes);
    return true;
}

/// Frames whose mark is missing are thrown away here. So is, in fast video, a frame that a frame
/// without mark follows: it has lost its end to it. A finite wait is not begun anew for the next
/// frame.
bool CCameraBase::TakeHeadMarkedFrame(std::span<uint8_t> frame, int waitMs)
{
    const auto deadline = Clock::now() + std::chrono::milliseconds(waitMs);
    const auto left = [&] {
        const auto ms = std::chrono::floor<std::chrono::milliseconds>(deadline - Clock::now());
        return waitMs == kNoLimit ? kNoLimit : static_cast<int>(std::max<int64_t>(ms.count(), 0));
    };
    const int length = static_cast<int>(frame.size());
    while (m_frames.ReadBuff(frame.data(), length, left())) {
        if (!HasHeadMark(frame)) {
            OutputDbgPrint("*buf head error*\n");
        } else if (m_singleExposure || m_exposureUs >= kSlowVideoFromUs ||
                   m_frames.IsBuffHeadCorrect(kHeadMark, WaitForFollower(waitMs))) {
            return true;
        } else {
            OutputDbgPrint("*next buf head error*\n");
        }
        AddDroppedFrames(1);
    }
    return false;
}

/// Whether the delivered image has the bytes of the read-out, apart from their values.
bool CCameraBase::DeliveredAsRead()
{
    const IMAGE_TYPE type = ImageType();
    const bool raw = type == kRaw16 || (type == kByteImage && (m_rawOutput || !m_model.colour));
    return raw && ReadoutSize() == Size{m_width, m_height};
}

void CCameraBase::ProcessFrame(uint8_t *frame, Size readout)
{
    const bool is16 = m_output16Bits;
    auto *frame16 = reinterpret_cast<uint16_t *>(frame);
    const FrameCorrections corrections = Corrections(readout);
    if (!is16) {
        DoGetDark(frame, readout);
        SubtractDark(frame, corrections);
    }
    ApplyGamma(frame, readout, is16);
    HandleHotPixels(frame, corrections);
    if (!m_hardwareBin && m_bin != 1) {
        const auto average =
            m_model.colour && !m_monoBin ? &CAlgorithm::ColorRAWBin : &CAlgorithm::MonoBin;
        average(frame, frame16, m_width, m_height, m_bin, is16);
    }
    CAlgorithm::SoftMisc(frame, m_width, m_height, 1, is16, m_flipV, m_flipH);
}

void CCameraBase::ApplyGamma(uint8_t *frame, Size readout, bool is16)
{
    if (m_gamma == kLinearGamma)
        return;
    if (is16)
        CAlgorithm::Gamma(reinterpret_cast<uint16_t *>(frame), m_gamma16->data(), readout.width,
                          readout.height);
    else
        CAlgorithm::Gamma(frame, m_gamma8.data(), readout.width, readout.height);
}

void CCameraBase::DeliverFrame(uint8_t *frame, uint8_t *buffer)
{
    const IMAGE_TYPE type = ImageType();
    const auto pixels = Area({m_width, m_height});
    const bool demosaic =
        m_model.colour && (type == kRgb24 || (type == kByteImage && !m_rawOutput));
    if (demosaic) {
        if (const int balance[2] = {m_red, m_blue};
            !std::ranges::equal(balance, m_balanceInTable)) {
            m_algorithm.SetRGBWB(balance[0], balance[1]);
            std::ranges::copy(balance, m_balanceInTable);
        }
        const auto phase = FlippedPhase(static_cast<BayerPhase>(m_model.bayer), m_flipH, m_flipV);
        m_algorithm.BayerConv(phase, frame, buffer, m_width, m_height, type);
    } else if (type == kRgb24) {
        for (int64_t i = 0; i < pixels; ++i)
            std::fill_n(buffer + i * 3, 3, frame[i]);
    } else if (frame != buffer && (type == kByteImage || type == kRaw16)) {
        std::copy_n(frame, pixels * BytesPerPixel(type), buffer);
    }
}

} // namespace vsccam
