#pragma once

#include <cstdint>
#include <string>
#include <thread>
#include <vector>

namespace vsctool::serve {

/// Answers clients that look for Alpaca servers in the network: on the address that the server
/// listens on and, where that is all of them, to broadcasts and to the group of IPv6.
class Discovery {
  public:
    static constexpr uint16_t kPort = 32227;

    /// @param address  that the server listens on, at `serverPort`
    /// @param port     to listen on for clients; for tests another one
    /// What cannot be listened on is told by Trouble.
    Discovery(const std::string &address, uint16_t serverPort, uint16_t port = kPort);
    ~Discovery();
    Discovery(const Discovery &) = delete;
    Discovery &operator=(const Discovery &) = delete;

    /// Why nobody will be answered; empty: all is well.
    const std::string &Trouble() const { return m_trouble; }

  private:
    void Listen();

    const std::string m_answer;
    std::string m_trouble;
    std::vector<int> m_sockets;
    int m_end = -1;       // becomes readable when the thread is to end
    std::thread m_thread; // Listen; ended by m_end, joined by the destructor
};

} // namespace vsctool::serve
