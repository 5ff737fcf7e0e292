#include "serve/http/members.h"

#include <fmt/format.h>

#include <climits>
#include <cmath>

namespace vsctool::serve {
namespace {

using nlohmann::json;

constexpr double kLongestSeconds = 1e8;

json ObjectIn(const Request &request)
{
    // No page of another site can send this type without being asked first, and then it is refused.
    if (request.contentType.substr(0, request.contentType.find(';')) != "application/json")
        throw Refusal(415, "changes are asked for with Content-Type: application/json");
    json object = json::parse(request.body, nullptr, false);
    if (!object.is_object())
        throw Refusal(400, "the body is no JSON object");
    return object;
}

[[noreturn]] void Refuse(const char *name, const char *what)
{
    throw Refusal(400, fmt::format("'{}' is no {}", name, what));
}

} // namespace

Members::Members(const Request &request) : m_object(ObjectIn(request)) {}

std::optional<json> Members::Take(const char *name)
{
    const auto found = m_object.find(name);
    if (found == m_object.end())
        return std::nullopt;
    json value = std::move(*found);
    m_object.erase(found);
    return value;
}

std::optional<bool> Members::Flag(const char *name)
{
    const auto value = Take(name);
    if (value && !value->is_boolean())
        Refuse(name, "true or false");
    return value ? std::optional(value->get<bool>()) : std::nullopt;
}

std::optional<double> Members::Number(const char *name)
{
    const auto value = Take(name);
    if (value && !value->is_number())
        Refuse(name, "number");
    return value ? std::optional(value->get<double>()) : std::nullopt;
}

std::optional<int> Members::Whole(const char *name)
{
    const auto number = Number(name);
    if (number && (*number != std::floor(*number) || *number < INT_MIN || *number > INT_MAX))
        Refuse(name, "whole number");
    return number ? std::optional(static_cast<int>(*number)) : std::nullopt;
}

std::optional<std::string> Members::Text(const char *name)
{
    const auto value = Take(name);
    if (value && !value->is_string())
        Refuse(name, "text");
    return value ? std::optional(value->get<std::string>()) : std::nullopt;
}

std::optional<Microseconds> Members::Time(const char *name)
{
    const auto seconds = Number(name);
    if (seconds && !(*seconds >= 0 && *seconds <= kLongestSeconds))
        Refuse(name, "time in seconds");
    return seconds ? std::optional(Microseconds(std::llround(*seconds * 1e6))) : std::nullopt;
}

bool Members::Object(const char *name, std::optional<Members> &members)
{
    auto value = Take(name);
    if (value && !value->is_object() && !value->is_null())
        Refuse(name, "object");
    if (value && value->is_object())
        members.emplace(std::move(*value));
    return value.has_value();
}

void Members::End() const
{
    if (!m_object.empty())
        throw Refusal(400, fmt::format("there is no member '{}'", m_object.begin().key()));
}

} // namespace vsctool::serve
