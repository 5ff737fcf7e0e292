// What a kernel says to a served camera, and what it is told; without sockets, in a time of its
// own.
#include "vscsim/usbip_session.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <memory>
#include <vector>

using namespace vscsim;
using namespace std::chrono_literals;

namespace {

using Bytes = std::vector<uint8_t>;
using Words = std::initializer_list<uint32_t>;

constexpr size_t kFrameBytes = 1936 * 1096;

Bytes BigEndian(Words words)
{
    Bytes bytes;
    for (const uint32_t word : words)
        for (const int shift : {24, 16, 8, 0})
            bytes.push_back(static_cast<uint8_t>(word >> shift & 0xFF));
    return bytes;
}

Bytes Attach(const std::string &busId)
{
    Bytes bytes = BigEndian({0x01118003, 0});
    bytes.insert(bytes.end(), busId.begin(), busId.end());
    bytes.resize(40);
    return bytes;
}

/// The setup packet is given as it is written on the wire, in two words.
Bytes Submit(uint32_t number, bool in, uint32_t endpoint, uint32_t length, uint32_t setup = 0,
             uint32_t setupEnd = 0, uint32_t flags = 0)
{
    return BigEndian({1, number, 0x10002, in, endpoint, flags, length, 0, 0, 0, setup, setupEnd});
}

Bytes Unlink(uint32_t number, uint32_t target)
{
    return BigEndian({2, number, 0x10002, 0, 0, target, 0, 0, 0, 0, 0, 0});
}

struct Client {
    explicit Client(const UsbIpCameras &cameras) : session(cameras) {}

    /// What the server says to that, byte by byte if it has to be.
    Bytes Say(const Bytes &bytes, Time now, size_t atOnce = SIZE_MAX)
    {
        for (std::span rest(bytes); !rest.empty();
             rest = rest.subspan(std::min(atOnce, rest.size())))
            session.Receive(rest.first(std::min(atOnce, rest.size())), now);
        return Fetch(now);
    }

    Bytes Fetch(Time now)
    {
        (void)session.Advance(now);
        Bytes bytes;
        while (session.HasUnsent()) {
            size_t sent = 0;
            for (const auto part : session.Unsent()) {
                bytes.insert(bytes.end(), part.begin(), part.end());
                sent += part.size();
            }
            session.Sent(sent, now);
        }
        return bytes;
    }

    UsbIpSession session;
};

UsbIpCameras Cameras(const std::string &faults = "")
{
    UsbIpCameras cameras;
    for (const char *const model : {"VSC470MM", "VSC340MM"})
        cameras.push_back(std::make_unique<UsbIpCamera>(
            *FindModel(model), CameraOptions{.faults = *ParseFaultPlan(faults, nullptr)},
            cameras.size() + 1, 3s));
    return cameras;
}

uint32_t WordAt(const Bytes &bytes, size_t at)
{
    uint32_t word = 0;
    for (size_t i = 0; i < 4; ++i)
        word = word << 8 | bytes.at(at + i);
    return word;
}

/// The beginning of the answer to a transfer.
Bytes Ended(uint32_t number, int status, uint32_t bytes)
{
    return BigEndian({3, number, 0, 0, 0, static_cast<uint32_t>(status), bytes, 0, 0, 0, 0, 0});
}

Bytes Unlinked(uint32_t number, int status)
{
    return BigEndian({4, number, 0, 0, 0, static_cast<uint32_t>(status), 0, 0, 0, 0, 0, 0});
}

/// Has the camera send frames of its whole sensor, one in 63 ms.
void StartFrames(Client &client, Time now)
{
    const struct {
        uint32_t request, first, value, bytes;
    } writes[] = {
        {0xBD, 1, 1, 1},         {0xB6, 0x3007, 0x40, 1}, {0xB6, 0x3042, 1936, 2},
        {0xB6, 0x303E, 1096, 2}, {0xB6, 0x3046, 0xF1, 1}, {0xB6, 0x3009, 0x01, 1},
        {0xBD, 8, 1096, 2},      {0xBD, 4, 1936, 2},      {0xBD, 10, 0x01, 1},
        {0xBD, 19, 1050, 2},     {0xBD, 16, 1114, 3},     {0xB6, 0x3020, 1, 3},
        {0xBD, 1, 0, 1},         {0xA9, 0, 0, 1},         {0xB6, 0x3000, 0, 1},
        {0xBD, 0, 0x21, 1},
    };
    for (const auto &write : writes)
        for (uint32_t i = 0; i < write.bytes; ++i) {
            const uint32_t address = write.first + i, byte = write.value >> 8 * i & 0xFF;
            const uint32_t setup =
                0x40000000 | write.request << 16 | (address & 0xFF) << 8 | address >> 8;
            ASSERT_EQ(client.Say(Submit(9, false, 0, 0, setup, byte << 24), now), Ended(9, 0, 0));
        }
}

} // namespace

