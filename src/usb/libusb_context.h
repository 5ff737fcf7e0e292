#pragma once

#include <libusb.h>
#include <unistd.h>

namespace vsccam {

/// A reference to libusb's default context. With the last one in the process, the host's own
/// included, the context ends: its thread, which waits for news of the bus, and its descriptors.
class LibusbContext {
  public:
    LibusbContext() : m_held(libusb_init(nullptr) == 0), m_owner(getpid()) {}
    ~LibusbContext()
    {
        // A forked child has no such thread, but the pipe by which its parent's would be ended.
        if (m_held && m_owner == getpid())
            libusb_exit(nullptr);
    }
    LibusbContext(const LibusbContext &) = delete;
    LibusbContext &operator=(const LibusbContext &) = delete;

    /// False: libusb must not be asked for anything.
    explicit operator bool() const { return m_held; }

  private:
    bool m_held;
    pid_t m_owner;
};

} // namespace vsccam
