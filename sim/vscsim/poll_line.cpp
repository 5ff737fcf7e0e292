#include "vscsim/poll_line.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>

namespace vscsim {

PollLine::PollLine(const std::string &path)
{
    constexpr mode_t kForOwner = 0600;
    if (mkfifo(path.c_str(), kForOwner) != 0)
        return;
    m_fd = open(path.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK);
    // One page, which a single byte occupies.
    if (m_fd >= 0 && fcntl(m_fd, F_SETPIPE_SZ, static_cast<int>(sysconf(_SC_PAGESIZE))) > 0)
        Signal(false);
}

PollLine::~PollLine()
{
    if (m_fd >= 0)
        close(m_fd);
}

void PollLine::Signal(bool on)
{
    if (m_fd < 0 || on == m_on)
        return;
    char byte = 0;
    if ((on ? read(m_fd, &byte, 1) : write(m_fd, &byte, 1)) == 1)
        m_on = on;
}

} // namespace vscsim
