#include "standin/core.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace vscsim {

using namespace std::chrono_literals;

namespace {

// What the kernel charges for a transfer besides its buffer: 15 transfers of 1 MiB fit into 16 MiB.
constexpr size_t kTransferOverhead = 512;
constexpr uint8_t kHighestAddress = 127;

/// One of `choices`, well mixed, for the n-th decision (splitmix64).
size_t Draw(uint64_t seed, uint64_t n, size_t choices)
{
    uint64_t x = seed + (n + 1) * 0x9E3779B97F4A7C15U;
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9U;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EBU;
    return static_cast<size_t>((x ^ (x >> 31)) % choices);
}

/// Ports that no other device is plugged into, as long as the hubs suffice.
Ports OwnPorts(int number)
{
    constexpr int kPortsOfAHub = 100;
    const auto port = static_cast<uint8_t>(number % kPortsOfAHub + 1);
    return number < kPortsOfAHub
               ? Ports{port}
               : Ports{static_cast<uint8_t>(kPortsOfAHub + number / kPortsOfAHub), port};
}

/// What a blocking transfer returns.
int ErrorCode(libusb_transfer_status status)
{
    switch (status) {
    case LIBUSB_TRANSFER_COMPLETED:
        return LIBUSB_SUCCESS;
    case LIBUSB_TRANSFER_TIMED_OUT:
        return LIBUSB_ERROR_TIMEOUT;
    case LIBUSB_TRANSFER_STALL:
        return LIBUSB_ERROR_PIPE;
    case LIBUSB_TRANSFER_OVERFLOW:
        return LIBUSB_ERROR_OVERFLOW;
    case LIBUSB_TRANSFER_NO_DEVICE:
        return LIBUSB_ERROR_NO_DEVICE;
    case LIBUSB_TRANSFER_ERROR:
    case LIBUSB_TRANSFER_CANCELLED:
        break;
    }
    return LIBUSB_ERROR_IO;
}

/// The other way round.
libusb_transfer_status StatusOf(int code)
{
    switch (code) {
    case LIBUSB_ERROR_PIPE:
        return LIBUSB_TRANSFER_STALL;
    case LIBUSB_ERROR_OVERFLOW:
        return LIBUSB_TRANSFER_OVERFLOW;
    case LIBUSB_ERROR_NO_DEVICE:
        return LIBUSB_TRANSFER_NO_DEVICE;
    default:
        return LIBUSB_TRANSFER_ERROR;
    }
}

bool IsBulk(const libusb_transfer &usb)
{
    return usb.type == LIBUSB_TRANSFER_TYPE_BULK;
}

template <class Owners, class Object> bool Owns(const Owners &owners, const Object *object)
{
    return std::ranges::any_of(owners, [object](auto &owner) { return owner.get() == object; });
}

} // namespace

Core &Core::Instance()
{
    static Core *const core = new Core; // never destroyed: programs call libusb until their end
    return *core;
}

void Core::Misuse(const char *function, const char *text)
{
    misuse.push_back(std::string(function) + ": " + text);
}

// --- Time ----------------------------------------------------------------------------

void Core::WaitUntil(Lock &lock, Time deadline, const char *what)
{
    BusClock *const clock = m_clock;
    const uint64_t seen = clock->WakeCount();
    lock.unlock();
    clock->WaitForWake(seen, deadline, what);
    lock.lock();
}

void Core::Sleep(Lock &lock, Time time, const char *what)
{
    const Time deadline = Now() + time;
    while (Now() < deadline)
        WaitUntil(lock, deadline, what);
    CatchUp();
}

Time Core::NextEvent() const
{
    Time next = kNever;
    for (const libusb_device *device : m_attached)
        next = std::min(next, m_slots[static_cast<size_t>(device->number)]->device.NextEvent());
    for (const auto &slot : m_slots)
        next = std::min({next, slot->leavesAt, slot->returnsAt});
    for (const Transfer *transfer : m_pending)
        next = std::min(next, transfer->endsAt);
    return next;
}

void Core::CatchUp()
{
    const Time now = Now();
    for (Time next = NextEvent(); next <= now; next = NextEvent())
        Process(std::max(next, m_caughtUp));
    m_caughtUp = now;
}

