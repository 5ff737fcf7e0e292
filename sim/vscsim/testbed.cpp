#include "vscsim/testbed.h"

#include "vscsim/poll_line.h"
#include "vscsim/usbfs_device.h"

#include <fmt/format.h>
#include <umockdev.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <map>
#include <mutex>

namespace vscsim {
namespace {

constexpr int kBus = 1;
constexpr int kFirstAddress = 2; // the root hub is 1

struct Unref {
    void operator()(gpointer object) const { g_object_unref(object); }
};
template <class T> using Object = std::unique_ptr<T, Unref>;

struct Free {
    void operator()(gpointer text) const { g_free(text); }
};
using Text = std::unique_ptr<gchar, Free>;

Time Now()
{
    return std::chrono::steady_clock::now().time_since_epoch();
}

/// The memory of the calling program, over the connection on which its ioctl waits.
///
/// umockdev fetches a region where it stands as a pointer inside the argument, and writes it back
/// with the answer. The argument itself is only a pointer, so it is extended by one per region.
class CallerMemory final : public ClientMemory {
  public:
    explicit CallerMemory(UMockdevIoctlData *argument) : m_argument(argument) {}

    bool Read(uintptr_t address, std::span<uint8_t> to) override
    {
        const UMockdevIoctlData *const region = Region(address, to.size());
        if (region)
            std::memcpy(to.data(), region->data, to.size());
        return region || to.empty();
    }

    bool Write(uintptr_t address, std::span<const uint8_t> from) override
    {
        const UMockdevIoctlData *const region = Region(address, from.size());
        if (region)
            std::memcpy(region->data, from.data(), from.size());
        return region || from.empty();
    }

  private:
    UMockdevIoctlData *Region(uintptr_t address, size_t bytes)
    {
        if (bytes == 0)
            return nullptr;
        auto &region = m_regions[{address, bytes}];
        if (!region) {
            const auto slot = static_cast<size_t>(m_argument->data_len);
            m_argument->data_len += static_cast<gint>(sizeof address);
            m_argument->data = static_cast<guint8 *>(
                g_realloc(m_argument->data, static_cast<gsize>(m_argument->data_len)));
            std::memcpy(m_argument->data + slot, &address, sizeof address);
            region.reset(umockdev_ioctl_data_resolve(m_argument, slot, bytes, nullptr));
        }
        return region.get();
    }

    UMockdevIoctlData *m_argument;
    std::map<std::pair<uintptr_t, size_t>, Object<UMockdevIoctlData>> m_regions;
};

/// Answers the ioctls of one device node. Everything happens in umockdev's thread; the lock is for
/// the end, when another thread may let go of the last reference.
class Port {
  public:
    Port(const BusDevice &device, size_t memoryLimit, const std::string &node)
        : m_device(*device.model, device.options, memoryLimit), m_line(node)
    {
    }
    ~Port()
    {
        const std::scoped_lock lock(m_mutex);
        if (m_timer) {
            g_source_destroy(m_timer);
            g_source_unref(m_timer);
        }
    }
    Port(const Port &) = delete;
    Port &operator=(const Port &) = delete;

    bool Valid() const { return m_line.Valid(); }
    const Descriptors &Described() const { return m_device.Described(); }

    void Answer(UMockdevIoctlClient *client)
    {
        const std::scoped_lock lock(m_mutex);
        UMockdevIoctlData *const argument = umockdev_ioctl_client_get_arg(client);
        uintptr_t value = 0;
        std::memcpy(&value, argument->data, sizeof value);
        CallerMemory memory(argument);
        const int result =
            m_device.Ioctl(client, umockdev_ioctl_client_get_request(client), value, memory, Now());
        umockdev_ioctl_client_complete(client, std::max(result, -1), result < 0 ? -result : 0);
        Advance();
    }

    void Close(UMockdevIoctlClient *client)
    {
        const std::scoped_lock lock(m_mutex);
        m_device.Close(client, Now());
        Advance();
    }

  private:
    void Advance()
    {
        const Time wake = m_device.Advance(Now());
        m_line.Signal(m_device.Reapable());
        if (!m_timer)
            StartTimer();
        using std::chrono::ceil;
        using std::chrono::microseconds;
        g_source_set_ready_time(m_timer, wake == kNever ? -1 : ceil<microseconds>(wake).count());
    }

    void StartTimer()
    {
        static GSourceFuncs functions = {
            .prepare = nullptr,
            .check = nullptr,
            .dispatch = [](GSource *, GSourceFunc callback, gpointer port) -> gboolean {
                return callback(port);
            },
            .finalize = nullptr,
            .closure_callback = nullptr,
            .closure_marshal = nullptr,
        };
        m_timer = g_source_new(&functions, sizeof(GSource));
        const auto onTime = [](gpointer port) -> gboolean {
            auto *const self = static_cast<Port *>(port);
            const std::scoped_lock lock(self->m_mutex);
            self->Advance();
            return G_SOURCE_CONTINUE;
        };
        g_source_set_callback(m_timer, onTime, this, nullptr);
        g_source_attach(m_timer, g_main_context_get_thread_default());
    }

