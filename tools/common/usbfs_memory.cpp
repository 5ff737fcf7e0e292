#include "usbfs_memory.h"

#include "system_files.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

namespace vsctool {
namespace {

constexpr const char *kLimit = "/sys/module/usbcore/parameters/usbfs_memory_mb";
constexpr std::string_view kNeed = "a frame needs "; // the library's words

std::string InWords(std::optional<int64_t> limitMiB)
{
    return limitMiB ? fmt::format("{} MiB", *limitMiB) : "unknown";
}

} // namespace

std::optional<int64_t> UsbfsLimitMiB()
{
    return ReadNumber(kLimit);
}

std::string RaiseUsbfsLimit(int64_t neededMiB)
{
    constexpr int64_t kUsual = 256;
    return fmt::format("echo {} | sudo tee {}", std::max(kUsual, neededMiB), kLimit);
}

std::string UsbfsAdvice(const std::vector<LibraryLine> &lines)
{
    int64_t need = 0;
    for (const LibraryLine &line : lines) {
        const std::string_view number = After(kNeed, line.text);
        std::from_chars(number.data(), number.data() + number.size(), need);
    }
    if (need == 0)
        return "";
    return fmt::format(
        "The frame needs {} MiB of the kernel's memory for transfers; the limit, for "
        "all cameras together, is {}. To raise it: {}",
        need, InWords(UsbfsLimitMiB()), RaiseUsbfsLimit(need));
}

} // namespace vsctool
