#include "camera/fault_plan.h"
#include "sim/host.h"
#include "support/temporary_file.h"

#include <cstdio>
#include <fstream>

namespace vscsim {
namespace {

constexpr uint64_t kForEver = UINT64_MAX;

FaultPlan Plan(std::string_view text)
{
    std::string error;
    const std::optional<FaultPlan> plan = ParseFaultPlan(text, &error);
    EXPECT_TRUE(plan) << text << ": " << error;
    return plan.value_or(FaultPlan{});
}

TEST(FaultPlan, ReadsShorthandAndJsonAlike)
{
    const struct {
        std::string_view shorthand;
        std::string_view json;
        FaultPlan expected;
    } cases[] = {
        {"", "[]", {}},
        {"short-frame@5=2",
         R"([{"fault": "short-frame", "from": 5, "amount": 2}])",
         {{.fault = Fault::ShortFrame, .from = 5, .amount = 2}}},
        {"empty-frame@10x4",
         R"([{"fault": "empty-frame", "from": 10, "count": 4}])",
         {{.fault = Fault::EmptyFrame, .from = 10, .count = 4}}},
        {"refuse-request:b6@3",
         R"([{"fault": "refuse-request", "request": 182, "from": 3}])",
         {{.fault = Fault::RefuseRequest, .request = 0xB6, .from = 3}}},
        {"short-answer:ADx*",
         R"([{"fault": "short-answer", "request": "0xad", "count": "*"}])",
         {{.fault = Fault::ShortAnswer, .request = 0xAD, .count = kForEver}}},
        {"bad-head%0.25x*,mute@7",
         R"([{"fault": "bad-head", "probability": 0.25, "count": "*"},
             {"fault": "mute", "from": 7}])",
         {{.fault = Fault::BadHead, .count = kForEver, .probability = 0.25},
          {.fault = Fault::Mute, .from = 7}}},
    };
    const std::string file = vsccam::TemporaryFile("vscsim_plan.json");
    for (const auto &c : cases) {
        SCOPED_TRACE(c.json);
        EXPECT_EQ(Plan(c.shorthand), c.expected);
        EXPECT_EQ(Plan(c.json), c.expected);
        std::ofstream(file) << c.json;
        EXPECT_EQ(Plan(file), c.expected);
    }
    std::remove(file.c_str());
}

