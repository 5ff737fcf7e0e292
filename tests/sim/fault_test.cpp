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
        {"refuse-request:b6@3",
         R"([{"fault": "refuse-request", "request": 182, "from": 3}])",
         {{.fault = Fault::RefuseRequest, .request = 0xB6, .from = 3}}},
        {"short-answer:ADx*",
         R"([{"fault": "short-answer", "request": "0xad", "count": "*"}])",
         {{.fault = Fault::ShortAnswer, .request = 0xAD, .count = kForEver}}},
        {"bad-head%0.25,mute@7",
         R"([{"fault": "bad-head", "probability": 0.25, "count": "*"},
             {"fault": "mute", "from": 7}])",
         {{.fault = Fault::BadHead, .count = kForEver, .probability = 0.25},
          {.fault = Fault::Mute, .from = 7}}},
        {"replug@5s=9,mute@250ms",
         R"([{"fault": "replug", "at_ms": 5000, "amount": 9}, {"fault": "mute", "at_ms": 250}])",
         {{.fault = Fault::Replug, .amount = 9, .atMs = 5000},
          {.fault = Fault::Mute, .atMs = 250}}},
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
        {"bad-head@", "fault 1: number after @ is no number: \"\""},
        {"mute,bad-head@1y", "fault 2: number after @ is no number: \"1y\""},
        {"bad-headx0", "fault 1: count must be at least 1"},
        {"bad-head%2", "fault 1: probability must lie between 0 and 1"},
        {"bad-head@5s", "fault 1: a time is for faults of the device, without request, count or"},
        {"replug@5sx2", "fault 1: a time is for faults of the device, without request, count or"},
        {"lost-at-reset:b6", "fault 1: a fault of frames or resets takes no request"},
        {"refuse-request:100", "fault 1: request (hexadecimal, 00 to ff) is no number: \"100\""},
        {"bad\xFFhead\n", "fault 1: unknown fault \"bad?head?\""},
        {"[\n", "line 2: no JSON"},
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

TEST(Faults, ComeAtRandomFromTheSeed)
{
    const auto spoiled = [](uint64_t seed) {
        Host host({.seed = seed, .speed = 0, .faults = Plan("bad-head%0.1")});
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
