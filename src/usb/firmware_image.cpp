#include "usb/firmware_image.h"

#include <algorithm>

namespace vsccam {

namespace {

constexpr std::array<uint8_t, 2> kFx3Signature = {'C', 'Y'};
constexpr size_t kFx3ControlBytes = 2;
constexpr size_t kFx2RamBytes = 0x10000;

/// Reads an image from front to back, and nothing behind its end.
class Reader {
  public:
    explicit Reader(std::span<const uint8_t> image) : m_rest(image) {}

    /// The next `count` bytes, nothing when the image has fewer.
    std::optional<std::span<const uint8_t>> Take(uint64_t count)
    {
        if (count > m_rest.size())
            return std::nullopt;
        const auto taken = m_rest.first(static_cast<size_t>(count));
        m_rest = m_rest.subspan(taken.size());
        return taken;
    }

  private:
    std::span<const uint8_t> m_rest;
};

bool StartsWith(std::span<const uint8_t> bytes, std::span<const uint8_t> start)
{
    return bytes.size() >= start.size() && std::ranges::equal(bytes.first(start.size()), start);
}

uint32_t BigEndian16(std::span<const uint8_t> bytes)
{
    return uint32_t{bytes[0]} << 8 | bytes[1];
}

uint32_t LittleEndian32(std::span<const uint8_t> bytes)
{
    return uint32_t{bytes[3]} << 24 | uint32_t{bytes[2]} << 16 | uint32_t{bytes[1]} << 8 | bytes[0];
}

} // namespace

DownloadResult ParseFx3Image(std::span<const uint8_t> image, Fx3Image *parsed)
{
    if (!StartsWith(image, kFx3Signature))
        return DownloadResult::NoSignature;
    Reader reader(image);
    if (!reader.Take(kFx3Signature.size() + kFx3ControlBytes))
        return DownloadResult::ImageOverrun;
    while (const auto head = reader.Take(8)) {
        const uint64_t length = uint64_t{LittleEndian32(head->first(4))} * 4;
        const uint32_t address = LittleEndian32(head->subspan(4));
        if (length == 0) {
            if (!reader.Take(4)) // the checksum
                break;
            parsed->entry = address;
            return DownloadResult::Success;
        }
        if (std::min<uint64_t>(length, kFirmwareChunk) > image.size())
            return DownloadResult::ChunkTooLong;
        const auto data = reader.Take(length);
        if (!data)
            break;
        parsed->records.push_back({address, *data});
    }
    return DownloadResult::ImageOverrun;
}

std::optional<std::vector<FirmwareRecord>> ParseFx2Image(std::span<const uint8_t> image)
{
    Reader reader(image);
    const auto header = reader.Take(kFx2HeaderBytes);
    if (!header || header->front() != kFx2BootMark)
        return std::nullopt;
    std::vector<FirmwareRecord> records;
    while (const auto head = reader.Take(kFx2EndRecord.size())) {
        if (std::ranges::equal(*head, kFx2EndRecord))
            return records;
        const uint32_t address = BigEndian16(head->subspan(2));
        const auto data = reader.Take(BigEndian16(head->first(2)));
        if (!data || address + data->size() > kFx2RamBytes)
            break;
        records.push_back({address, *data});
    }
    return std::nullopt;
}

} // namespace vsccam
