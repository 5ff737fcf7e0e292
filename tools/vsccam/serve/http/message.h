#pragma once

#include <nlohmann/json_fwd.hpp>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace vsctool::serve {

/// Names and values, as they stand in a query or in a form.
using Parameters = std::vector<std::pair<std::string, std::string>>;

/// What a client asks for.
struct Request {
    std::string method;
    std::string path; // decoded
    Parameters query; // decoded
    // Headers; empty where there is none.
    std::string host;
    std::string origin;
    std::string contentType;
    std::string accept;
    std::string authorization;
    std::string body;
    std::vector<std::string> captured; // what stands for the names in the path of the route
};

/// Bytes that several answers may share.
using Body = std::shared_ptr<const std::string>;

struct Response {
    int status = 200;
    std::string contentType = "text/plain; charset=utf-8";
    Body body; // nothing: an empty one
    std::vector<std::pair<std::string, std::string>> headers;
};

Response JsonResponse(const nlohmann::ordered_json &json, int status = 200);
/// {"error": "a sentence"}
Response ErrorResponse(int status, const std::string &sentence);

/// An answer that is not there yet. A thread of the server asks for it at once, whenever something
/// has changed (Server::Wake), and for the last time when patience ends: what takes its time to be
/// made is made there, too.
struct Later {
    std::function<std::optional<Response>()> ask;
    std::chrono::milliseconds patience{10'000};
    std::function<Response()> tooLate{}; // the answer when patience has ended
};

/// An answer without an end, in parts. The next one is asked for, in the same way, when the one of
/// before was sent, however slow the client is. A part that is nothing but a null pointer ends it.
struct Stream {
    std::string contentType;
    std::function<std::optional<Body>()> next;
};

using Answer = std::variant<Response, Later, Stream>;

/// Ends the handling of a request: the client gets this status and a sentence.
class Refusal : public std::runtime_error {
  public:
    Refusal(int status, const std::string &message) : std::runtime_error(message), m_status(status)
    {
    }
    int Status() const { return m_status; }

  private:
    int m_status;
};

/// The value of a parameter; nothing when it is not there.
std::optional<std::string> Find(const Parameters &parameters, std::string_view name);

} // namespace vsctool::serve
