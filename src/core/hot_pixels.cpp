#include "core/hot_pixels.h"

#include "base/debug_print.h"
#include "core/camera_base.h"
#include "core/flash_access.h"
#include "core/hot_pixel_record.h"

#include <algorithm>
#include <mutex>
#include <new>
#include <utility>

// Hot-pixel correction by the table that the camera keeps in its flash memory.
namespace vsccam {

namespace {

constexpr int kAttempts = 3;
constexpr std::chrono::milliseconds kFlashPatience{600};
constexpr char kNoMemory[] = "no memory for the hot pixels\n";

uint32_t AddressOf(size_t chunk)
{
    return kHotPixelAddress + static_cast<uint32_t>(chunk * FlashAccess::kChunk);
}

size_t WholePages(size_t bytes)
{
    return (bytes + FlashAccess::kPage - 1) / FlashAccess::kPage * FlashAccess::kPage;
}

bool ReadChunk(FlashAccess &flash, size_t chunk, std::span<uint8_t> to)
{
    for (int attempt = 1; attempt <= kAttempts; ++attempt) {
        if (flash.Read(AddressOf(chunk), to))
            return true;
        OutputDbgPrint("fail %d\n", static_cast<int>(chunk));
    }
    return false;
}

bool WriteChunk(FlashAccess &flash, size_t chunk, std::span<const uint8_t> from)
{
    for (int attempt = 1; attempt <= kAttempts; ++attempt) {
        if (flash.WriteAndCompare(AddressOf(chunk), from, from.size()))
            return true;
        OutputDbgPrint("fail %d try again :%d\n", static_cast<int>(chunk), attempt);
    }
    return false;
}

/// Reads what a record of `length` bytes has behind its first chunk; false when it is not complete.
bool ReadRest(FlashAccess &flash, size_t length, std::vector<uint8_t> &record)
{
    const size_t wholeChunks = length / FlashAccess::kChunk;
    const size_t tail = length % FlashAccess::kChunk;
    // Quirk, kept: the tail of a record that fits into the first chunk is looked for behind it.
    const size_t tailChunk = std::max<size_t>(wholeChunks, 1);
    record.resize((tailChunk + 1) * FlashAccess::kChunk);
    const auto piece = [&record](size_t chunk, size_t bytes) {
        return std::span(record).subspan(chunk * FlashAccess::kChunk, bytes);
    };
    for (size_t chunk = 1; chunk < wholeChunks; ++chunk)
        if (!ReadChunk(flash, chunk, piece(chunk, FlashAccess::kChunk)))
            return false;
    return tail == 0 || ReadChunk(flash, tailChunk, piece(tailChunk, WholePages(tail)));
}

bool WriteRecord(FlashAccess &flash, std::vector<uint8_t> record)
{
    const size_t sectors = (record.size() + FlashAccess::kSector - 1) / FlashAccess::kSector;
    for (size_t i = 0; i < sectors; ++i)
        if (!flash.Erase(kHotPixelAddress / FlashAccess::kSector + i))
            return false;
    record.resize(WholePages(record.size()), FlashAccess::kErased);
    for (size_t chunk = 0; chunk * FlashAccess::kChunk < record.size(); ++chunk) {
        const auto rest = std::span(record).subspan(chunk * FlashAccess::kChunk);
        if (!WriteChunk(flash, chunk, rest.first(std::min(rest.size(), FlashAccess::kChunk))))
            return false;
    }
    return true;
}

/// Looks up the pixels that a region shows. Takes its time with long lists: nobody waits for it.
std::shared_ptr<const PixelPatches> PatchesShown(const std::vector<uint32_t> &pixels,
                                                 const FrameRegion &region)
{
    const std::vector<uint32_t> shown = CutPixels(pixels, region);
    OutputDbgPrint("HPC Dead pixel:%d\n", static_cast<int>(shown.size()));
    return PatchesFor(shown, region, PatchRule::kDenoise);
}

} // namespace

void HotPixels::Disable()
{
    m_enabled = false;
    const std::lock_guard lock(m_section);
    m_pixels = nullptr;
    m_patches = nullptr;
}

void HotPixels::SetPixels(std::vector<uint32_t> pixels, const FrameRegion &region)
{
    auto list = std::make_shared<const std::vector<uint32_t>>(std::move(pixels));
    auto patches = PatchesShown(*list, region);
    const std::lock_guard lock(m_section);
    m_pixels.swap(list);
    m_patches.swap(patches);
}

std::vector<uint32_t> HotPixels::Pixels()
{
    const auto pixels = List();
    return pixels ? *pixels : std::vector<uint32_t>();
}

void HotPixels::Cut(const FrameRegion &region)
{
    const auto pixels = List();
    if (!pixels)
        return;
    auto patches = PatchesShown(*pixels, region);
    const std::lock_guard lock(m_section);
    if (m_pixels == pixels) // neither replaced nor forgotten meanwhile
        m_patches.swap(patches);
}

std::shared_ptr<const std::vector<uint32_t>> HotPixels::List()
{
    const std::lock_guard lock(m_section);
    return m_pixels;
}

std::shared_ptr<const PixelPatches> HotPixels::Patches()
{
    const std::lock_guard lock(m_section);
    return m_patches;
}

void CCameraBase::SetHPCStates(bool on)
{
    if (!on) {
        m_hotPixels.Disable();
        return;
    }
    const bool loaded = LoadHPCTable();
    if (loaded)
        m_hotPixels.Enable();
    else if (!Lost() && !m_capturing) // a camera that is programmed again has the table of before
        m_hotPixels.Disable();
    OutputDbgPrint(loaded ? "Load HPC table success\n" : "Load HPC table error\n");
}

bool CCameraBase::LoadHPCTable()
try {
    const auto noTable = [this] {
        m_hotPixels.Disable();
        return false;
    };
    FlashAccess flash(*this, kFlashPatience); // settings may be held meanwhile
    std::vector<uint8_t> record(FlashAccess::kChunk);
    if (!flash || !flash.Read(AddressOf(0), record))
        return false; // tells nothing about the table
    const auto length = RecordLength(std::span(record).first<kHotPixelHeader>());
    if (!length)
        return noTable();
    if (*length > kLongestHotPixelRecord) {
        OutputDbgPrint("LoadHPCTable: HPC data length too big\n");
        return noTable();
    }
    OutputDbgPrint("LoadHPC: Compressed length: %d :\n", static_cast<int>(*length));
    // What could be read of a record is used, though it counts as a failure.
    const bool complete = ReadRest(flash, *length, record);
    if (!complete && (Lost() || m_capturing))
        return false;
    const auto sensorPixels =
        static_cast<size_t>(m_maxSize.width) * static_cast<size_t>(m_maxSize.height);
    const auto bitmap = Uncompress(std::span(record).first(*length), sensorPixels / 8);
    if (!bitmap)
        return noTable();
    m_hotPixels.SetPixels(FlaggedPixels(*bitmap), RawFrameRegion());
    return complete;
} catch (const std::bad_alloc &) {
    OutputDbgPrint(kNoMemory);
    return false;
}

bool CCameraBase::SaveHPCTable()
try {
    FlashAccess flash(*this);
    const std::vector<uint8_t> bitmap = m_darkFrames.BrightBitmap();
    if (bitmap.empty())
        return false;
    const std::vector<uint8_t> record = Compress(bitmap);
    OutputDbgPrint("SaveHPC: Compressed length: %d :\n", static_cast<int>(record.size()));
    if (record.size() > kLongestHotPixelRecord) {
        OutputDbgPrint("SaveHPC: Compressed length too big\n");
        return false;
    }
    // Quirk, kept: a record without a last, shorter chunk is reported as not saved.
    return WriteRecord(flash, record) && record.size() % FlashAccess::kChunk != 0;
} catch (const std::bad_alloc &) {
    OutputDbgPrint(kNoMemory);
    return false;
}

void CCameraBase::AdjustHPCTable()
try {
    m_hotPixels.Cut(RawFrameRegion());
} catch (const std::bad_alloc &) {
    OutputDbgPrint(kNoMemory);
    m_hotPixels.Disable();
}

} // namespace vsccam
