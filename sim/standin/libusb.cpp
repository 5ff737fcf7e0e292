// The libusb functions as a program sees them, over the simulated bus.

#include "standin/core.h"

#include <libusb.h>

#include <algorithm>
#include <array>
#include <iterator>

using namespace std::chrono_literals;
using vscsim::Core;
using vscsim::Time;

namespace {

// A call that fails, or finds nothing to do, takes this long: a program that only repeats such
// calls must not keep time from moving.
constexpr Time kIdleCallTime = 10us;
constexpr Time kControlTime = 100us; // of the requests that the kernel makes
constexpr Time kKernelPatience = 5s; // with a camera that does not answer them
constexpr Time kResetTime = 200ms;
constexpr Time kBootTime = 300ms; // until a controller that boots is on the bus again

thread_local int t_calls = 0; // that the thread is in

/// A call of a libusb function: numbered, and under the lock of the bus.
class Call {
  public:
    explicit Call(const char *function) : m_function(function), m_lock(m_core.AcquireInTurn())
    {
        ++t_calls;
        m_core.CatchUp();
        const auto begun = m_core.calls.Begin(function);
        m_failure = begun.failure;
        for (const int device : begun.unplug)
            m_core.Detach(device);
    }

    Call(const Call &) = delete;
    Call &operator=(const Call &) = delete;
    ~Call() { --t_calls; }

    Core *operator->() { return &m_core; }
    Core::Lock &Lock() { return m_lock; }
    const char *Function() const { return m_function; }

    /// The code with which the call is to fail, 0 to go on.
    int Failure(unsigned int timeoutMs = 0)
    {
        if (m_failure != 0)
            Sleep(m_failure == LIBUSB_ERROR_TIMEOUT ? Time(1ms) * timeoutMs : kIdleCallTime);
        return m_failure;
    }

    void Sleep(Time time) { m_core.Sleep(m_lock, time, m_function); }

    template <class Object> Object *Known(Object *object)
    {
        return m_core.Known(object, m_function);
    }

    void Misuse(const char *text) { m_core.Misuse(m_function, text); }

    /// The device of a handle while it is on the bus.
    vscsim::Device *Attached(libusb_device_handle *handle)
    {
        handle = Known(handle);
        return handle && handle->device->attached ? &m_core.DeviceOf(*handle->device) : nullptr;
    }

  private:
    Core &m_core = Core::Instance();
    const char *m_function;
    Core::Lock m_lock;
    int m_failure = 0;
};

struct ErrorText {
    int code;
    const char *name;
    const char *text;
};

constexpr ErrorText kErrors[] = {
    {LIBUSB_SUCCESS, "LIBUSB_SUCCESS", "Success"},
    {LIBUSB_ERROR_IO, "LIBUSB_ERROR_IO", "Input/Output Error"},
    {LIBUSB_ERROR_INVALID_PARAM, "LIBUSB_ERROR_INVALID_PARAM", "Invalid parameter"},
    {LIBUSB_ERROR_ACCESS, "LIBUSB_ERROR_ACCESS", "Access denied (insufficient permissions)"},
    {LIBUSB_ERROR_NO_DEVICE, "LIBUSB_ERROR_NO_DEVICE",
     "No such device (it may have been disconnected)"},
    {LIBUSB_ERROR_NOT_FOUND, "LIBUSB_ERROR_NOT_FOUND", "Entity not found"},
    {LIBUSB_ERROR_BUSY, "LIBUSB_ERROR_BUSY", "Resource busy"},
    {LIBUSB_ERROR_TIMEOUT, "LIBUSB_ERROR_TIMEOUT", "Operation timed out"},
    {LIBUSB_ERROR_OVERFLOW, "LIBUSB_ERROR_OVERFLOW", "Overflow"},
    {LIBUSB_ERROR_PIPE, "LIBUSB_ERROR_PIPE", "Pipe error"},
    {LIBUSB_ERROR_INTERRUPTED, "LIBUSB_ERROR_INTERRUPTED",
     "System call interrupted (perhaps due to signal)"},
    {LIBUSB_ERROR_NO_MEM, "LIBUSB_ERROR_NO_MEM", "Insufficient memory"},
    {LIBUSB_ERROR_NOT_SUPPORTED, "LIBUSB_ERROR_NOT_SUPPORTED",
     "Operation not supported or unimplemented on this platform"},
};

const ErrorText &FindError(int code)
{
    static constexpr ErrorText kOther = {LIBUSB_ERROR_OTHER, "LIBUSB_ERROR_OTHER", "Other error"};
    static constexpr ErrorText kUnknown = {0, "**UNKNOWN**", "Unknown error"};
    const auto *found = std::ranges::find(kErrors, code, &ErrorText::code);
    if (found != std::end(kErrors))
        return *found;
    return code == LIBUSB_ERROR_OTHER ? kOther : kUnknown;
}

/// A call on a device that is open and on the bus, which takes `time`.
template <class Body>
int OnAttached(const char *function, libusb_device_handle *handle, Time time, Body body)
{
    Call call(function);
    if (const int failure = call.Failure(); failure != 0)
        return failure;
    if (time != Time::zero())
        call.Sleep(time);
    vscsim::Device *device = call.Attached(handle);
    return device ? body(call, *device) : LIBUSB_ERROR_NO_DEVICE;
}

Time Duration(const timeval &time)
{
    return std::chrono::seconds(time.tv_sec) + std::chrono::microseconds(time.tv_usec);
}

int HandleEvents(const char *function, timeval *time, int *completed)
{
    Call call(function);
    if (const int failure = call.Failure(); failure != 0)
        return failure;
    if (call->contextReferences == 0) {
        call.Misuse("libusb is not initialised");
        return LIBUSB_ERROR_OTHER;
    }
    const Time deadline = call->Now() + std::max(Duration(*time), kIdleCallTime);
    return call->HandleEvents(
        call.Lock(), deadline,
        [completed] { return completed && __atomic_load_n(completed, __ATOMIC_ACQUIRE) != 0; },
        function);
}

} // namespace

