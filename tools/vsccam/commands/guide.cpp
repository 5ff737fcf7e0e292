#include "camera.h"
#include "commands/command.h"
#include "failure.h"
#include "stop_signals.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <memory>

namespace vsctool {
namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

// The library switches a pulse off at its end. A signal waits for that; longer pulses are made of
// several, so that it never waits for long.
constexpr milliseconds kLongestPiece = 1s;
constexpr Microseconds kLongestPulse = 1h;

struct GuideOptions {
    std::string direction;
    Microseconds time{};
};

constexpr std::pair<const char *, GuideD> kDirections[] = {
    {"N", GUIDE_NORTH}, {"S", GUIDE_SOUTH}, {"E", GUIDE_EAST}, {"W", GUIDE_WEST}};

GuideD DirectionOf(const std::string &name)
{
    const auto *found = std::find_if(std::begin(kDirections), std::end(kDirections),
                                     [&](const auto &entry) { return name == entry.first; });
    return found->second; // the parser lets no other name through
}

/// A program that was killed may have left a line on.
void SwitchAllOff()
{
    for (const auto &[name, direction] : kDirections)
        pulseGuide(direction, 0);
}

void Guide(const GuideOptions &options, Context &context)
{
    if (options.time > kLongestPulse)
        throw Failure(Exit::kUsage,
                      fmt::format("a pulse of {} is too long; {} at most", FormatTime(options.time),
                                  FormatTime(kLongestPulse)));
    const GuideD direction = DirectionOf(options.direction);
    const Camera camera(context.camera);
    SwitchAllOff();
    auto left = std::chrono::ceil<milliseconds>(options.time);
    do { // once for a pulse of no length, too: whether the camera is there is told then
        const milliseconds piece = std::min(left, kLongestPiece);
        pulseGuide(direction, static_cast<int>(piece.count()));
        left -= piece;
        StopSignals::SleepFor(0ms); // the line is off: here a signal may end the program
        camera.CheckPresence();
    } while (left > 0ms);
    context.console.Say(
        fmt::format("guided {} for {}", options.direction, FormatTime(options.time)));
    context.console.Emit({{"direction", options.direction}, {"time_s", Seconds(options.time)}});
}

} // namespace

void AddGuideCommand(CLI::App &app, Command &chosen)
{
    CLI::App *guide = app.add_subcommand("guide", "Send a pulse to the mount");
    guide->footer("vsccam guide n 500ms");
    const auto options = std::make_shared<GuideOptions>();
    guide->add_option("direction", options->direction, "N, S, E or W")
        ->required()
        ->transform(CLI::IsMember({"N", "S", "E", "W"}, CLI::ignore_case));
    AddParsed(*guide, "time", options->time, ParseTime, "TIME", "Length: 500ms, 2s")->required();
    guide->callback(
        [&chosen, options] { chosen = [options](Context &context) { Guide(*options, context); }; });
}

} // namespace vsctool
