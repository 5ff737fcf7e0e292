#pragma once

#include <string>

namespace vscsim {

/// The device node that a program polls for finished transfers: a named pipe that is kept full
/// until there is one, so that POLLOUT tells of it and nobody has to ask over and over.
class PollLine {
  public:
    /// @param path  of the node to create; its folder exists
    explicit PollLine(const std::string &path);
    ~PollLine();
    PollLine(const PollLine &) = delete;
    PollLine &operator=(const PollLine &) = delete;

    bool Valid() const { return m_fd >= 0; }
    void Signal(bool on);

  private:
    int m_fd = -1;
    bool m_on = true; // an empty pipe can be written
};

} // namespace vscsim
