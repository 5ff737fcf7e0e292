#include "api/camera_names.h"
#include "camera.h"
#include "controls.h"
#include "failure.h"
#include "fuzz.h"
#include "identity.h"
#include "name_pattern.h"

#include <array>
#include <climits>
#include <string>

namespace {

std::vector<vsctool::CameraEntry> TwoCameras()
{
    vsctool::UsbDevice shown;
    shown.model = "KYR VSC470MC";
    shown.port = "1-2.3";
    return {{0, shown.model, shown}, {1, "KYR VSC340MM", std::nullopt}};
}

// What users write: a text is refused with a message, or it is what its meaning is written as.
constexpr std::array<void (*)(const std::string &), 7> kReaders = {
    [](const std::string &text) {
        const vsccam::CameraChoice choice = vsccam::CamerasNamed(text.c_str());
        Must(choice.named.empty() || choice.restricts);
        for (const auto &entry : choice.named)
            Must(entry.path.depth > 0 || entry.productId != 0);
    },
    [](const std::string &text) {
        const vsctool::Microseconds time = vsctool::ParseTime(text);
        Must(time.count() >= 0 && vsctool::Seconds(time) <= 1e9);
        Must(vsctool::ParseTime(vsctool::FormatTime(time)) == time);
    },
    [](const std::string &text) {
        const vsctool::Region region = vsctool::ParseRegion(text);
        Must(region.width > 0 && region.height > 0 && region.x >= 0 && region.y >= 0);
    },
    [](const std::string &text) { Must(vsctool::InHex(vsctool::ParseId(text)).size() == 16); },
    [](const std::string &text) { Must(vsctool::ParseSetting(text).control != nullptr); },
    [](const std::string &text) {
        const vsctool::NamePattern pattern(text, true);
        const size_t length = pattern.Expand({}).native().size();
        Must(pattern.IsNumbered() && length > 0 && length < PATH_MAX);
    },
    [](const std::string &text) { Must(vsctool::SelectCamera(TwoCameras(), text).index >= 0); },
};

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    if (size == 0)
        return 0;
    const std::string text(reinterpret_cast<const char *>(bytes) + 1, size - 1);
    try {
        kReaders.at(bytes[0] % kReaders.size())(text);
    } catch (const vsctool::Failure &failure) {
        Must(*failure.what() != '\0');
    }
    return 0;
}
