#include "vscsim/testbed.h"

#include "vscsim/poll_line.h"
#include "vscsim/usbfs_device.h"

#include <fmt/format.h>
#include <umockdev.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <map>
#include <mutex>
#include <utility>

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

    /// Once the camera is gone, so is what the bus shows of it, until it comes back.
    void OnUnplug(std::function<void()> hide) { m_hide = std::move(hide); }
    void OnReturn(std::function<void(bool elsewhere)> show) { m_show = std::move(show); }

    /// While a program holds the interface, the kernel shows its own driver there.
    void OnClaim(std::function<void(bool)> show) { m_showClaim = std::move(show); }

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
    const UsbfsDevice &Device() const { return m_device; }

    void Answer(UMockdevIoctlClient *client)
    {
        const std::scoped_lock lock(m_mutex);
        const int result = ResultOf(client);
        if (result == -EBUSY)
            AnswerLater(client);
        else
            Complete(client, result);
    }

    void Open(UsbfsDevice::File file)
    {
        const std::scoped_lock lock(m_mutex);
        m_device.Open(file);
    }

    void Close(UsbfsDevice::File file)
    {
        const std::scoped_lock lock(m_mutex);
        m_device.Close(file, Now());
        Advance();
    }

  private:
    int ResultOf(UMockdevIoctlClient *client)
    {
        UMockdevIoctlData *const argument = umockdev_ioctl_client_get_arg(client);
        uintptr_t value = 0;
        std::memcpy(&value, argument->data, sizeof value);
        CallerMemory memory(argument);
        return m_device.Ioctl(client, umockdev_ioctl_client_get_request(client), value, memory,
                              Now());
    }

    void Complete(UMockdevIoctlClient *client, int result)
    {
        umockdev_ioctl_client_complete(client, std::max(result, -1), result < 0 ? -result : 0);
        Advance(); // meanwhile the program goes on
    }

    /// A program's close() is seen a little after it happened, and whoever opens the device again
    /// at once would find it busy. So this asks once more when everything up to now has been seen.
    void AnswerLater(UMockdevIoctlClient *client)
    {
        struct Question {
            Port *port;
            Object<UMockdevIoctlClient> client;
        };
        const auto ask = [](gpointer data) -> gboolean {
            const auto *const question = static_cast<Question *>(data);
            const std::scoped_lock lock(question->port->m_mutex);
            question->port->Complete(question->client.get(),
                                     question->port->ResultOf(question->client.get()));
            return G_SOURCE_REMOVE;
        };
        g_object_ref(client);
        GSource *const idle = g_idle_source_new();
        g_source_set_priority(idle, G_PRIORITY_LOW);
        g_source_set_callback(idle, ask, new Question{this, Object<UMockdevIoctlClient>(client)},
                              [](gpointer data) { delete static_cast<Question *>(data); });
        g_source_attach(idle, g_main_context_get_thread_default());
        g_source_unref(idle);
    }

    void Advance()
    {
        const Time now = Now();
        const Time wake = std::min(m_device.Advance(now), ComeAndGo(now));
        m_line.Signal(m_device.Reapable());
        if (std::exchange(m_claimShown, m_device.Claimed()) != m_device.Claimed())
            m_showClaim(m_device.Claimed());
        if (!m_timer)
            StartTimer();
        using std::chrono::ceil;
        using std::chrono::microseconds;
        g_source_set_ready_time(m_timer, wake == kNever ? -1 : ceil<microseconds>(wake).count());
    }

    /// @return when it comes back
    Time ComeAndGo(Time now)
    {
        if (!m_device.Gone())
            return kNever;
        const auto back = m_device.ComesBack();
        if (!std::exchange(m_hidden, true)) {
            m_hide();
            m_backAt = back ? now + back->after : kNever;
        }
        if (now < m_backAt)
            return m_backAt;
        m_device.PlugInAgain();
        m_hidden = false;
        m_show(back->elsewhere);
        return kNever;
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
    std::function<void()> m_hide;
    std::function<void(bool)> m_show;
    bool m_hidden = false;
    Time m_backAt{}; // while it is
    std::function<void(bool)> m_showClaim;
    bool m_claimShown = false;
    GSource *m_timer = nullptr; // in umockdev's thread, from the first call on
};

gboolean OnIoctl(UMockdevIoctlBase *, UMockdevIoctlClient *client, gpointer port)
{
    static_cast<Port *>(port)->Answer(client);
    return TRUE;
}

void OnVanished(gpointer port, GObject *client)
{
    static_cast<Port *>(port)->Close(client);
}

/// umockdev keeps a client for as long as the program has the file open.
void OnClient(UMockdevIoctlBase *, UMockdevIoctlClient *client, gpointer port)
{
    static_cast<Port *>(port)->Open(client);
    g_object_weak_ref(G_OBJECT(client), OnVanished, port);
}

