#include "serve/http/message.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace vsctool::serve {

Response JsonResponse(const nlohmann::ordered_json &json, int status)
{
    // Names of files need not be UTF-8.
    using Json = nlohmann::ordered_json;
    return {.status = status,
            .contentType = "application/json",
            .body = std::make_shared<std::string>(
                json.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n'),
            .headers = {}};
}

Response ErrorResponse(int status, const std::string &sentence)
{
    return JsonResponse({{"error", sentence}}, status);
}

std::optional<std::string> Find(const Parameters &parameters, std::string_view name)
{
    const auto found =
        std::ranges::find_if(parameters, [&](const auto &entry) { return entry.first == name; });
    return found == parameters.end() ? std::nullopt : std::optional(found->second);
}

} // namespace vsctool::serve
