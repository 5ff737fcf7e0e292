#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vscsim {

/// What can go wrong, and when. A rule hits frames or control requests, by number, or at random.
enum class Fault {
    // control requests
    RefuseRequest,  // stalled
    TimeOutRequest, // no answer
    ShortAnswer,    // fewer bytes than asked, `amount` of them
    CorruptAnswer,  // the byte with the number `amount` is inverted
    // frames
    ShortFrame,      // `amount` bytes are missing at the end (default 512)
    LongFrame,       // `amount` bytes too many (default 512), the tail mark behind them
    EmptyFrame,      // nothing is sent until the host gives up a transfer
    BadHead,         // wrong head mark
    BadTail,         // wrong tail mark
    UnequalCounters, // head and tail counters differ
    IoErrorFrame,    // `amount` reads of it (default 1) end with an I/O error, then it comes
    StallFrame,      // the endpoint halts until it is cleared
    // the device
    Mute,   // neither requests nor frames are answered from now on
    Unplug, // the device is gone
    Replug, // the same, and back after `amount` milliseconds (default 1000), as after power-on
    Move,   // back at another port
    // resets of the device
    LostAtReset, // it does not come back
};

/// Requests are counted from plugging in, only those with the rule's code where it has one. Frames
/// are counted when they are sent, without those that were lost in the camera. Device faults strike
/// when the frame is about to be sent; with a request code, when the request arrives; with a time,
/// so long after the host first dealt with the camera. Counts and times go on in a camera that a
/// rule has plugged in again. Resets are counted by themselves.
struct FaultRule {
    Fault fault = Fault::EmptyFrame;
    std::optional<uint8_t> request = {}; // control faults: only this bRequest
    uint64_t from = 0;                   // number of the first frame or request that is hit, from 0
    uint64_t count = 1;                  // how many in a row; UINT64_MAX: for ever
    double probability = 1.0;            // of each of them, drawn from the camera's seed
    uint64_t amount = 0;                 // of the fault, see above
    std::optional<uint64_t> atMs = {};   // device faults: when, instead of a number

    bool operator==(const FaultRule &) const = default;
};

using FaultPlan = std::vector<FaultRule>;

/// What a fault is counted by.
enum class FaultTarget { Requests, Frames, Device, Resets };
FaultTarget TargetOf(Fault fault);
std::string_view NameOf(Fault fault); // "short-frame", as a plan spells it

/// Reads a plan: JSON (an array of objects with the members of FaultRule, `fault` as text) or the
/// shorthand "short-frame@5,empty-frame@10x4,refuse-request:b6@3,unplug@100,bad-head%0.01", in
/// which @N is `from`, xN is `count` ("x*" for ever, which it is by default where there is a
/// probability), %P is `probability`, :HEX is `request`, and =N is `amount`. @Ns and @Nms are
/// `atMs`, "at_ms" in JSON. A path to a file with JSON is read, too.
/// @return nothing and a message in `error` when the text is no plan
std::optional<FaultPlan> ParseFaultPlan(std::string_view text, std::string *error);

} // namespace vscsim
