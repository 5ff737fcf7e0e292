#pragma once

#include "serve/http/message.h"

#include <cstdint>
#include <memory>
#include <string>

namespace vsctool::serve {

/// An HTTP server: one thread speaks with all clients, and a few more make what takes its time.
/// What clients can do to it is limited: connections, headers, bodies, and the time that they keep
/// silent.
class Server {
  public:
    /// Answers a request; called by the thread that speaks with the clients, so it must not wait.
    using Handler = std::function<Answer(Request)>;

    /// @param port  0: a free one
    /// Throws Failure when nobody can listen there.
    Server(const std::string &address, uint16_t port, Handler handler);
    /// Answers whoever waits that the server ends.
    ~Server();
    Server(const Server &) = delete;
    Server &operator=(const Server &) = delete;

    uint16_t Port() const;

    /// Something has changed that answers may wait for; of any thread.
    void Wake();

  private:
    class Implementation;
    std::unique_ptr<Implementation> m_implementation;
};

} // namespace vsctool::serve