    std::mutex m_mutex;
    UsbfsDevice m_device;
    PollLine m_line;
    GSource *m_timer = nullptr; // in umockdev's thread, from the first call on
};

gboolean OnIoctl(UMockdevIoctlBase *, UMockdevIoctlClient *client, gpointer port)
{
    static_cast<Port *>(port)->Answer(client);
    return TRUE;
}

void OnConnectedChanged(UMockdevIoctlClient *client, GParamSpec *, gpointer port)
{
    if (!umockdev_ioctl_client_get_connected(client))
        static_cast<Port *>(port)->Close(client);
}

void OnClient(UMockdevIoctlBase *, UMockdevIoctlClient *client, gpointer port)
{
    g_signal_connect(client, "notify::connected", G_CALLBACK(OnConnectedChanged), port);
}

void DeletePort(gpointer port, GClosure *)
{
    delete static_cast<Port *>(port);
}

} // namespace

struct Testbed::State {
    Object<UMockdevTestbed> testbed;
    std::vector<std::string> nodes;
    std::string error;

    std::string Add(const char *name, const char *parent, int address, const Descriptors &told,
                    const BusDevice &device)
    {
        const bool super = device.options.link == LinkSpeed::Super;
        const std::string product = fmt::format("{:04x}", device.model->productId);
        const std::string node = NodeOf(address);
        const Text path(umockdev_testbed_add_device(
            testbed.get(), "usb", name, parent, "busnum", std::to_string(kBus).c_str(), "devnum",
            std::to_string(address).c_str(), "speed", super ? "5000" : "480", "bConfigurationValue",
            "1", "bNumConfigurations", "1", "idVendor", fmt::format("{:04x}", VendorId()).c_str(),
            "idProduct", product.c_str(), "manufacturer", Descriptors::kManufacturer, "product",
            told.Product().c_str(), nullptr, "DEVTYPE", "usb_device", "DEVNAME", node.c_str(),
            nullptr));
        std::vector<uint8_t> bytes;
        if (device.options.readableDescriptor)
            bytes = told.Sysfs();
        umockdev_testbed_set_attribute_binary(testbed.get(), path.get(), "descriptors",
                                              bytes.data(), static_cast<gint>(bytes.size()));
        return path.get();
    }

    static std::string NodeOf(int address)
    {
        return fmt::format("/dev/bus/usb/{:03}/{:03}", kBus, address);
    }

    bool Plug(const BusDevice &device, int address, size_t memoryLimit)
    {
        const std::string node = NodeOf(address);
        const Text root(umockdev_testbed_get_root_dir(testbed.get()));
        const std::filesystem::path file = root.get() + node;
        std::error_code failure;
        std::filesystem::create_directories(file.parent_path(), failure);
        auto port = std::make_unique<Port>(device, memoryLimit, file.string());
        if (!port->Valid()) {
            error = fmt::format("cannot create {}", file.string());
            return false;
        }
        Add(fmt::format("{}-{}", kBus, address - 1).c_str(), nullptr, address, port->Described(),
            device);

        const Object<UMockdevIoctlBase> handler(umockdev_ioctl_base_new());
        g_signal_connect(handler.get(), "client-connected", G_CALLBACK(OnClient), port.get());
        g_signal_connect_data(handler.get(), "handle-ioctl", G_CALLBACK(OnIoctl), port.release(),
                              DeletePort, GConnectFlags{});
        GError *reason = nullptr;
        if (!umockdev_testbed_attach_ioctl(testbed.get(), node.c_str(), handler.get(), &reason)) {
            error = fmt::format("cannot attach {}: {}", node, reason->message);
            g_error_free(reason);
            return false;
        }
        nodes.push_back(node);
        return true;
    }
};

Testbed::Testbed(const std::vector<BusDevice> &devices, size_t memoryLimit)
    : m_state(std::make_unique<State>())
{
    m_state->testbed.reset(umockdev_testbed_new());
    int address = kFirstAddress;
    for (const BusDevice &device : devices)
        if (!m_state->Plug(device, address++, memoryLimit))
            return;
}

Testbed::~Testbed()
{
    for (const std::string &node : m_state->nodes)
        umockdev_testbed_detach_ioctl(m_state->testbed.get(), node.c_str(), nullptr);
}

const std::string &Testbed::Error() const
{
    return m_state->error;
}

} // namespace vscsim