void Core::Process(Time at)
{
    m_caughtUp = at;
    for (size_t number = 0; number < m_slots.size(); ++number) {
        if (m_slots[number]->leavesAt <= at)
            Detach(static_cast<int>(number));
        if (m_slots[number]->returnsAt <= at)
            Attach(static_cast<int>(number));
    }
    std::vector<Transfer *> done;
    for (const libusb_device *device : std::vector(m_attached)) {
        done.clear();
        DeviceOf(*device).Serve(at, done);
        bool gone = false;
        for (Transfer *transfer : done) {
            Complete(*transfer, transfer->status);
            gone = gone || transfer->status == LIBUSB_TRANSFER_NO_DEVICE;
        }
        if (gone)
            Leave(device->number);
    }
    for (Transfer *transfer : std::vector(m_pending)) {
        if (transfer->endsAt > at)
            continue;
        if (transfer->state == Transfer::State::Queued) {
            TakeBack(*transfer, LIBUSB_TRANSFER_TIMED_OUT, Time(0));
            continue;
        }
        std::ranges::copy(transfer->received, transfer->usb->buffer);
        Complete(*transfer, transfer->status);
    }
}

// --- The bus -------------------------------------------------------------------------

void Core::Reset(uint64_t seed)
{
    while (!m_attached.empty())
        Detach(m_attached.back()->number);
    m_slots.clear();
    for (libusb_device **list : deviceLists) { // that a test left on purpose
        for (libusb_device **device = list; *device; ++device)
            --(*device)->references;
        delete[] list;
    }
    deviceLists.clear();
    std::erase_if(m_devices, [](auto &device) { return device->references == 0; });
    m_lastAddress = 0;
    m_seed = seed;
    m_dispatched = 0;
    m_interrupted = false;
    m_caughtUp = Time(0);
    calls = {};
    misuse.clear();
    usbfsLimit = 0;
    cancelDelay = Time(0);
}

int Core::Plug(Device device, Ports ports)
{
    const int number = static_cast<int>(m_slots.size());
    if (ports.empty())
        ports = OwnPorts(number);
    m_slots.push_back(std::make_unique<Slot>(Slot{std::move(device), std::move(ports)}));
    Attach(number);
    return number;
}

void Core::Attach(int number)
{
    Slot &slot = *m_slots.at(static_cast<size_t>(number));
    slot.returnsAt = kNever;
    if (slot.attached)
        return;
    auto device = std::make_unique<libusb_device>(slot.device.Describe());
    device->number = number;
    device->ports = slot.ports;
    device->address = m_lastAddress = static_cast<uint8_t>(m_lastAddress % kHighestAddress + 1);
    slot.attached = device.get();
    m_attached.push_back(device.get());
    m_devices.push_back(std::move(device));
}

void Core::Detach(int number)
{
    Slot &slot = *m_slots.at(static_cast<size_t>(number));
    slot.leavesAt = slot.returnsAt = kNever;
    if (!slot.attached)
        return;
    slot.leftAt = m_caughtUp;
    libusb_device &device = *std::exchange(slot.attached, nullptr);
    CompleteAll(device, LIBUSB_TRANSFER_NO_DEVICE);
    device.attached = false;
    --device.references;
    std::erase(m_attached, &device);
    for (auto &handle : m_handles) {
        if (handle->device == &device)
            handle->claimed = false;
    }
}

/// A fault of its plan takes a camera away, and may bring it back.
void Core::Leave(int number)
{
    Detach(number);
    Slot &slot = *m_slots.at(static_cast<size_t>(number));
    const auto back = slot.device.PlugInAgain();
    if (!back)
        return;
    slot.returnsAt = m_caughtUp + back->after;
    constexpr size_t kDeepest = 5;
    if (back->elsewhere && slot.ports.size() < kDeepest)
        slot.ports.push_back(1); // of a hub that was put in between
    else if (back->elsewhere)
        slot.ports.resize(1);
}

void Core::DetachAt(int number, Time at)
{
    m_slots.at(static_cast<size_t>(number))->leavesAt = at;
    Changed();
}

std::optional<Time> Core::AwayFor(int number)
{
    const Slot &slot = *m_slots.at(static_cast<size_t>(number));
    return slot.attached ? std::nullopt : std::optional(Now() - slot.leftAt);
}

void Core::Replug(int number, const Place &place)
{
    Detach(number);
    if (!place.ports.empty())
        m_slots.at(static_cast<size_t>(number))->ports = place.ports;
    DeviceOf(number).PowerCycle(place.link);
    Attach(number);
}