TEST(UsbIp, ACameraIsListedAndAttachedByOneClientAtATime)
{
    const UsbIpCameras cameras = Cameras();
    const auto answerTo = [&cameras](const Bytes &question) {
        Client client(cameras);
        Bytes answer = client.Say(question, 1s, 1);
        EXPECT_TRUE(client.session.Over());
        return answer;
    };
    auto first = std::make_unique<Client>(cameras);
    const Bytes attached = first->Say(Attach("1-1"), 0s);
    ASSERT_EQ(attached.size(), 320U);
    EXPECT_EQ(WordAt(attached, 308), 0x4B59470BU);
    EXPECT_EQ(WordAt(attached, 316), 0x00010101U) << "one configuration with one interface";
    const Bytes list = answerTo(BigEndian({0x01118005, 0}));
    EXPECT_EQ(list.size(), 12 + 2 * (312 + 4U));
    EXPECT_EQ(WordAt(list, 8), 2U);
    EXPECT_EQ(answerTo(Attach("1-1")), BigEndian({0x01110003, 2}));
    EXPECT_EQ(answerTo(Attach("1-3")), BigEndian({0x01110003, 4}));
    first.reset();
    EXPECT_EQ(Client(cameras).Say(Attach("1-1"), 1s), attached);
}

TEST(UsbIp, FramesComeAsTheTransfersAreLong)
{
    const struct {
        const char *faults;
        uint32_t flags;
        std::vector<uint32_t> lengths;
        std::vector<Bytes> answers;
    } cases[] = {
        // A frame that is no multiple of a packet ends the transfer, which some do not want.
        {"", 0, {1 << 20, 1 << 21}, {Ended(0, 0, 1 << 20), Ended(1, 0, kFrameBytes - (1 << 20))}},
        {"", 1, {1 << 22}, {Ended(0, -121, kFrameBytes)}},
        // What remains of a buffer must have room for a packet.
        {"",
         0,
         {1 << 20, 1536, 1 << 21},
         {Ended(0, 0, 1 << 20), Ended(1, -75, 1024), Ended(2, 0, kFrameBytes - (1 << 20) - 2048)}},
        {"stall-frame", 0, {512}, {Ended(0, -32, 0)}},
        {"io-error-frame", 0, {512}, {Ended(0, -71, 0)}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.faults << " " << c.lengths.size());
        const UsbIpCameras cameras = Cameras(c.faults);
        Client client(cameras);
        (void)client.Say(Attach("1-1"), 0s);
        StartFrames(client, 0s);
        for (uint32_t i = 0; i < c.lengths.size(); ++i)
            EXPECT_EQ(client.Say(Submit(i, true, 1, c.lengths[i], 0, 0, c.flags), 0s), Bytes());
        const Bytes all = client.Fetch(126ms);
        size_t at = 0;
        for (const Bytes &answer : c.answers) {
            ASSERT_LE(at + answer.size(), all.size());
            EXPECT_EQ(Bytes(all.begin() + static_cast<long>(at),
                            all.begin() + static_cast<long>(at + 48)),
                      answer);
            at += answer.size() + WordAt(answer, 24);
        }
        EXPECT_EQ(at, all.size());
    }
}

