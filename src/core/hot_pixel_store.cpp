#include "core/hot_pixel_store.h"

#include "base/debug_print.h"
#include "core/hot_pixel_record.h"

#include <algorithm>
#include <utility>

namespace vsccam {

namespace {

constexpr int kAttempts = 3;

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

} // namespace

StoredHotPixels ReadHotPixels(FlashAccess &flash)
{
    using State = StoredHotPixels::State;
    std::vector<uint8_t> record(FlashAccess::kChunk);
    if (!flash || !flash.Read(AddressOf(0), record))
        return {State::Unread, {}};
    const auto length = RecordLength(std::span(record).first<kHotPixelHeader>());
    if (!length)
        return {State::None, {}};
    if (*length > kLongestHotPixelRecord) {
        OutputDbgPrint("LoadHPCTable: HPC data length too big\n");
        return {State::None, {}};
    }
    OutputDbgPrint("LoadHPC: Compressed length: %d :\n", static_cast<int>(*length));
    const bool whole = ReadRest(flash, *length, record);
    record.resize(*length);
    return {whole ? State::Whole : State::Part, std::move(record)};
}

std::optional<std::vector<uint32_t>> PixelsOf(const StoredHotPixels &stored, Size sensor)
{
    if (!stored.HasRecord())
        return std::nullopt;
    const auto pixels = static_cast<size_t>(sensor.width) * static_cast<size_t>(sensor.height);
    const auto bitmap = Uncompress(stored.record, pixels / 8);
    if (!bitmap)
        return std::nullopt;
    return FlaggedPixels(*bitmap);
}

bool WriteHotPixels(FlashAccess &flash, std::span<const uint8_t> bitmap)
{
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
}

} // namespace vsccam
