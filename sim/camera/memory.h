#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <vector>

namespace vscsim {

/// The I2C memory that a controller boots from: plain bytes, which can be replaced one by one.
class Eeprom {
  public:
    explicit Eeprom(size_t bytes) : m_contents(bytes, 0xFF) {}

    std::span<uint8_t> Contents() { return m_contents; }

    /// Whether it still holds what the camera was delivered with.
    bool AsDelivered() const { return m_asDelivered; }

    // Both refuse what goes beyond the end.
    bool Read(size_t address, std::span<uint8_t> to) const
    {
        const bool inside = Holds(address, to.size());
        if (inside)
            std::copy_n(m_contents.begin() + static_cast<std::ptrdiff_t>(address), to.size(),
                        to.begin());
        return inside;
    }
    bool Write(size_t address, std::span<const uint8_t> from)
    {
        const bool inside = Holds(address, from.size());
        if (inside)
            std::ranges::copy(from, m_contents.begin() + static_cast<std::ptrdiff_t>(address));
        m_asDelivered = m_asDelivered && !(inside && !from.empty());
        return inside;
    }

  private:
    bool Holds(size_t address, size_t length) const
    {
        return address <= m_contents.size() && length <= m_contents.size() - address;
    }

    std::vector<uint8_t> m_contents;
    bool m_asDelivered = true;
};

/// The memory of a controller's processor. Addresses have 32 bits, but there is little behind them:
/// what goes beyond is lost.
class Ram {
  public:
    void Write(uint32_t address, std::span<const uint8_t> from)
    {
        for (const uint8_t byte : from) {
            if (m_pages.size() < kPages || m_pages.contains(address / kPageBytes))
                m_pages[address / kPageBytes][address % kPageBytes] = byte;
            ++address;
        }
    }
    /// What was never written is 0.
    std::vector<uint8_t> Read(uint32_t address, size_t length) const
    {
        std::vector<uint8_t> bytes(length);
        for (uint8_t &byte : bytes) {
            const auto page = m_pages.find(address / kPageBytes);
            byte = page == m_pages.end() ? uint8_t{0} : page->second[address % kPageBytes];
            ++address;
        }
        return bytes;
    }

  private:
    static constexpr uint32_t kPageBytes = 1024;
    static constexpr size_t kPages = 1024;
    std::map<uint32_t, std::array<uint8_t, kPageBytes>> m_pages;
};

} // namespace vscsim
