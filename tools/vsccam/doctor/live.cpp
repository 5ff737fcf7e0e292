#include "doctor/live.h"

#include "failure.h"
#include "stop_signals.h"
#include "usbfs_memory.h"

#include <fmt/format.h>

#include <algorithm>

namespace vsctool {
namespace {

using namespace std::chrono_literals;

constexpr int kFrames = 10;
constexpr Microseconds kExposure = 50ms;
constexpr std::string_view kAccount = "dropped "; // of the library, when a capture ends

/// Whether frames were lost on their way, not because nobody took them.
bool TellsLosses(std::string_view account)
{
    constexpr const char *kLosses[] = {
        "short:", "marks:", "counter:", "half set:", "lost:", "reads:"};
    return std::ranges::any_of(kLosses, [account](const std::string &loss) {
        const size_t at = account.find(loss);
        return at != std::string_view::npos && !account.substr(at + loss.size()).starts_with('0');
    });
}

/// Video of the largest frames. @return how many came
int TakeFrames(const Context &context)
{
    const int bytes = getWidth() * getHeight() * 2;
    std::vector<uint8_t> frame(static_cast<size_t>(bytes));
    const auto wait = std::chrono::ceil<std::chrono::milliseconds>(context.timeout + kExposure);
    startCapture();
    int taken = 0;
    while (taken < kFrames && getImageData(frame.data(), bytes, static_cast<int>(wait.count()))) {
        ++taken;
        StopSignals::SleepFor(0ms);
    }
    stopCapture();
    return taken;
}

/// Less of the bus for the frames; where that is taken already, another cable or port.
std::string Remedy()
{
    const int least = getMin(CONTROL_BANDWIDTH);
    if (getValue(CONTROL_BANDWIDTH, nullptr) > least)
        return fmt::format("vsccam set bandwidth={} -- doctor --live", least);
    return "lsusb -t";
}

Finding CheckFrames(Camera &camera, const Context &context)
{
    camera.SetFraming({.bin = 1, .format = PixelFormat::kRaw16, .region = {}});
    camera.SetExposure(kExposure, context.console);
    (void)LibraryLines::Take(); // of before
    const int taken = TakeFrames(context);
    const std::vector<LibraryLine> lines = LibraryLines::Take();
    std::string account;
    for (const LibraryLine &line : lines)
        if (line.text.starts_with(kAccount))
            account = line.text;
    const bool complete = taken == kFrames;
    Finding finding{complete ? Verdict::kOk : Verdict::kFail,
                    fmt::format("{} of {} frames came; {}", taken, kFrames, account), ""};
    if (complete && TellsLosses(account))
        finding.verdict = Verdict::kWarn;
    if (const std::string advice = UsbfsAdvice(lines); !advice.empty())
        finding.found += ". " + advice;
    if (finding.verdict != Verdict::kOk)
        finding.remedy = Remedy();
    return finding;
}

} // namespace

std::vector<Finding> ExamineLive(const Context &context)
{
    std::vector<Finding> findings;
    std::string port;
    try {
        Camera camera(context.camera);
        port = camera.Entry().usb.value_or(UsbDevice{}).port;
        findings.push_back({Verdict::kOk, camera.Entry().model, "", "open", port});
        Finding frames = CheckFrames(camera, context);
        frames.id = "frames";
        frames.port = port;
        findings.push_back(frames);
    } catch (const Failure &failure) {
        if (failure.Code() >= static_cast<int>(Exit::kSignal))
            throw;
        findings.push_back({Verdict::kFail, failure.what(), "vsccam -v info",
                            findings.empty() ? "open" : "frames", port});
    }
    return findings;
}

} // namespace vsctool