bool vscsim::Bus::InCall()
{
    return t_calls > 0;
}

// --- Library -------------------------------------------------------------------------

int libusb_init(libusb_context **context)
{
    Call call(__func__);
    if (const int failure = call.Failure(); failure != 0)
        return failure;
    ++call->contextReferences;
    if (context)
        *context = nullptr; // there is only the default context here
    return LIBUSB_SUCCESS;
}

void libusb_exit(libusb_context * /*context*/)
{
    Call call(__func__);
    if (call->contextReferences == 0)
        call.Misuse("libusb is not initialised");
    else
        --call->contextReferences;
    if (call->contextReferences == 0 && call->LiveObjects().handles > 0)
        call.Misuse("a device is still open");
}

int libusb_set_option(libusb_context * /*context*/, libusb_option /*option*/, ...)
{
    return Call(__func__).Failure();
}

const char *libusb_error_name(int code)
{
    return FindError(code).name;
}

const char *libusb_strerror(int code)
{
    return FindError(code).text;
}

const libusb_version *libusb_get_version()
{
    static constexpr libusb_version kVersion = {1, 0, 26, 0, "", "simulated"};
    return &kVersion;
}

// --- Devices -------------------------------------------------------------------------

ssize_t libusb_get_device_list(libusb_context * /*context*/, libusb_device ***list)
{
    Call call(__func__);
    if (const int failure = call.Failure(); failure != 0)
        return failure;
    if (call->contextReferences == 0) {
        call.Misuse("libusb is not initialised");
        return LIBUSB_ERROR_OTHER;
    }
    const auto &devices = call->AttachedDevices();
    auto **copy = new libusb_device *[devices.size() + 1];
    *std::ranges::copy(devices, copy).out = nullptr;
    for (libusb_device *device : devices)
        ++device->references;
    call->deviceLists.insert(copy);
    *list = copy;
    return static_cast<ssize_t>(devices.size());
}

void libusb_free_device_list(libusb_device **list, int unreference)
{
    Call call(__func__);
    if (!list)
        return;
    if (call->deviceLists.erase(list) == 0) {
        call.Misuse("no such list");
        return;
    }
    for (libusb_device **device = list; unreference != 0 && *device; ++device)
        call->Unreference(*device, call.Function());
    delete[] list;
}

libusb_device *libusb_ref_device(libusb_device *device)
{
    Call call(__func__);
    if (call.Known(device))
        ++device->references;
    return device;
}

void libusb_unref_device(libusb_device *device)
{
    Call call(__func__);
    if (device)
        call->Unreference(device, call.Function());
}