void Core::AttachAnew(int number, Time at)
{
    Slot &slot = *m_slots.at(static_cast<size_t>(number));
    slot.device.PowerCycle();
    slot.returnsAt = at;
}

// --- libusb's objects ----------------------------------------------------------------

libusb_device *Core::Known(libusb_device *device, const char *function)
{
    if (device && Owns(m_devices, device) && device->references > 0)
        return device;
    Misuse(function, "no such device object");
    return nullptr;
}

libusb_device_handle *Core::Known(libusb_device_handle *handle, const char *function)
{
    if (handle && Owns(m_handles, handle))
        return handle;
    Misuse(function, "no such open device");
    return nullptr;
}

void Core::Unreference(libusb_device *device, const char *function)
{
    if (!Known(device, function))
        return;
    if (device->references - (device->attached ? 1 : 0) == 0)
        Misuse(function, "the program holds no reference");
    else
        --device->references;
}

libusb_device_handle *Core::Open(libusb_device &device)
{
    ++device.references;
    m_handles.push_back(
        std::make_unique<libusb_device_handle>(libusb_device_handle{.device = &device}));
    return m_handles.back().get();
}

/// Transfers that are still in flight are given up, as libusb does: they never complete, and may be
/// freed. Callbacks that run already come to their end first.
void Core::Close(Lock &lock, libusb_device_handle *handle)
{
    while (m_dispatcher != std::thread::id() && !InsideCallback())
        WaitUntil(lock, kNever, "libusb_close, for the end of a callback");
    std::vector<Transfer *> inFlight = m_pending;
    inFlight.insert(inFlight.end(), m_completed.begin(), m_completed.end());
    for (Transfer *transfer : inFlight) {
        if (transfer->usb->dev_handle != handle)
            continue;
        if (!transfer->synchronous) {
            Forget(*transfer);
            transfer->usb->dev_handle = nullptr;
            continue;
        }
        Misuse("libusb_close", "another thread is in a call with this device");
        if (transfer->state == Transfer::State::Queued)
            TakeBack(*transfer, LIBUSB_TRANSFER_NO_DEVICE, Time(0));
    }
    --handle->device->references;
    std::erase_if(m_handles, [handle](auto &owner) { return owner.get() == handle; });
}

bool Core::ClaimedBySomeone(const libusb_device &device) const
{
    return std::ranges::any_of(m_handles, [&device](auto &handle) {
        return handle->device == &device && handle->claimed;
    });
}

Bus::Objects Core::LiveObjects() const
{
    Bus::Objects objects;
    objects.contextReferences = contextReferences;
    objects.deviceLists = static_cast<int>(deviceLists.size());
    for (const auto &device : m_devices)
        objects.deviceReferences += device->references - (device->attached ? 1 : 0);
    objects.handles = static_cast<int>(m_handles.size());
    objects.claimedInterfaces = static_cast<int>(
        std::ranges::count_if(m_handles, [](auto &handle) { return handle->claimed; }));
    objects.transfers = static_cast<int>(m_transfers.size());
    objects.transfersInFlight = static_cast<int>(
        std::ranges::count_if(m_transfers, [](auto &entry) { return entry.second.InFlight(); }));
    return objects;
}

// --- Transfers -----------------------------------------------------------------------

libusb_transfer *Core::Allocate(int isoPackets)
{
    const size_t packets = static_cast<size_t>(std::max(isoPackets, 0));
    void *memory =
        std::calloc(1, sizeof(libusb_transfer) + packets * sizeof(libusb_iso_packet_descriptor));
    auto *usb = static_cast<libusb_transfer *>(memory);
    if (usb)
        m_transfers[usb].usb = usb;
    return usb;
}

Transfer *Core::Find(libusb_transfer *usb, const char *function)
{
    const auto found = m_transfers.find(usb);
    if (found != m_transfers.end())
        return &found->second;
    Misuse(function, "no such transfer");
    return nullptr;
}

void Core::Free(libusb_transfer *usb)
{
    Transfer *transfer = Find(usb, "libusb_free_transfer");
    if (!transfer)
        return;
    if (transfer->InFlight()) {
        Misuse("libusb_free_transfer", "the transfer is in flight");
        Forget(*transfer);
    }
    if ((usb->flags & LIBUSB_TRANSFER_FREE_BUFFER) != 0)
        std::free(usb->buffer);
    m_transfers.erase(usb);
    std::free(usb);
}

