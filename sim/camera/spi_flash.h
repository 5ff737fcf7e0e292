#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace vscsim {

/// The controller's boot flash: erasing sets the bits of a sector, programming only clears bits,
/// and an erase takes its time.
class SpiFlash {
  public:
    using Time = std::chrono::nanoseconds;

    static constexpr size_t kBytes = size_t{1} << 20;
    static constexpr size_t kSectorBytes = size_t{64} << 10;
    static constexpr size_t kPageBytes = 256;
    static constexpr size_t kLongestAccess = 2048;
    static constexpr std::chrono::milliseconds kEraseTime{3}; // a real one takes far longer

    /// @param file  keeps the contents; empty: they last as long as the object
    explicit SpiFlash(std::string file);

    std::span<uint8_t> Contents() { return m_contents; }

    // All refuse accesses while an erase runs, beyond the end, or longer than one request allows.
    bool Read(size_t page, std::span<uint8_t> to, Time now) const;
    bool Program(size_t page, std::span<const uint8_t> from, Time now);
    bool Erase(size_t sector, Time now);
    bool IsBusy(Time now) const { return now < m_busyUntil; }

  private:
    bool Accessible(size_t address, size_t length, Time now) const;
    void Store(size_t address, size_t length) const;

    std::string m_file;
    std::vector<uint8_t> m_contents;
    Time m_busyUntil{0};
};

} // namespace vscsim
