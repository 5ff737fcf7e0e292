#pragma once

#include "vscsim/urb_device.h"

#include <cstdint>
#include <optional>
#include <set>
#include <span>

namespace vscsim {

/// The memory of the program that uses a device. It may be touched only while a call of that
/// program is answered: at any other time the program may use, move or free it.
class ClientMemory {
  public:
    virtual bool Read(uintptr_t address, std::span<uint8_t> to) = 0;
    virtual bool Write(uintptr_t address, std::span<const uint8_t> from) = 0;

  protected:
    ~ClientMemory() = default;
};

/// A simulated camera behind the ioctl interface of the kernel's usbfs. Not thread-safe.
class UsbfsDevice {
  public:
    /// One open file of the device node; only its identity counts.
    using File = const void *;

    /// @param memoryLimit  bytes of transfers that may be in flight, as usbfs_memory_mb sets it
    UsbfsDevice(const ModelFacts &model, const CameraOptions &options, size_t memoryLimit);

    const Descriptors &Described() const { return m_device.Described(); }
    LinkSpeed Link() const { return m_device.TheCamera().Options().link; }

    void Open(File file) { m_files.insert(file); }

    /// Answers an ioctl: its result, or a negative error number.
    int Ioctl(File file, unsigned long request, uintptr_t argument, ClientMemory &memory, Time now);

    /// The file is closed: its transfers and its claim are gone.
    void Close(File file, Time now);

    /// Lets the waiting transfers go on.
    /// @return the time at which something can change by itself
    Time Advance(Time now) { return m_device.Advance(now); }

    /// Whether a finished transfer waits to be taken; what poll() tells the program as POLLOUT.
    bool Reapable() const { return m_device.HasFinished(); }

    /// Whether a program holds the interface.
    bool Claimed() const { return m_claimedBy != nullptr; }

    /// Whether the camera was unplugged, and whether its fault plan lets it come back.
    bool Gone() const { return m_device.Gone(); }
    std::optional<Return> ComesBack() const { return m_device.ComesBack(); }

    /// It is back as another device: to files that are open it stays gone.
    void PlugInAgain();

  private:
    struct Call {
        File file;
        uintptr_t argument;
        ClientMemory &memory;
        Time now;
    };
    struct Answer {
        unsigned long request;
        int (UsbfsDevice::*give)(const Call &);
        bool whenGone; // also after the camera was unplugged
    };
    int GetCapabilities(const Call &call);
    int GetSpeed(const Call &call);
    int GetDriver(const Call &call);
    int SetConfiguration(const Call &call);
    int Claim(const Call &call);
    int DisconnectAndClaim(const Call &call);
    int Release(const Call &call);
    int ClearHalt(const Call &call);
    int Reset(const Call &call);
    int Submit(const Call &call);
    int Discard(const Call &call);
    int Reap(const Call &call);
    static const Answer kAnswers[];

    bool GoneFor(File file) const { return Gone() || m_stale.contains(file); }
    int ClaimInterface(File file, unsigned number);
    static bool Deliver(const Urb &urb, ClientMemory &memory);

    UrbDevice m_device;
    File m_claimedBy = nullptr;
    std::set<File> m_files; // open
    std::set<File> m_stale; // of them, those of the device that it was before
};

} // namespace vscsim