int Core::Submit(libusb_transfer *usb)
{
    Transfer *transfer = Find(usb, "libusb_submit_transfer");
    if (!transfer)
        return LIBUSB_ERROR_INVALID_PARAM;
    if (transfer->InFlight()) {
        Misuse("libusb_submit_transfer", "the transfer is in flight");
        return LIBUSB_ERROR_BUSY;
    }
    return Start(*transfer);
}

int Core::Start(Transfer &transfer)
{
    libusb_transfer &usb = *transfer.usb;
    libusb_device_handle *handle = Known(usb.dev_handle, "submission of a transfer");
    if (!handle || !handle->device->attached)
        return LIBUSB_ERROR_NO_DEVICE;
    if (IsBulk(usb)) {
        if ((usb.endpoint & LIBUSB_ENDPOINT_IN) == 0)
            return LIBUSB_ERROR_IO; // no device here has such an endpoint
        if (!handle->claimed)
            Misuse("bulk transfer", "the interface is not claimed");
        const size_t memory = static_cast<size_t>(usb.length) + kTransferOverhead;
        if (usbfsLimit != 0 && UsbfsMemoryInUse() + memory > usbfsLimit)
            return LIBUSB_ERROR_NO_MEM;
    } else if (usb.type != LIBUSB_TRANSFER_TYPE_CONTROL) {
        return LIBUSB_ERROR_NOT_SUPPORTED;
    }
    transfer.device = handle->device;
    transfer.state = Transfer::State::Queued;
    transfer.filled = 0;
    transfer.received.clear();
    transfer.endsAt = usb.timeout == 0 ? kNever : Now() + usb.timeout * Time(1ms);
    m_pending.push_back(&transfer);
    DeviceOf(*transfer.device).Queue(transfer, Now());
    Changed(); // whoever handles events has an earlier one to wait for
    return LIBUSB_SUCCESS;
}

size_t Core::UsbfsMemoryInUse() const
{
    size_t bytes = 0;
    const auto add = [&bytes](const Transfer *transfer) {
        if (IsBulk(*transfer->usb))
            bytes += static_cast<size_t>(transfer->usb->length) + kTransferOverhead;
    };
    std::ranges::for_each(m_pending, add);
    std::ranges::for_each(m_completed, add);
    return bytes;
}

int Core::Cancel(libusb_transfer *usb)
{
    Transfer *transfer = Find(usb, "libusb_cancel_transfer");
    if (!transfer || transfer->state != Transfer::State::Queued)
        return LIBUSB_ERROR_NOT_FOUND;
    TakeBack(*transfer, LIBUSB_TRANSFER_CANCELLED, cancelDelay);
    return LIBUSB_SUCCESS;
}

/// Takes a queued transfer from the device; it completes after the delay.
void Core::TakeBack(Transfer &transfer, libusb_transfer_status status, Time delay)
{
    DeviceOf(*transfer.device).Unqueue(transfer, m_caughtUp);
    transfer.state = Transfer::State::Cancelling;
    transfer.status = status;
    if (delay == Time(0)) {
        Complete(transfer, status);
        return;
    }
    transfer.endsAt = delay == kNever ? kNever : m_caughtUp + delay;
    if (IsBulk(*transfer.usb))
        transfer.received.assign(transfer.usb->buffer, transfer.usb->buffer + transfer.filled);
    Changed();
}

/// The transfer waits for a thread that handles events from now on.
void Core::Complete(Transfer &transfer, libusb_transfer_status status)
{
    std::erase(m_pending, &transfer);
    transfer.state = Transfer::State::Completed;
    transfer.status = status;
    transfer.endsAt = kNever;
    m_completed.push_back(&transfer);
    Changed();
}

void Core::CompleteAll(const libusb_device &device, libusb_transfer_status status)
{
    DeviceOf(device).UnqueueAll();
    for (Transfer *transfer : std::vector(m_pending)) {
        if (transfer->device == &device)
            Complete(*transfer, status);
    }
}

