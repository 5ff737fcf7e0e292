#pragma once

#include "serve/http/message.h"
#include "units.h"

#include <nlohmann/json.hpp>

#include <optional>
#include <string>

namespace vsctool::serve {

/// The members of the JSON object that a request brings. Each is taken as what it has to be; what
/// is wrong, and what is left over in the end, is refused.
class Members {
  public:
    explicit Members(const Request &request);
    explicit Members(nlohmann::json object) : m_object(std::move(object)) {}

    std::optional<bool> Flag(const char *name);
    std::optional<int> Whole(const char *name);
    std::optional<double> Number(const char *name);
    std::optional<std::string> Text(const char *name);
    /// Of seconds, not negative.
    std::optional<Microseconds> Time(const char *name);
    /// An object, or null; @return whether the member is there
    bool Object(const char *name, std::optional<Members> &members);

    /// Refuses what was not taken.
    void End() const;

  private:
    std::optional<nlohmann::json> Take(const char *name);

    nlohmann::json m_object;
};

/// Refuses a request that lacks a member.
template <class Value> Value Required(std::optional<Value> value, const char *name)
{
    if (!value)
        throw Refusal(400, std::string("'") + name + "' is missing");
    return *value;
}

} // namespace vsctool::serve