int libusb_get_device_descriptor(libusb_device *device, libusb_device_descriptor *descriptor)
{
    Call call(__func__);
    if (const int failure = call.Failure(); failure != 0)
        return failure;
    if (!call.Known(device))
        return LIBUSB_ERROR_INVALID_PARAM;
    if (!device->readableDescriptor)
        return LIBUSB_ERROR_IO;
    *descriptor = device->descriptor;
    return LIBUSB_SUCCESS;
}

uint8_t libusb_get_bus_number(libusb_device *device)
{
    Call call(__func__);
    if (!call.Known(device))
        return 0;
    return device->speed == LIBUSB_SPEED_SUPER ? 2 : 1; // a root hub of either speed
}

uint8_t libusb_get_device_address(libusb_device *device)
{
    Call call(__func__);
    return call.Known(device) ? device->address : 0;
}

int libusb_get_port_numbers(libusb_device *device, uint8_t *ports, int capacity)
{
    Call call(__func__);
    if (const int failure = call.Failure(); failure != 0)
        return failure;
    if (!call.Known(device) || capacity <= 0)
        return LIBUSB_ERROR_INVALID_PARAM;
    if (device->ports.size() > static_cast<size_t>(capacity))
        return LIBUSB_ERROR_OVERFLOW;
    // Fills the buffer from its end, as the real one does, and leaves there what is behind the
    // ports.
    std::ranges::copy_backward(device->ports, ports + capacity);
    std::ranges::copy(device->ports, ports);
    return static_cast<int>(device->ports.size());
}

int libusb_get_device_speed(libusb_device *device)
{
    Call call(__func__);
    return call.Known(device) ? device->speed : LIBUSB_SPEED_UNKNOWN;
}

int libusb_open(libusb_device *device, libusb_device_handle **handle)
{
    Call call(__func__);
    if (const int failure = call.Failure(); failure != 0)
        return failure;
    if (!call.Known(device) || !device->attached)
        return LIBUSB_ERROR_NO_DEVICE;
    *handle = call->Open(*device);
    call->DeviceOf(*device).traffic.emplace_back("open");
    return LIBUSB_SUCCESS;
}

void libusb_close(libusb_device_handle *handle)
{
    Call call(__func__);
    if (!handle || !call.Known(handle))
        return;
    if (vscsim::Device *device = call.Attached(handle))
        device->traffic.emplace_back("close");
    call->Close(call.Lock(), handle);
}

libusb_device *libusb_get_device(libusb_device_handle *handle)
{
    Call call(__func__);
    return call.Known(handle) ? handle->device : nullptr;
}

int libusb_set_configuration(libusb_device_handle *handle, int configuration)
{
    return OnAttached(__func__, handle, kControlTime, [=](Call &call, vscsim::Device &device) {
        if (call->ClaimedBySomeone(*handle->device))
            return LIBUSB_ERROR_BUSY;
        if (configuration != 1)
            return LIBUSB_ERROR_NOT_FOUND;
        device.traffic.emplace_back("configuration 1");
        return LIBUSB_SUCCESS;
    });
}

int libusb_claim_interface(libusb_device_handle *handle, int number)
{
    return OnAttached(__func__, handle, Time::zero(), [=](Call &call, vscsim::Device &device) {
        if (number != 0)
            return LIBUSB_ERROR_NOT_FOUND;
        if (handle->claimed)
            return LIBUSB_SUCCESS;
        if (call->ClaimedBySomeone(*handle->device))
            return LIBUSB_ERROR_BUSY;
        handle->claimed = true;
        device.traffic.emplace_back("claim 0");
        return LIBUSB_SUCCESS;
    });
}

int libusb_release_interface(libusb_device_handle *handle, int number)
{
    return OnAttached(__func__, handle, Time::zero(), [=](Call &, vscsim::Device &device) {
        if (number != 0 || !handle->claimed)
            return LIBUSB_ERROR_NOT_FOUND;
        handle->claimed = false;
        device.traffic.emplace_back("release 0");
        return LIBUSB_SUCCESS;
    });
}