TEST(FaultPlan, SaysWhatIsWrongAndWhere)
{
    const struct {
        std::string_view text;
        std::string_view message; // its beginning
    } cases[] = {
        {"shortframe", "fault 1: unknown fault \"shortframe\"; known are refuse-request, "},
        {"bad-head,", ""},
        {"bad-head,,mute", "fault 2: unknown fault \"\""},
        {"bad-head@", "fault 1: number after @ is no number: \"\""},
        {"bad-head@-1", "fault 1: number after @ is no number: \"-1\""},
        {"mute,bad-head@1y", "fault 2: number after @ is no number: \"1y\""},
        {"bad-head@99999999999999999999", "fault 1: number after @ is no number"},
        {"bad-headx0", "fault 1: count must be at least 1"},
        {"bad-head%2", "fault 1: probability must lie between 0 and 1"},
        {"bad-head%nan", "fault 1: probability must lie between 0 and 1"},
        {"lost-at-reset:b6", "fault 1: a fault of frames or resets takes no request"},
        {"bad-head:b6", "fault 1: a fault of frames or resets takes no request"},
        {"refuse-request:100", "fault 1: request (hexadecimal, 00 to ff) is no number: \"100\""},
        {"bad\xFFhead\n", "fault 1: unknown fault \"bad?head?\""},
        {"[", "no JSON at byte 2"},
        {"[1e999]", "a number is too large"},
        {"[{\"fault\": \"mute\"}, 5]", "fault 2: a rule is an object with a member \"fault\""},
        {"{\"fault\": \"mute\"}", "a plan is an array of rules"},
        {"[{\"fault\": 1}]", "fault 1: a rule is an object"},
        {"[{\"fault\": \"mute\", \"from\": -1}]",
         "fault 1: from must be a whole number, 0 or more"},
        {"[{\"fault\": \"mute\", \"count\": 1.5}]", "fault 1: count must be a whole number"},
        {"[{\"fault\": \"mute\", \"request\": 256}]", "fault 1: request must be at most 255"},
        {"[{\"fault\": \"mute\", \"probability\": \"x\"}]",
         "fault 1: probability must be a number"},
        {"[{\"fault\": \"mute\", \"frm\": 1}]", "fault 1: unknown member \"frm\""},
        {"no/such/plan", "no such file: \"no/such/plan\""},
        {"/dev/zero", "no such file: \"/dev/zero\""},
        {"/", "no such file: \"/\""},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        std::string error;
        EXPECT_EQ(ParseFaultPlan(c.text, &error).has_value(), c.message.empty());
        EXPECT_TRUE(error.starts_with(c.message)) << error;
    }
    EXPECT_FALSE(ParseFaultPlan("x", nullptr));
    EXPECT_FALSE(ParseFaultPlan(std::string(100'000, '['), nullptr));
}

TEST(Faults, HitRequestsByNumberAndCode)
{
    Host host({.speed = 0,
               .faults = Plan("refuse-request:b6@1,time-out-request:b7x2,short-answer:ad=1")});
    const std::vector<Outcome> seen = {
        host.Out(0xB6, 0x3014, 1),           host.Out(0xBD, 2, 1),
        host.Out(0xB6, 0x3014, 2),           host.Out(0xB6, 0x3015, 3),
        host.In(0xB7, 0x3014, 0, 1).outcome, host.In(0xB7, 0x3014, 0, 1).outcome};
    const std::vector<Outcome> expected = {Outcome::Ok, Outcome::Ok,      Outcome::Stall,
                                           Outcome::Ok, Outcome::Timeout, Outcome::Timeout};
    EXPECT_EQ(seen, expected);
    EXPECT_EQ(host.In(0xB7, 0x3014, 0, 1).data.at(0), 1); // the refused write did nothing
    EXPECT_EQ(host.In(0xAD, 0, 0, 2).data.size(), 1U);
    EXPECT_EQ(host.In(0xAD, 0, 0, 2).data.size(), 2U);
}

TEST(Faults, SpoilTheFrameTheyName)
{
    const Host::Format format; // 300 packets
    const struct {
        std::string_view plan;
        Outcome outcome;
        size_t bytes;
        int head, tail, difference; // of the counters
    } cases[] = {
        {"short-frame@1=100", Outcome::Ok, 307'100, 0x5A7E, 0, 0},
        {"short-frame@1=999999", Outcome::Timeout, 0, 0, 0, 0},
        {"empty-frame@1", Outcome::Timeout, 0, 0, 0, 0},
        {"bad-head@1", Outcome::Ok, 307'200, 0xA581, 0x3CF0, 0},
        {"bad-tail@1", Outcome::Ok, 307'200, 0x5A7E, 0xC30F, 0},
        {"unequal-counters@1", Outcome::Ok, 307'200, 0x5A7E, 0x3CF0, 1},
        {"io-error-frame@1", Outcome::IoError, 0, 0, 0, 0},
        {"stall-frame@1", Outcome::Stall, 0, 0, 0, 0},
    };
    for (const double speed : {0.0, 1.0})
        for (const auto &c : cases) {
            SCOPED_TRACE(c.plan);
            Host host({.speed = speed, .faults = Plan(c.plan)});
            host.Program(format);
            host.Start();
            EXPECT_TRUE(ShowsPattern(host.Read(format.Bytes()), format, 0));
            const std::vector<uint8_t> frame = host.Read(format.Bytes());
            EXPECT_EQ(host.last, c.outcome);
            EXPECT_EQ(frame.size(), c.bytes);
            if (!frame.empty()) {
                EXPECT_EQ(Word(frame, 0), c.head);
            }
            if (c.tail != 0) {
                EXPECT_EQ(Word(frame, c.bytes - 2), c.tail);
                EXPECT_EQ(Word(frame, c.bytes - 4) - Word(frame, 2), c.difference);
            }
            if (c.outcome == Outcome::Stall) {
                EXPECT_TRUE(host.Read(format.Bytes()).empty());
            }
            host.camera.ClearHalt(host.Endpoint(), host.now);
            const std::vector<uint8_t> next = host.Read(format.Bytes());
            EXPECT_TRUE(ShowsPattern(next, format, Word(next, 2)));
        }
}

TEST(Faults, EmptyFramesAreAsManyEmptyReads)
{
    for (const Time timeout : {20ms, 3000ms}) {
        Host host({.speed = 0, .faults = Plan("empty-frame@1x4")});
        host.Program({});
        host.Start();
        std::vector<size_t> sizes;
        for (int i = 0; i < 6; ++i) {
            sizes.push_back(host.Read(640 * 480, timeout).size());
            host.camera.GiveUp(host.Endpoint(), host.now); // of the same read: changes nothing
        }
        EXPECT_EQ(sizes, (std::vector<size_t>{307'200, 0, 0, 0, 0, 307'200}));
    }
}

TEST(Faults, MuteAndUnpluggedCamerasStaySo)
{
    const struct {
        std::string_view plan;
        Outcome request, transfer;
        AfterReset reset;
    } cases[] = {
        {"mute@1", Outcome::Timeout, Outcome::Timeout, AfterReset::NewDevice},
        {"unplug@1", Outcome::NoDevice, Outcome::NoDevice, AfterReset::Gone},
        {"mute:aa", Outcome::Timeout, Outcome::Timeout, AfterReset::NewDevice},
        {"unplug:aa", Outcome::NoDevice, Outcome::NoDevice, AfterReset::Gone},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.plan);
        Host host({.speed = 0, .faults = Plan(c.plan)});
        host.Program({});
        host.Start();
        EXPECT_FALSE(host.Read(640 * 480).empty());
        if (c.plan.ends_with("aa")) {
            EXPECT_EQ(host.Out(0xAA), c.request);
        }
        EXPECT_TRUE(host.Read(640 * 480).empty());
        EXPECT_EQ(host.last, c.transfer);
        EXPECT_EQ(host.Out(0xA9), c.request);
        EXPECT_EQ(host.camera.Reset(host.now), c.reset);
        EXPECT_EQ(host.Out(0xA9), c.request);
    }
}

TEST(Faults, ComeAtRandomFromTheSeed)
{
    const auto spoiled = [](uint64_t seed) {
        Host host({.seed = seed, .speed = 0, .faults = Plan("bad-head%0.1x*")});
        host.Program({.width = 8, .height = 2});
        host.Start();
        std::vector<int> numbers;
        for (int i = 0; i < 1000; ++i)
            if (Word(host.Read(16), 0) != 0x5A7E)
                numbers.push_back(i);
        return numbers;
    };
    const std::vector<int> first = spoiled(1);
    EXPECT_GT(first.size(), 60U);
    EXPECT_LT(first.size(), 140U);
    EXPECT_EQ(first, spoiled(1));
    EXPECT_NE(first, spoiled(2));
}

} // namespace
} // namespace vscsim
