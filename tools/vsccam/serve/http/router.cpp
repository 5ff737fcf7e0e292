#include "serve/http/router.h"

#include "failure.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <optional>

namespace vsctool::serve {
namespace {

/// The next word of a path, which is cut off.
std::string_view TakeWord(std::string_view &path)
{
    path.remove_prefix(1); // the slash
    const std::string_view word = path.substr(0, path.find('/'));
    path.remove_prefix(word.size());
    return word;
}

/// What stands for the names of the pattern; nothing when the path is another one.
std::optional<std::vector<std::string>> Match(std::string_view pattern, std::string_view path)
{
    std::vector<std::string> captured;
    while (!pattern.empty() && !path.empty()) {
        const std::string_view wanted = TakeWord(pattern);
        const std::string_view word = TakeWord(path);
        if (wanted.starts_with('{') && !word.empty())
            captured.emplace_back(word);
        else if (wanted != word)
            return std::nullopt;
    }
    return pattern.empty() && path.empty() ? std::optional(captured) : std::nullopt;
}

int StatusOf(const Failure &failure)
{
    switch (static_cast<Exit>(failure.Code())) {
    case Exit::kUsage:
        return 400;
    case Exit::kNotSupported:
        return 404;
    case Exit::kBusy:
    case Exit::kFile:
        return 409;
    case Exit::kCameraLost:
    case Exit::kNoCamera:
    case Exit::kNoFrame:
        return 503;
    default:
        return 500;
    }
}

} // namespace

Response ResponseToException()
{
    try {
        throw;
    } catch (const Refusal &refusal) {
        return ErrorResponse(refusal.Status(), refusal.what());
    } catch (const Failure &failure) {
        return ErrorResponse(StatusOf(failure), failure.what());
    } catch (const nlohmann::json::exception &error) {
        return ErrorResponse(400, error.what());
    } catch (const std::exception &error) {
        return ErrorResponse(500, error.what());
    }
}

Answer Router::Handle(Request request) const
{
    try {
        return Dispatch(request);
    } catch (const std::exception &) {
        return ResponseToException();
    }
}

Answer Router::Dispatch(Request &request) const
{
    if (!request.path.starts_with('/'))
        throw Refusal(400, "a path begins with a slash");
    const std::string method = request.method == "HEAD" ? "GET" : request.method;
    std::string allowed;
    for (const Route &route : m_routes) {
        auto captured = Match(route.path, request.path);
        if (!captured)
            continue;
        if (route.method == method) {
            request.captured = std::move(*captured);
            return route.handler(request);
        }
        allowed += (allowed.empty() ? "" : ", ") + route.method;
    }
    if (allowed.empty())
        throw Refusal(404, fmt::format("there is nothing at {}", request.path));
    Response refused = ErrorResponse(405, fmt::format("{} takes {}", request.path, allowed));
    refused.headers.emplace_back("Allow", allowed);
    return refused;
}

} // namespace vsctool::serve
