#include "base/debug_print.h"
#include "core/camera_base.h"
#include "core/flash_access.h"

#include <algorithm>

// The user's identity of a camera: one page of its flash memory.
namespace vsccam {

namespace {

constexpr uint32_t kIdAddress = 0x70000;
constexpr std::array<uint8_t, 2> kIdTag = {'I', 'D'};
constexpr int kWriteAttempts = 3;
// Quirk, kept: tag and four bytes of the identity are compared, not all eight.
constexpr size_t kComparedBytes = 6;

using FlashPage = std::array<uint8_t, FlashAccess::kPage>;

bool IsTagged(const FlashPage &page)
{
    return std::ranges::equal(kIdTag, std::span(page).first<2>());
}

} // namespace

bool CCameraBase::ReadIDFromSPI(CameraId *id)
{
    FlashAccess flash(*this);
    FlashPage page{};
    if (!flash.Read(kIdAddress, page) || !IsTagged(page))
        return false;
    std::copy_n(page.begin() + kIdTag.size(), id->size(), id->begin());
    return true;
}

bool CCameraBase::WriteIDToSPI(const CameraId &id)
{
    FlashAccess flash(*this);
    if (!flash.Erase(kIdAddress / FlashAccess::kSector))
        return false;
    FlashPage page{};
    std::ranges::copy(id, std::ranges::copy(kIdTag, page.begin()).out);
    for (int attempt = 1; attempt <= kWriteAttempts; ++attempt) {
        if (flash.WriteAndCompare(kIdAddress, page, kComparedBytes))
            return true;
        OutputDbgPrint("fail %d try again\n", attempt);
    }
    return false;
}

} // namespace vsccam
