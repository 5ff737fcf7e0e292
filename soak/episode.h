#pragma once

#include "soak/host.h"

#include <span>

namespace soak {

enum class Who { Bus, Operator, Reader, OtherReader, Tuner, Guide };

/// Something that a thread of the host does, or that happens on the bus.
struct Deed {
    const char *name;
    Who who;
    int weight; // how often, against the others
    void (*act)(Host &, Host::Reader &, Host::Dice &);
};
std::span<const Deed> AllDeeds();

struct Event {
    int atMs;
    const Deed *deed;
    uint32_t seed; // of what the deed leaves to chance
};

/// All that happens in a while of some seconds; follows from the seed.
struct Episode {
    explicit Episode(uint64_t seed, bool largest);

    uint64_t seed;
    bool largest; // frames, of the models that have them
    const char *model = nullptr;
    vscsim::LinkSpeed link = vscsim::LinkSpeed::Super;
    std::vector<Event> events = {}; // in order
};

struct Counts {
    std::atomic<uint64_t> episodes, delivered, exposures;
    std::atomic<uint64_t> ends[6];    // of frames, by vscsim::FrameEnd
    std::atomic<uint64_t> events[32]; // by deed
};

/// @param inTurn  one thread at a time, as the seed decides; otherwise all at once
/// @return what went wrong, empty for nothing
std::string Run(const Episode &episode, bool inTurn, Counts &counts);

} // namespace soak
