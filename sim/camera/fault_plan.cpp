#include "camera/fault_plan.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>

namespace vscsim {
namespace {

using Json = nlohmann::json;

constexpr uint64_t kForEver = std::numeric_limits<uint64_t>::max();
constexpr uintmax_t kLargestFile = 1U << 20;

struct FaultFacts {
    Fault fault;
    std::string_view name;
    FaultTarget target;
};

constexpr FaultFacts kFaults[] = {
    {Fault::RefuseRequest, "refuse-request", FaultTarget::Requests},
    {Fault::TimeOutRequest, "time-out-request", FaultTarget::Requests},
    {Fault::ShortAnswer, "short-answer", FaultTarget::Requests},
    {Fault::CorruptAnswer, "corrupt-answer", FaultTarget::Requests},
    {Fault::ShortFrame, "short-frame", FaultTarget::Frames},
    {Fault::LongFrame, "long-frame", FaultTarget::Frames},
    {Fault::EmptyFrame, "empty-frame", FaultTarget::Frames},
    {Fault::BadHead, "bad-head", FaultTarget::Frames},
    {Fault::BadTail, "bad-tail", FaultTarget::Frames},
    {Fault::UnequalCounters, "unequal-counters", FaultTarget::Frames},
    {Fault::IoErrorFrame, "io-error-frame", FaultTarget::Frames},
    {Fault::StallFrame, "stall-frame", FaultTarget::Frames},
    {Fault::Mute, "mute", FaultTarget::Device},
    {Fault::Unplug, "unplug", FaultTarget::Device},
    {Fault::Replug, "replug", FaultTarget::Device},
    {Fault::Move, "move", FaultTarget::Device},
    {Fault::LostAtReset, "lost-at-reset", FaultTarget::Resets},
};

const FaultFacts &FactsOf(Fault fault)
{
    return *std::ranges::find(kFaults, fault, &FaultFacts::fault);
}

/// Why a text is no plan; thrown and caught in this file only.
struct BadPlan {
    std::string why;
};

std::string Quoted(std::string_view text)
{
    constexpr size_t kLongest = 40;
    std::string quoted = "\"";
    for (const char c : text.substr(0, kLongest))
        quoted += c >= ' ' && c <= '~' ? c : '?';
    return quoted + (text.size() > kLongest ? "...\"" : "\"");
}

FaultRule RuleNamed(std::string_view name)
{
    const auto *const facts = std::ranges::find(kFaults, name, &FaultFacts::name);
    if (facts != std::end(kFaults))
        return {.fault = facts->fault};
    std::string known;
    for (const FaultFacts &fault : kFaults)
        known += (known.empty() ? "" : ", ") + std::string(fault.name);
    throw BadPlan{"unknown fault " + Quoted(name) + "; known are " + known};
}

template <class Number> Number NumberIn(std::string_view text, std::string_view what, int base = 10)
{
    Number number = 0;
    const char *const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number, base);
    if (error != std::errc() || stop != end)
        throw BadPlan{std::string(what) + " is no number: " + Quoted(text)};
    return number;
}

double ProbabilityIn(std::string_view text)
{
    double number = 0;
    const char *const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end)
        throw BadPlan{"probability is no number: " + Quoted(text)};
    return number;
}

uint8_t RequestIn(std::string_view text)
{
    if (text.starts_with("0x"))
        text.remove_prefix(2);
    return NumberIn<uint8_t>(text, "request (hexadecimal, 00 to ff)", 16);
}

/// What holds for a rule whichever way it was written.
FaultRule Checked(FaultRule rule, std::optional<uint64_t> count)
{
    rule.count = count.value_or(rule.probability < 1.0 ? kForEver : 1);
    if (!(rule.probability >= 0.0 && rule.probability <= 1.0))
        throw BadPlan{"probability must lie between 0 and 1"};
    if (rule.count == 0)
        throw BadPlan{"count must be at least 1"};
    const FaultTarget target = TargetOf(rule.fault);
    if (rule.request && (target == FaultTarget::Frames || target == FaultTarget::Resets))
        throw BadPlan{"a fault of frames or resets takes no request"};
    const bool counts = rule.request || rule.from != 0 || count || rule.probability < 1.0;
    if (rule.atMs && (target != FaultTarget::Device || counts))
        throw BadPlan{"a time is for faults of the device, without request, count or probability"};
    return rule;
}

/// "100", "5s" or "500ms" behind @.
void ReadMoment(std::string_view text, FaultRule &rule)
{
    constexpr std::string_view kWhat = "number after @";
    constexpr uint64_t kLongestS = 1'000'000;
    if (text.ends_with("ms"))
        rule.atMs = NumberIn<uint64_t>(text.substr(0, text.size() - 2), kWhat);
    else if (text.ends_with('s'))
        rule.atMs =
            std::min(NumberIn<uint64_t>(text.substr(0, text.size() - 1), kWhat), kLongestS) * 1000;
    else
        rule.from = NumberIn<uint64_t>(text, kWhat);
}