/// As the kernel does, in MiB and with 0 for none.
void ShowMemoryLimit(UMockdevTestbed *testbed, size_t limit)
{
    constexpr size_t kMebibyte = 1 << 20;
    const Text root(umockdev_testbed_get_root_dir(testbed));
    const std::filesystem::path folder =
        std::filesystem::path(root.get()) / "sys/module/usbcore/parameters";
    std::error_code failure; // programs that look for it see none
    std::filesystem::create_directories(folder, failure);
    std::ofstream(folder / "usbfs_memory_mb")
        << (limit == std::numeric_limits<size_t>::max() ? 0 : limit / kMebibyte) << '\n';
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
    int lastPort = 0;

    std::string NewPort() { return fmt::format("{}-{}", kBus, ++lastPort); }

    /// Shows a camera in sysfs.
    /// @param name  of its port
    /// @return its folder there
    std::string Describe(const BusDevice &device, int address, const std::string &name,
                         const UsbfsDevice &camera)
    {
        const Descriptors &told = camera.Described();
        const Text path(umockdev_testbed_add_device(testbed.get(), "usb", name.c_str(), nullptr,
                                                    nullptr, "DEVTYPE", "usb_device", "DEVNAME",
                                                    NodeOf(address).c_str(), nullptr));
        const std::pair<const char *, std::string> attributes[] = {
            {"busnum", std::to_string(kBus)},
            {"devnum", std::to_string(address)},
            {"speed", camera.Link() == LinkSpeed::Super ? "5000" : "480"},
            {"bConfigurationValue", std::to_string(Descriptors::kConfiguration)},
            {"idVendor", fmt::format("{:04x}", VendorId())},
            {"idProduct", fmt::format("{:04x}", device.model->productId)},
            {"manufacturer", told.Manufacturer()},
            {"product", told.Product()},
        };
        for (const auto &[attribute, value] : attributes)
            umockdev_testbed_set_attribute(testbed.get(), path.get(), attribute,
                                           (value + '\n').c_str());
        std::vector<uint8_t> bytes;
        if (device.options.readableDescriptor)
            bytes = told.Sysfs();
        umockdev_testbed_set_attribute_binary(testbed.get(), path.get(), "descriptors",
                                              bytes.data(), static_cast<gint>(bytes.size()));
        return path.get();
    }

    /// Shows the only interface of a camera.
    /// @return the link to its driver
    std::filesystem::path DescribeInterface(const std::string &camera)
    {
        const Text root(umockdev_testbed_get_root_dir(testbed.get()));
        const std::filesystem::path folder = root.get() + camera;
        const std::string name = fmt::format("{}:{}.{}", folder.filename().string(),
                                             Descriptors::kConfiguration, Descriptors::kInterface);
        std::error_code noFolder; // nor a driver in it, which only those would miss who look there
        std::filesystem::create_directory(folder / name, noFolder);
        return folder / name / "driver";
    }

    /// Shows it, also each time that it comes back. Its node stays meanwhile: without it, programs
    /// that know the path would be led to a real device.
    void Show(const BusDevice &device, int address, Port &port)
    {
        struct Shown {
            std::string name;
            std::string path;
            std::filesystem::path driver;
        };
        const auto shown = std::make_shared<Shown>();
        const auto show = [this, device, address, &port, shown] {
            shown->path = Describe(device, address, shown->name, port.Device());
            shown->driver = DescribeInterface(shown->path);
        };
        shown->name = NewPort();
        show();
        port.OnUnplug([this, shown] {
            Tell(shown->path, "remove");
            umockdev_testbed_remove_device(testbed.get(), shown->path.c_str());
        });
        port.OnReturn([this, shown, show](bool elsewhere) {
            if (elsewhere)
                shown->name = NewPort();
            show();
            Tell(shown->path, "add");
        });
        port.OnClaim([shown](bool claimed) {
            std::error_code failure; // see there
            if (claimed)
                std::filesystem::create_symlink("/sys/bus/usb/drivers/usbfs", shown->driver,
                                                failure);
            else
                std::filesystem::remove(shown->driver, failure);
        });
    }

    /// Tells running programs; umockdev can only where its library is preloaded.
    void Tell(const std::string &path, const char *what)
    {
        if (umockdev_in_mock_environment())
            umockdev_testbed_uevent(testbed.get(), path.c_str(), what);
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
        std::error_code noFolder; // the node cannot be created then
        std::filesystem::create_directories(file.parent_path(), noFolder);
        auto port = std::make_unique<Port>(device, memoryLimit, file.string());
        if (!port->Valid()) {
            error = fmt::format("cannot create {}", file.string());
            return false;
        }
        Show(device, address, *port);
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
    ShowMemoryLimit(m_state->testbed.get(), memoryLimit);
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