TEST(UsbIp, CommandsAreAnsweredInOrderAndEveryUnlinkOnce)
{
    constexpr uint32_t kLarge = 120 << 20;
    const struct {
        Bytes said, answer;
    } dialog[] = {
        {Unlink(11, 11), Unlinked(11, 0)}, // of the client before
        {Submit(1, true, 1, kLarge), {}},
        {Submit(2, true, 1, kLarge), {}},
        {Submit(3, true, 1, kLarge), Ended(3, -12, 0)}, // more than it holds for anybody
        {Submit(3, true, 1, 4096), {}},
        {Unlink(4, 2), Unlinked(4, -104)},
        {Unlink(5, 1), Unlinked(5, -104)},
        {Unlink(6, 1), Unlinked(6, 0)}, // has ended
        {Submit(7, true, 3, 4096), Ended(7, -32, 0)},
        {Submit(8, true, 0, 4, 0x80060006, 0x00000400), Ended(8, -32, 0)}, // a qualifier
        {Submit(9, false, 0, 2, 0x40770000, 0x00000200), {}},              // its data are to come
        {{1, 2}, Ended(9, -32, 0)},
        {Unlink(10, 3), Unlinked(10, -104)},
        {Submit(11, true, 1, 4096), {}},
    };
    const UsbIpCameras cameras = Cameras();
    for (const size_t atOnce : {size_t{1}, size_t{1000}}) {
        Client client(cameras);
        (void)client.Say(Attach("1-1"), 0s);
        for (const auto &line : dialog)
            EXPECT_EQ(client.Say(line.said, 0s, atOnce), line.answer) << int(line.said[7]);
        for (uint32_t waiting = 1; waiting < 1024; ++waiting)
            ASSERT_EQ(client.Say(Submit(11 + waiting, true, 1, 1), 0s), Bytes());
        EXPECT_EQ(client.Say(Submit(2000, true, 1, 1), 0s), Ended(2000, -12, 0));
    }
}

TEST(UsbIp, AClientThatFetchesNothingIsNotListenedTo)
{
    constexpr uint32_t kAsked = 100;
    const UsbIpCameras cameras = Cameras();
    Client client(cameras);
    (void)client.Say(Attach("1-1"), 0s);
    Bytes said;
    for (uint32_t i = 0; i < kAsked; ++i)
        std::ranges::copy(Submit(i, true, 0, 0xFFFF, 0x80060001, 0xFFFF), std::back_inserter(said));
    client.session.Receive(said, 0s);
    EXPECT_FALSE(client.session.Listens()) << "the buffers are long, however short the answers";
    const Bytes answers = client.Fetch(0s);
    ASSERT_EQ(answers.size(), kAsked * (48 + 18));
    EXPECT_EQ(WordAt(answers, answers.size() - 62), kAsked - 1);
    EXPECT_TRUE(client.session.Listens());
}

TEST(UsbIp, AMuteCameraClearsNoHaltAndStopsBeingMuteByAReset)
{
    const UsbIpCameras cameras = Cameras("mute:77");
    Client client(cameras);
    (void)client.Say(Attach("1-1"), 0s);
    const Bytes configure = Submit(5, false, 0, 0, 0x00090100, 0);
    const Bytes clearHalt = Submit(2, false, 0, 0, 0x02010000, 0x81000000);
    EXPECT_EQ(client.Say(configure, 0s), Ended(5, 0, 0));
    EXPECT_EQ(client.Say(clearHalt, 0s), Ended(2, 0, 0));
    EXPECT_EQ(client.Say(Submit(1, true, 0, 4, 0xC0770000, 0x00000400), 0s), Bytes());
    EXPECT_EQ(client.Say(clearHalt, 0s), Bytes());
    EXPECT_EQ(client.Say(Unlink(3, 2), 5s), Unlinked(3, -104));
    (void)client.Say(Submit(4, true, 0, 8, 0x80060001, 0x00000800), 6s);
    (void)client.Say(configure, 6s);
    EXPECT_TRUE(client.session.Over()) << "it boots";
}

TEST(UsbIp, AConfigurationAfterADescriptorIsAReset)
{
    const UsbIpCameras cameras = Cameras();
    Client client(cameras);
    (void)client.Say(Attach("1-1"), 0s);
    const Bytes configure = Submit(1, false, 0, 0, 0x00090100, 0);
    const Bytes describe = Submit(2, true, 0, 8, 0x80060001, 0x00000800);
    const auto streams = [&client](Time now) {
        (void)client.Say(Submit(3, true, 1, 512), now);
        (void)client.Fetch(now + 1s);
        return client.Say(Unlink(4, 3), now + 1s) == Unlinked(4, 0);
    };
    EXPECT_EQ(client.Say(describe, 0s).size(), 48 + 8U);
    EXPECT_EQ(client.Say(configure, 0s), Ended(1, 0, 0));
    StartFrames(client, 0s);
    EXPECT_EQ(client.Say(configure, 1s), Ended(1, 0, 0));
    EXPECT_TRUE(streams(1s)) << "a program has set the configuration";
    (void)client.Say(describe, 3s);
    EXPECT_EQ(client.Say(configure, 3s), Ended(1, 0, 0));
    EXPECT_FALSE(streams(3s)) << "the kernel has reset the camera";
}