/// One rule of the shorthand: a name, then parts that begin with a sign of their own.
FaultRule RuleInShorthand(std::string_view text)
{
    constexpr std::string_view kSigns = ":@x%=";
    const auto partLength = [&kSigns](std::string_view rest) {
        return std::min(rest.find_first_of(kSigns), rest.size());
    };
    FaultRule rule = RuleNamed(text.substr(0, partLength(text)));
    std::optional<uint64_t> count;
    text.remove_prefix(partLength(text));
    while (!text.empty()) {
        const char sign = text.front();
        text.remove_prefix(1);
        const std::string_view value = text.substr(0, partLength(text));
        text.remove_prefix(value.size());
        if (sign == ':')
            rule.request = RequestIn(value);
        else if (sign == '@')
            ReadMoment(value, rule);
        else if (sign == 'x')
            count = value == "*" ? kForEver : NumberIn<uint64_t>(value, "number after x");
        else if (sign == '%')
            rule.probability = ProbabilityIn(value);
        else
            rule.amount = NumberIn<uint64_t>(value, "number after =");
    }
    return Checked(rule, count);
}

uint64_t NumberIn(const Json &value, std::string_view what)
{
    if (!value.is_number_unsigned())
        throw BadPlan{std::string(what) + " must be a whole number, 0 or more"};
    return value.get<uint64_t>();
}

uint8_t RequestIn(const Json &value)
{
    if (value.is_string())
        return RequestIn(std::string_view(value.get_ref<const std::string &>()));
    const uint64_t number = NumberIn(value, "request");
    if (number > 0xFF)
        throw BadPlan{"request must be at most 255"};
    return static_cast<uint8_t>(number);
}

FaultRule RuleInJson(const Json &object)
{
    if (!object.is_object() || !object.contains("fault") || !object["fault"].is_string())
        throw BadPlan{"a rule is an object with a member \"fault\""};
    FaultRule rule = RuleNamed(object["fault"].get_ref<const std::string &>());
    std::optional<uint64_t> count;
    for (const auto &[key, value] : object.items()) {
        if (key == "fault")
            continue;
        if (key == "request")
            rule.request = RequestIn(value);
        else if (key == "from")
            rule.from = NumberIn(value, "from");
        else if (key == "at_ms")
            rule.atMs = NumberIn(value, "at_ms");
        else if (key == "count")
            count = value == "*" ? kForEver : NumberIn(value, "count");
        else if (key == "probability" && value.is_number())
            rule.probability = value.get<double>();
        else if (key == "probability")
            throw BadPlan{"probability must be a number"};
        else if (key == "amount")
            rule.amount = NumberIn(value, "amount");
        else
            throw BadPlan{"unknown member " + Quoted(key)};
    }
    return Checked(rule, count);
}

/// Reads each part with `read`; a message says which one is wrong.
template <class Parts, class Read> FaultPlan RulesOf(const Parts &parts, Read read)
{
    FaultPlan plan;
    for (const auto &part : parts) {
        try {
            plan.push_back(read(part));
        } catch (const BadPlan &bad) {
            throw BadPlan{"fault " + std::to_string(plan.size() + 1) + ": " + bad.why};
        }
    }
    return plan;
}

FaultPlan PlanInJson(std::string_view text)
{
    Json json;
    try {
        json = Json::parse(text);
    } catch (const Json::parse_error &error) {
        const auto line = 1 + std::ranges::count(text.substr(0, error.byte), '\n');
        throw BadPlan{"line " + std::to_string(line) + ": no JSON"};
    } catch (const Json::out_of_range &) {
        throw BadPlan{"a number is too large"};
    }
    if (!json.is_array())
        throw BadPlan{"a plan is an array of rules"};
    return RulesOf(json, RuleInJson);
}

FaultPlan PlanInShorthand(std::string_view text)
{
    std::vector<std::string_view> parts;
    while (!text.empty()) {
        const size_t comma = text.find(',');
        parts.push_back(text.substr(0, comma));
        text.remove_prefix(comma == std::string_view::npos ? text.size() : comma + 1);
    }
    return RulesOf(parts, RuleInShorthand);
}

FaultPlan PlanInFile(const std::filesystem::path &path)
{
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error))
        throw BadPlan{"no such file: " + Quoted(path.string())};
    if (std::filesystem::file_size(path, error) > kLargestFile || error)
        throw BadPlan{"too large for a plan: " + Quoted(path.string())};
    std::ifstream file(path, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    if (!file)
        throw BadPlan{"cannot be read: " + Quoted(path.string())};
    return PlanInJson(text);
}

bool LooksLikePath(std::string_view text)
{
    return text.find('/') != std::string_view::npos || text.ends_with(".json");
}

FaultPlan Parsed(std::string_view text)
{
    const size_t start = std::min(text.find_first_not_of(" \t\r\n"), text.size());
    if (text.substr(start).starts_with('[') || text.substr(start).starts_with('{'))
        return PlanInJson(text);
    return LooksLikePath(text) ? PlanInFile(text) : PlanInShorthand(text);
}

} // namespace

FaultTarget TargetOf(Fault fault)
{
    return FactsOf(fault).target;
}

std::string_view NameOf(Fault fault)
{
    return FactsOf(fault).name;
}

std::optional<FaultPlan> ParseFaultPlan(std::string_view text, std::string *error)
{
    try {
        return Parsed(text);
    } catch (const BadPlan &bad) {
        if (error != nullptr)
            *error = bad.why;
        return std::nullopt;
    }
}

} // namespace vscsim
