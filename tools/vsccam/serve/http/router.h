#pragma once

#include "serve/http/message.h"

#include <functional>
#include <string>
#include <vector>

namespace vsctool::serve {

using Handler = std::function<Answer(const Request &)>;

/// Which requests a handler answers: "GET" (and with it HEAD) or "PUT", and a path, in which
/// "{name}" stands for any one word.
struct Route {
    std::string method;
    std::string path;
    Handler handler;
};

/// A table of routes.
class Router {
  public:
    void Add(Route route) { m_routes.push_back(std::move(route)); }
    const std::vector<Route> &Routes() const { return m_routes; }

    /// Never throws: what goes wrong is an answer, too.
    Answer Handle(Request request) const;

  private:
    Answer Dispatch(Request &request) const;

    std::vector<Route> m_routes;
};

/// The answer to what a handler threw; to be called while it is being handled.
Response ResponseToException();

} // namespace vsctool::serve
