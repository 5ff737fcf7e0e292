#include "base/debug_print.h"
#include "core/camera_base.h"
#include "core/flash_access.h"
#include "usb/requests.h"

#include <algorithm>

// Hot-pixel correction by the table that the camera keeps in its flash memory.
namespace vsccam {

namespace {

constexpr uint32_t kHotPixelAddress = 0x40000;
constexpr int kFlashChunk = 2048;
constexpr std::array<uint8_t, 4> kHotPixelMagic = {'V', 'S', 'C', 'D'};

} // namespace

void CCameraBase::SetHPCStates(bool on)
{
    m_hotPixelCorrection = on && LoadHPCTable();
    if (on)
        OutputDbgPrint(m_hotPixelCorrection ? "Load HPC table success\n"
                                            : "Load HPC table error\n");
}

/// Looks for the hot-pixel record. Cameras that have one are served without correction so far.
bool CCameraBase::LoadHPCTable()
{
    const FlashAccess flash(*this);
    std::array<uint8_t, kFlashChunk> record{};
    if (!ReadFromSPIFlash(record.data(), kFlashChunk, kHotPixelAddress, request::kReadFlash) ||
        !std::ranges::equal(kHotPixelMagic, std::span(record).first<4>()))
        return false;
    OutputDbgPrint("the camera has a hot-pixel table; correction is not built yet\n");
    return false;
}

} // namespace vsccam
