#include "camera/spi_flash.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <utility>

namespace vscsim {

SpiFlash::SpiFlash(std::string file) : m_file(std::move(file)), m_contents(kBytes, 0xFF)
{
    std::ifstream in(m_file, std::ios::binary);
    if (in.is_open())
        in.read(reinterpret_cast<char *>(m_contents.data()), kBytes);
}

bool SpiFlash::Accessible(size_t address, size_t length, Time now) const
{
    return !IsBusy(now) && length <= kLongestAccess && address <= kBytes &&
           length <= kBytes - address;
}

bool SpiFlash::Read(size_t page, std::span<uint8_t> to, Time now) const
{
    const size_t address = page * kPageBytes;
    if (!Accessible(address, to.size(), now))
        return false;
    std::copy_n(m_contents.begin() + static_cast<std::ptrdiff_t>(address), to.size(), to.begin());
    return true;
}

bool SpiFlash::Program(size_t page, std::span<const uint8_t> from, Time now)
{
    const size_t address = page * kPageBytes;
    if (!Accessible(address, from.size(), now))
        return false;
    for (size_t i = 0; i < from.size(); ++i)
        m_contents[address + i] &= from[i];
    Store(address, from.size());
    return true;
}

bool SpiFlash::Erase(size_t sector, Time now)
{
    if (IsBusy(now) || sector >= kBytes / kSectorBytes)
        return false;
    const size_t address = sector * kSectorBytes;
    std::fill_n(m_contents.begin() + static_cast<std::ptrdiff_t>(address), kSectorBytes,
                uint8_t{0xFF});
    Store(address, kSectorBytes);
    m_busyUntil = now + kEraseTime;
    return true;
}

void SpiFlash::Store(size_t address, size_t length) const
{
    if (m_file.empty())
        return;
    std::error_code noFile;
    const bool whole = std::filesystem::file_size(m_file, noFile) != kBytes || noFile;
    if (whole) {
        std::ofstream(m_file, std::ios::binary)
            .write(reinterpret_cast<const char *>(m_contents.data()), kBytes);
        return;
    }
    std::fstream out(m_file, std::ios::binary | std::ios::in | std::ios::out);
    out.seekp(static_cast<std::streamoff>(address));
    out.write(reinterpret_cast<const char *>(m_contents.data() + address),
              static_cast<std::streamsize>(length));
}

} // namespace vscsim