/// The transfer will never complete.
void Core::Forget(Transfer &transfer)
{
    if (transfer.state == Transfer::State::Queued)
        DeviceOf(*transfer.device).Unqueue(transfer, m_caughtUp);
    std::erase(m_pending, &transfer);
    std::erase(m_completed, &transfer);
    transfer.state = Transfer::State::Idle;
}

bool Core::HasQueued(const libusb_device &device, std::optional<uint8_t> endpoint) const
{
    return std::ranges::any_of(m_pending, [&](const Transfer *transfer) {
        return transfer->device == &device && transfer->state == Transfer::State::Queued &&
               (!endpoint || transfer->usb->endpoint == *endpoint);
    });
}

int Core::RunSynchronously(Lock &lock, libusb_transfer &usb, const char *function)
{
    if (InsideCallback()) {
        Misuse(function, "called inside a callback");
        return LIBUSB_ERROR_BUSY;
    }
    Transfer transfer{.usb = &usb, .synchronous = true};
    if (const int error = Start(transfer); error != 0)
        return error;
    while (!transfer.done)
        (void)HandleEvents(
            lock, kNever, [&transfer] { return transfer.done; }, function);
    return ErrorCode(transfer.status);
}

// --- Event handling ------------------------------------------------------------------

/// Chooses the thread that hands back the next transfers among those that handle events. libusb
/// leaves that to chance, too.
const Core::Handler *Core::Elected() const
{
    return m_handlers[Draw(m_seed, m_dispatched, m_handlers.size())];
}

int Core::HandleEvents(Lock &lock, Time deadline, const std::function<bool()> &done,
                       const char *function)
{
    if (InsideCallback()) {
        Misuse(function, "called inside a callback");
        return LIBUSB_ERROR_BUSY;
    }
    Handler self{.notified = std::exchange(m_interrupted, false)};
    m_handlers.push_back(&self);
    if (!m_completed.empty())
        Changed(); // the choice may fall on another thread now
    for (;;) {
        CatchUp();
        if (m_dispatcher == std::thread::id()) {
            if (done()) // guarded by nothing but the order of callbacks: read between them only
                break;
            if (!m_completed.empty() && Elected() == &self) {
                Dispatch(lock);
                break;
            }
        }
        if (self.notified || Now() >= deadline)
            break;
        WaitUntil(lock, m_completed.empty() ? std::min(deadline, NextEvent()) : deadline, function);
    }
    std::erase(m_handlers, &self);
    if (!m_completed.empty())
        Changed();
    return LIBUSB_SUCCESS;
}

/// Hands back some of the completed transfers, at least one.
void Core::Dispatch(Lock &lock)
{
    m_dispatcher = std::this_thread::get_id();
    for (size_t batch = 1 + Draw(~m_seed, m_dispatched, m_completed.size());
         batch > 0 && !m_completed.empty(); --batch) {
        Transfer &transfer = *m_completed.front();
        m_completed.pop_front();
        ++m_dispatched;
        CallBack(lock, transfer);
    }
    m_dispatcher = {};
    NotifyHandlers();
}

void Core::CallBack(Lock &lock, Transfer &transfer)
{
    libusb_transfer &usb = *transfer.usb;
    transfer.state = Transfer::State::Idle;
    usb.status = transfer.status;
    usb.actual_length = static_cast<int>(transfer.filled);
    if ((usb.flags & LIBUSB_TRANSFER_SHORT_NOT_OK) != 0 && usb.actual_length < usb.length &&
        usb.status == LIBUSB_TRANSFER_COMPLETED)
        usb.status = LIBUSB_TRANSFER_ERROR;
    if (transfer.synchronous) {
        transfer.done = true;
        return;
    }
    if (usb.status == LIBUSB_TRANSFER_COMPLETED) {
        if (const int failure = calls.Complete(); failure != 0) {
            usb.status = StatusOf(failure);
            usb.actual_length /= 2;
        }
    }
    const bool freeAfterwards = (usb.flags & LIBUSB_TRANSFER_FREE_TRANSFER) != 0;
    lock.unlock();
    if (usb.callback)
        usb.callback(&usb); // may submit or free the transfer
    lock.lock();
    if (freeAfterwards)
        Free(&usb);
}

void Core::NotifyHandlers()
{
    for (Handler *handler : m_handlers)
        handler->notified = true;
    Changed();
}

void Core::InterruptEventHandler()
{
    m_interrupted = m_handlers.empty();
    NotifyHandlers();
}

} // namespace vscsim
