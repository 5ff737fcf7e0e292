#pragma once

#include <libusb.h>
#include <unistd.h>

namespace vsccam {

/// A reference to libusb's default context. The context ends with the last reference in the
/// process, those of the host included; so do its thread, which waits for news of the bus, and its
/// descriptors.
class LibusbContext {
  public:
    LibusbContext() : m_held(libusb_init(nullptr) == 0), m_owner(getpid()) {}
    ~LibusbContext()
    {
        // A forked child does not have that thread. It has the pipe that ends it, though, and would
        // end its parent's thread.
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