int libusb_clear_halt(libusb_device_handle *handle, unsigned char endpoint)
{
    return OnAttached(__func__, handle, kControlTime, [=](Call &call, vscsim::Device &device) {
        if (call->HasQueued(*handle->device, endpoint))
            call.Misuse("transfers are queued");
        if (device.IsMute()) {
            call.Sleep(kKernelPatience);
            return LIBUSB_ERROR_OTHER; // libusb has no name for this time-out
        }
        std::array<char, 16> line{};
        (void)std::snprintf(line.data(), line.size(), "clear halt %02X", endpoint);
        device.traffic.emplace_back(line.data());
        device.ClearHalt(endpoint, call->Now());
        return LIBUSB_SUCCESS;
    });
}

int libusb_reset_device(libusb_device_handle *handle)
{
    return OnAttached(__func__, handle, kResetTime, [=](Call &call, vscsim::Device &device) {
        if (call->HasQueued(*handle->device))
            call.Misuse("transfers are queued");
        call->CompleteAll(*handle->device, LIBUSB_TRANSFER_NO_DEVICE); // the kernel kills them
        device.traffic.emplace_back("reset");
        const vscsim::AfterReset after = device.Reset(call->Now());
        if (after == vscsim::AfterReset::SameDevice)
            return LIBUSB_SUCCESS;
        const int number = handle->device->number;
        call->Detach(number); // this handle is dead
        if (after == vscsim::AfterReset::NewDevice)
            call->AttachAnew(number, call->Now() + kBootTime);
        return LIBUSB_ERROR_NOT_FOUND;
    });
}

// --- Transfers -----------------------------------------------------------------------

libusb_transfer *libusb_alloc_transfer(int isoPackets)
{
    Call call(__func__);
    return call.Failure() != 0 ? nullptr : call->Allocate(isoPackets);
}

void libusb_free_transfer(libusb_transfer *transfer)
{
    Call call(__func__);
    if (transfer)
        call->Free(transfer);
}

int libusb_submit_transfer(libusb_transfer *transfer)
{
    Call call(__func__);
    const int failure = call.Failure();
    return failure != 0 ? failure : call->Submit(transfer);
}

int libusb_cancel_transfer(libusb_transfer *transfer)
{
    Call call(__func__);
    const int failure = call.Failure();
    return failure != 0 ? failure : call->Cancel(transfer);
}

int libusb_control_transfer(libusb_device_handle *handle, uint8_t requestType, uint8_t request,
                            uint16_t value, uint16_t index, unsigned char *data, uint16_t length,
                            unsigned int timeout)
{
    Call call(__func__);
    if (const int failure = call.Failure(timeout); failure != 0)
        return failure;
    std::vector<uint8_t> buffer(LIBUSB_CONTROL_SETUP_SIZE + length);
    libusb_fill_control_setup(buffer.data(), requestType, request, value, index, length);
    const bool in = (requestType & LIBUSB_ENDPOINT_IN) != 0;
    const auto stage = buffer.begin() + LIBUSB_CONTROL_SETUP_SIZE;
    if (!in)
        std::copy_n(data, length, stage);
    libusb_transfer transfer{};
    libusb_fill_control_transfer(&transfer, handle, buffer.data(), nullptr, nullptr, timeout);
    const int result = call->RunSynchronously(call.Lock(), transfer, call.Function());
    if (result != LIBUSB_SUCCESS)
        return result;
    if (in)
        std::copy_n(stage, transfer.actual_length, data);
    return transfer.actual_length;
}

int libusb_bulk_transfer(libusb_device_handle *handle, unsigned char endpoint, unsigned char *data,
                         int length, int *transferred, unsigned int timeout)
{
    Call call(__func__);
    if (const int failure = call.Failure(timeout); failure != 0)
        return failure;
    libusb_transfer transfer{};
    libusb_fill_bulk_transfer(&transfer, handle, endpoint, data, length, nullptr, nullptr, timeout);
    const int result = call->RunSynchronously(call.Lock(), transfer, call.Function());
    if (transferred)
        *transferred = transfer.actual_length; // also of a transfer that failed
    return result;
}

int libusb_handle_events_timeout(libusb_context * /*context*/, timeval *time)
{
    return HandleEvents(__func__, time, nullptr);
}

int libusb_handle_events_timeout_completed(libusb_context * /*context*/, timeval *time,
                                           int *completed)
{
    return HandleEvents(__func__, time, completed);
}

void libusb_interrupt_event_handler(libusb_context * /*context*/)
{
    Call call(__func__);
    call->InterruptEventHandler();
}
