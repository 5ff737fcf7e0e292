#pragma once

#include "base/debug_print.h"
#include "base/sync.h"
#include "usb/camera_fx3.h"
#include "usb/requests.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <mutex>
#include <span>

namespace vsccam {

/// Use of the SPI flash, which is reachable only while the controller's data bus is not 32 bits
/// wide. One at a time: the bus must not become wide, nor a sector be erased, under another.
class FlashAccess {
  public:
    static constexpr size_t kPage = 256;
    static constexpr size_t kChunk = 2048; // longest access
    static constexpr size_t kSector = 0x10000;
    static constexpr uint8_t kErased = 0xFF;

    explicit FlashAccess(CCameraFX3 &camera) : m_camera(camera), m_lock(camera.FlashSection())
    {
        (void)m_camera.EnableGPIF32DQ(false);
    }
    /// Gives up when the flash is in use for longer, or the requests of this thread are not to be
    /// sent any more: then the object is false and of no use.
    FlashAccess(CCameraFX3 &camera, std::chrono::milliseconds patience)
        : m_camera(camera), m_lock(camera.FlashSection(), std::try_to_lock)
    {
        const auto end = Clock::now() + patience;
        while (!m_lock && Clock::now() < end && !RequestBudget::IsUsedUp()) {
            SleepFor(kPollInterval);
            (void)m_lock.try_lock(); // the loop asks
        }
        if (m_lock)
            (void)m_camera.EnableGPIF32DQ(false);
    }
    ~FlashAccess()
    {
        if (!m_lock)
            return;
        const LeavingSafe leaving; // with a narrow bus no frame would ever be whole again
        (void)m_camera.EnableGPIF32DQ(true);
    }
    FlashAccess(const FlashAccess &) = delete;
    FlashAccess &operator=(const FlashAccess &) = delete;

    explicit operator bool() const { return m_lock.owns_lock(); }

    // At most one chunk, from the start of a page.
    bool Read(uint32_t address, std::span<uint8_t> to)
    {
        return m_camera.ReadFromSPIFlash(to.data(), static_cast<int>(to.size()), address,
                                         request::kReadFlash);
    }
    /// Writes and reads back. @return whether the first `compared` bytes came back, which alone
    /// counts: a write that seemed to fail may have been done
    bool WriteAndCompare(uint32_t address, std::span<const uint8_t> from, size_t compared)
    {
        std::array<uint8_t, kChunk> chunk{};
        const auto readBack = std::span(chunk).first(from.size());
        (void)m_camera.WriteToSPIFlash(from.data(), static_cast<int>(from.size()), address,
                                       request::kWriteFlash);
        return Read(address, readBack) &&
               std::ranges::equal(from.first(compared), readBack.first(compared));
    }
    bool Erase(size_t sector)
    {
        if (m_camera.EraseSectorOfSPIFlash(static_cast<uint16_t>(sector), request::kEraseFlash) ==
            0)
            return true;
        OutputDbgPrint("Erase SPI FLASH sector %d failed :\n", static_cast<int>(sector));
        return false;
    }

  private:
    static constexpr std::chrono::milliseconds kPollInterval{10};

    CCameraFX3 &m_camera; // the requests that follow fail by themselves when the switch failed
    /// Until the bus is wide again. No SectionLock, which cannot be without its section.
    std::unique_lock<CriticalSection> m_lock;
};

} // namespace vsccam
