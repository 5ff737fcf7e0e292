#include "soak/episode.h"

#include "base/debug_print.h"
#include "support/virtual_time.h"
#include "usb/requests.h"

#include <libusb.h>
#include <unistd.h>
#include <vsccam.h>

#include <algorithm>
#include <iterator>

namespace soak {

using namespace std::chrono_literals;
using vscsim::Fault;
using enum Who;

namespace {

constexpr auto kLength = 30s;

const char *const kModels[] = {"VSC470MM",      "VSC340MM",     "VSC2800MM", "VSC048MM",
                               "VSC470MM-Cool", "VSC350MM",     "VSC430MM",  "VSC340MM-S",
                               "VSC420MM",      "VSC052MC",     "VSC372MC",  "VSC056MM",
                               "VSC450MC",      "VSC083MC-Cool"};
const char *const kLargestModels[] = {"VSC065MC-Cool", "VSC385MC-Cool", "VSC083MC-Cool",
                                      "VSC2800MM"};

int Roll(Host::Dice &dice, size_t end)
{
    return Host::Roll(dice, end);
}

template <Fault fault> void Spoil(Host &host, Host::Reader &, Host::Dice &dice)
{
    constexpr int kBytes[] = {0, 1, 4, 1024, 5'000, 300'000, 100'000'000};
    const auto bytes = static_cast<uint64_t>(kBytes[Roll(dice, std::size(kBytes))]);
    const uint64_t frames = Roll(dice, 5) == 0 ? static_cast<uint64_t>(Roll(dice, 12)) : 1;
    // A tail that is not a word or more behind its place counts as there.
    constexpr uint64_t kUnit = fault == Fault::LongFrame ? 4 : 1;
    host.Spoil({.fault = fault,
                .count = frames,
                .amount = fault == Fault::IoErrorFrame ? 1 : bytes * kUnit});
}

/// Requests get lost, whichever they are.
template <Fault fault> void Lose(Host &host, Host::Reader &, Host::Dice &dice)
{
    const auto requests = static_cast<uint64_t>(1 + Roll(dice, 4));
    host.Spoil({.fault = fault, .from = static_cast<uint64_t>(Roll(dice, 30)), .count = requests});
}

/// A camera that refuses what shapes its picture shows another one: it refuses the rest.
void Refuse(Host &host, Host::Reader &, Host::Dice &dice)
{
    namespace request = vsccam::request;
    const uint8_t requests[] = {request::kStartDataPath, request::kStopDataPath,
                                request::kGuideOn,       request::kGuideOff,
                                request::kCoolerDrive,   request::kSensorTemperature,
                                request::kReadFlash,     request::kThermistor};
    host.Spoil({.fault = Fault::RefuseRequest,
                .request = requests[Roll(dice, std::size(requests))],
                .from = static_cast<uint64_t>(Roll(dice, 3)),
                .count = static_cast<uint64_t>(1 + Roll(dice, 4))});
}

/// Calls of libusb that are on the way of a frame.
void FailCalls(Host &host, Host::Reader &, Host::Dice &dice)
{
    const char *const functions[] = {"libusb_submit_transfer", "libusb_clear_halt",
                                     "libusb_reset_device",
                                     "libusb_handle_events_timeout_completed"};
    const int codes[] = {LIBUSB_ERROR_IO, LIBUSB_ERROR_NO_MEM, LIBUSB_ERROR_INTERRUPTED};
    const char *const function = functions[Roll(dice, std::size(functions))];
    auto &bus = vscsim::Bus::Instance();
    const uint64_t from = bus.Calls(function) + static_cast<uint64_t>(Roll(dice, 3));
    const int count = 1 + Roll(dice, 6);
    bus.FailCalls(from, static_cast<uint64_t>(count), codes[Roll(dice, std::size(codes))],
                  function);
    if (function == std::string_view("libusb_clear_halt"))
        host.mayCountMore += count;
}

void Unplug(Host &host, Host::Reader &, Host::Dice &dice)
{
    vscsim::Place place;
    if (Roll(dice, 3) == 0)
        place.ports = {static_cast<uint8_t>(1 + Roll(dice, 4))};
    if (Roll(dice, 3) == 0)
        place.link = Roll(dice, 2) ? vscsim::LinkSpeed::Super : vscsim::LinkSpeed::High;
    const int afterMs[] = {1, 100, 900, 4'000, 8'000};
    host.Replug(afterMs[Roll(dice, std::size(afterMs))], place);
}

void Mute(Host &host, Host::Reader &reader, Host::Dice &dice)
{
    host.kernelMs = 5'200;
    Spoil<Fault::Mute>(host, reader, dice);
    vsccam::SleepFor(std::chrono::milliseconds(500 + Roll(dice, 6'000)));
    ++host.mayCountMore;
    host.Replug(10, {});
    vsccam::SleepFor(6s); // a call may still be under way
    host.kernelMs = 200;
}

void DelayCancels(Host &host, Host::Reader &, Host::Dice &dice)
{
    const vscsim::Time delays[] = {20ms, 700ms, 10s, vscsim::kNever};
    vscsim::Bus::Instance().DelayCancel(delays[Roll(dice, std::size(delays))]);
    vsccam::SleepFor(std::chrono::milliseconds(Roll(dice, 3'000)));
    host.PutBack();
}

void ChangeFormat(Host &host, Host::Reader &, Host::Dice &dice)
{
    constexpr std::pair<int, int> kSizes[] = {{64, 48}, {320, 240}, {640, 480}, {640, 480}};
    const auto [width, height] = kSizes[Roll(dice, std::size(kSizes))];
    const int types[] = {VSC_IMG_RAW8, VSC_IMG_RAW16, VSC_IMG_Y8, VSC_IMG_RGB24};
    const int type = types[Roll(dice, host.Colour() ? 2 : 4)];
    const bool bin = !host.Colour() && type != VSC_IMG_RAW16 && Roll(dice, 4) == 0;
    host.Format(width, height, bin ? 2 : 1, type);
}

void OpenAgain(Host &host, Host::Reader &, Host::Dice &dice)
{
    if (Roll(dice, 2))
        host.Close();
    (void)host.Open();
    host.Format(640, 480, 1, VSC_IMG_RAW8);
    host.Start();
}

void SetSomething(Host &host, Host::Reader &, Host::Dice &dice)
{
    const bool automatic = Roll(dice, 4) == 0;
    switch (Roll(dice, 5)) {
    case 0:
        return host.Set(CONTROL_EXPOSURE, Roll(dice, 10) ? 50 << Roll(dice, 12) : 1'500'000,
                        automatic);
    case 1:
        return host.Set(CONTROL_BANDWIDTH, 40 + Roll(dice, 61), automatic);
    case 2:
        return host.Set(CONTROL_BRIGHTNESS, Roll(dice, 100), false);
    case 3:
        return setAutoPara(Roll(dice, 300), 1, 50 + Roll(dice, 100));
    default:
        return host.Set(CONTROL_GAIN, Roll(dice, 300), automatic);
    }
}

constexpr Deed kDeeds[] = {
    {"short frames", Bus, 8, Spoil<Fault::ShortFrame>},
    {"long frames", Bus, 3, Spoil<Fault::LongFrame>},
    {"empty frames", Bus, 4, Spoil<Fault::EmptyFrame>},
    {"wrong heads", Bus, 4, Spoil<Fault::BadHead>},
    {"wrong tails", Bus, 4, Spoil<Fault::BadTail>},
    {"unequal counters", Bus, 4, Spoil<Fault::UnequalCounters>},
    {"I/O errors", Bus, 4, Spoil<Fault::IoErrorFrame>},
    {"stalls", Bus, 4, Spoil<Fault::StallFrame>},
    {"refused requests", Bus, 3, Refuse},
    {"missing answers", Bus, 3, Lose<Fault::TimeOutRequest>},
    {"short answers", Bus, 2, Lose<Fault::ShortAnswer>},
    {"failing calls", Bus, 3, FailCalls},
    {"unplugged", Bus, 3, Unplug},
    {"mute", Bus, 1, Mute},
    {"late cancels", Bus, 2, DelayCancels},
    {"stop", Operator, 3, [](Host &host, Host::Reader &, Host::Dice &) { host.Stop(); }},
    {"start", Operator, 6, [](Host &host, Host::Reader &, Host::Dice &) { host.Start(); }},
    {"format", Operator, 6, ChangeFormat},
    {"region", Operator, 4,
     [](Host &host, Host::Reader &, Host::Dice &dice) {
         host.Move(Roll(dice, 400), Roll(dice, 300));
     }},
    {"binning", Operator, 2,
     [](Host &host, Host::Reader &, Host::Dice &dice) { host.SwitchBinning(Roll(dice, 2)); }},
    {"speed", Operator, 2,
     [](Host &host, Host::Reader &, Host::Dice &dice) { host.SwitchSpeed(Roll(dice, 2)); }},
    {"exposure", Operator, 4,
     [](Host &host, Host::Reader &, Host::Dice &dice) {
         const int ms[] = {1, 100, 1'000, 2'500};
         host.Expose(ms[Roll(dice, 4)], Roll(dice, 2) ? 60'000 : Roll(dice, 1'500));
     }},
    {"close and open", Operator, 2, OpenAgain},
    {"slow reader", Reader, 3,
     [](Host &, Host::Reader &, Host::Dice &dice) {
         vsccam::SleepFor(std::chrono::milliseconds(Roll(dice, 10'000)));
     }},
    {"other wait", Reader, 4,
     [](Host &, Host::Reader &reader, Host::Dice &dice) {
         const int waits[] = {0, 20, 500, 3'000, -1};
         reader.waitMs = waits[Roll(dice, 5)];
     }},
    {"slow other reader", OtherReader, 4,
     [](Host &, Host::Reader &, Host::Dice &dice) {
         vsccam::SleepFor(std::chrono::milliseconds(Roll(dice, 10'000)));
     }},
    {"setting", Tuner, 20, SetSomething},
    {"many settings", Tuner, 2,
     [](Host &host, Host::Reader &, Host::Dice &dice) {
         for (int i = 0; i < 200; ++i)
             host.Set(CONTROL_GAIN, Roll(dice, 100), false);
     }},
    {"temperature", Tuner, 3, [](Host &, Host::Reader &, Host::Dice &) { (void)getSensorTemp(); }},
    {"pulse", Guide, 6,
     [](Host &host, Host::Reader &, Host::Dice &dice) {
         host.Pulse(Roll(dice, 4), Roll(dice, 500));
     }},
};

const Deed &ChooseDeed(Host::Dice &dice)
{
    int all = 0;
    for (const Deed &deed : kDeeds)
        all += deed.weight;
    int at = Roll(dice, all);
    const Deed *deed = kDeeds;
    for (; at >= deed->weight; ++deed)
        at -= deed->weight;
    return *deed;
}

/// What one thread does in an episode. Readers read in between.
void Act(Host &host, const Episode &episode, Who who)
{
    const auto began = vsccam::Clock::now();
    const bool reads = who == Reader || who == OtherReader;
    Host::Reader reader;
    for (const Event &event : episode.events) {
        if (event.deed->who != who)
            continue;
        const auto at = began + std::chrono::milliseconds(event.atMs);
        for (auto now = vsccam::Clock::now(); now < at; now = vsccam::Clock::now())
            reads ? host.Read(reader) : vsccam::SleepFor(ceil<std::chrono::milliseconds>(at - now));
        Host::Dice dice(event.seed);
        event.deed->act(host, reader, dice);
    }
    while (reads && !host.Ended())
        host.Read(reader);
    if (who == Bus)
        vsccam::SleepFor(ceil<std::chrono::milliseconds>(began + kLength - vsccam::Clock::now()));
}

} // namespace

std::span<const Deed> AllDeeds()
{
    return kDeeds;
}

Episode::Episode(uint64_t number, bool ofTheLargest) : seed(number), largest(ofTheLargest)
{
    Host::Dice dice(static_cast<Host::Dice::result_type>(seed * 2654435761U));
    const std::span<const char *const> models =
        largest ? std::span<const char *const>(kLargestModels) : kModels;
    model = models[static_cast<size_t>(Roll(dice, static_cast<int>(models.size())))];
    link = Roll(dice, 4) ? vscsim::LinkSpeed::Super : vscsim::LinkSpeed::High;
    const int count = Roll(dice, 60);
    for (int i = 0; i < count; ++i) {
        const Deed &deed = ChooseDeed(dice);
        const bool fx2 = vscsim::FindModel(model)->controller == vscsim::ControllerKind::Fx2;
        // Only the mark at the head of the frame behind it tells of one that is too long.
        if (fx2 && deed.act == Spoil<Fault::LongFrame>)
            continue;
        if (!largest || (deed.act != ChangeFormat && deed.act != OpenAgain))
            events.push_back({Roll(dice, kLength / 1ms), &deed, static_cast<uint32_t>(dice())});
    }
    std::ranges::sort(events, {}, &Event::atMs);
}

std::string Run(const Episode &episode, bool inTurn, Counts &counts)
{
    const vsccam::VirtualTime time(vscsim::VirtualClock::kStart,
                                   inTurn ? std::optional(episode.seed) : std::nullopt);
    vscsim::Bus::Instance().Reset(episode.seed);
    if (ftruncate(STDOUT_FILENO, 0) != 0)
        return "the output of the library cannot be kept";
    vsccam::SetDebugPrint(true);
    Host host(episode.model, episode.link);
    if (!host.Open())
        return "no camera";
    if (!episode.largest)
        host.Format(640, 480, 1, VSC_IMG_RAW8);
    host.Start();
    {
        vsccam::Thread bus;
        vsccam::Thread others[4];
        (void)bus.Start([&] { Act(host, episode, Bus); });
        for (size_t i = 0; i < std::size(others); ++i) {
            const Who who = std::array{Reader, OtherReader, Tuner, Guide}[i];
            (void)others[i].Start([&host, &episode, who] { Act(host, episode, who); });
        }
        Act(host, episode, Operator);
        bus.Join();
        host.PutBack();
        host.ExpectVideo();
        host.Finish();
    }
    host.CompareAccounts();
    ++counts.episodes;
    counts.delivered += host.counts.delivered;
    counts.exposures += host.counts.exposures;
    for (size_t i = 0; i < std::size(counts.ends); ++i)
        counts.ends[i] += host.counts.ends[i];
    for (const Event &event : episode.events)
        ++counts.events[event.deed - kDeeds];
    return host.Fault();
}

} // namespace soak