TEST(UsbIp, AnUnpluggedCameraEndsTheConnectionAndComesBack)
{
    const struct {
        const char *plan;
        Time away;
        bool again; // the plan begins anew, unless the camera comes back by it
    } cases[] = {{"unplug", 3s, true}, {"replug=9000", 9s, false}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.plan);
        const UsbIpCameras cameras = Cameras(c.plan);
        for (const Time now : {0s, 10s}) {
            const bool leaves = now == 0s || c.again;
            auto client = std::make_unique<Client>(cameras);
            EXPECT_EQ(client->Say(Attach("1-1"), now).size(), 320U);
            StartFrames(*client, now);
            (void)client->Say(Submit(1, true, 1, 512), now);
            EXPECT_FALSE(client->session.Over());
            (void)client->Fetch(now + 1s);
            EXPECT_EQ(client->session.Over(), leaves);
            client.reset();
            EXPECT_EQ(Client(cameras).Say(Attach("1-1"), now + c.away).size() == 8U, leaves);
        }
    }
}

TEST(UsbIp, ACameraIsUnpluggedAtItsTimeAlsoWhenNobodyAsksForFrames)
{
    const UsbIpCameras cameras = Cameras("replug@2s=5000,unplug@20s");
    const struct {
        Time attached;
        Time leaves;
    } cases[] = {{1s, 3s}, {9s, 21s}};
    for (const auto &c : cases) {
        Client client(cameras);
        EXPECT_EQ(client.Say(Attach("1-1"), c.attached).size(), 320U);
        EXPECT_EQ(client.session.Advance(c.attached), c.leaves);
        EXPECT_FALSE(client.session.Over());
        (void)client.Fetch(c.leaves);
        EXPECT_TRUE(client.session.Over());
    }
}

TEST(UsbIp, WhatIsThrownAwayIsCounted)
{
    const UsbIpCameras cameras = Cameras();
    Client client(cameras);
    (void)client.Say(Attach("1-1"), 0s);
    StartFrames(client, 0s);
    (void)client.Say(Submit(1, true, 1, 1 << 22), 0s);
    (void)client.Fetch(130ms);
    (void)client.Fetch(770ms);
    EXPECT_EQ(cameras[0]->Frames().produced, 11U);
    EXPECT_EQ(cameras[0]->Frames().sent, 1U);
    EXPECT_EQ(cameras[0]->Frames().lost, 9U) << "one is held, and one is being read out";
}

TEST(UsbIp, WhatIsNoMessageEndsTheConnection)
{
    const Bytes longest = Attach(std::string(32, 'x'));
    const Bytes asked[] = {BigEndian({0x01108005, 0}), BigEndian({0x01118004, 0}), longest};
    const Bytes commanded[] = {
        BigEndian({5, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}),
        BigEndian({1, 1, 0, 2, 1, 0, 512, 0, 0, 0, 0, 0}),
        BigEndian({1, 1, 0, 1, 1, 0, 512, 0, 8, 0, 0, 0}), // isochronous
        Submit(1, true, 16, 512),
        Submit(1, true, 1, 0xFFFFFFFF),
        Submit(1, false, 2, 0x10000),
        Submit(1, true, 0, 64, 0x80060001, 0x00001200), // contradicts its setup packet
        Submit(1, true, 0, 64, 0x40770001, 0x00004000),
    };
    for (const Bytes &bytes : asked) {
        const UsbIpCameras cameras = Cameras();
        Client client(cameras);
        EXPECT_EQ(client.Say(bytes, 0s), Bytes());
        EXPECT_TRUE(client.session.Over()) << WordAt(bytes, 0);
    }
    for (const Bytes &bytes : commanded) {
        const UsbIpCameras cameras = Cameras();
        Client client(cameras);
        (void)client.Say(Attach("1-2"), 0s);
        EXPECT_EQ(client.Say(bytes, 0s), Bytes());
        EXPECT_TRUE(client.session.Over()) << &bytes - commanded;
    }
}
