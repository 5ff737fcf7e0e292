// The process of the driver: the protocol comes in, signals and the end of the server end it.
#include "ccd_driver.h"
#include "own_descriptors.h"
#include "usb_devices.h"

#include <indidriver.h>
#include <lilxml.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>
#include <vsccam.h>

#include <array>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <future>
#include <mutex>
#include <set>
#include <string>
#include <thread>

namespace {

using namespace std::chrono_literals;
using vscindi::CcdDriver;

constexpr auto kSlowestClient = 5s;   // then frames go on to the others
constexpr size_t kMostReplies = 1024; // of frames that nobody waits for any more

// It is never destroyed: the base class leaves threads behind when it ends the process.
CcdDriver *g_driver = nullptr;
LilXML *g_parser = nullptr;
int g_input = -1;  // its callback
int g_signals = 0; // that came

/// Of the frames that the server has passed on.
struct Replies {
    std::mutex mutex;
    std::condition_variable changed;
    std::set<std::string> seen;
};
Replies g_replies;

void TakeReply(XMLEle *element)
{
    {
        const std::lock_guard lock(g_replies.mutex);
        if (g_replies.seen.size() >= kMostReplies)
            g_replies.seen.clear();
        g_replies.seen.insert(findXMLAttValu(element, "uid"));
    }
    g_replies.changed.notify_all();
}

void TakeElement(XMLEle *element)
{
    if (std::strcmp(tagXMLEle(element), "pingReply") == 0)
        return TakeReply(element);
    std::array<char, 2048> why{};
    if (dispatch(element, why.data()) < 0)
        std::fprintf(stderr, "%s: %s\n", me, why.data());
}

void TakeInput(int descriptor, void *)
{
    std::array<char, 4096> block{};
    const ssize_t count = read(descriptor, block.data(), block.size());
    if (count < 0 && (errno == EINTR || errno == EAGAIN))
        return;
    if (count <= 0) { // the server has gone
        IERmCallback(g_input);
        return g_driver->End(false);
    }
    std::array<char, 2048> why{};
    for (ssize_t i = 0; i < count; ++i) {
        XMLEle *const element = readXMLEle(g_parser, block[static_cast<size_t>(i)], why.data());
        if (element) {
            TakeElement(element);
            delXMLEle(element);
        } else if (why[0] != '\0') {
            std::fprintf(stderr, "%s: %s\n", me, why.data());
        }
    }
}

void TakeSignal(int descriptor, void *)
{
    signalfd_siginfo signal{};
    if (read(descriptor, &signal, sizeof signal) == sizeof signal)
        g_driver->End(++g_signals > 1); // the second one does not wait for a warm sensor
}

/// The base class ends the process from the thread of the protocol, when it writes and the server
/// is gone. What the library cleans up at the end of a process needs the descriptors of the main
/// thread, so that the camera is closed there, and nothing else is cleaned up.
void EndFromProtocol()
{
    if (gettid() == getpid())
        return;
    g_driver->EndAtOnce();
    _exit(EXIT_FAILURE);
}

} // namespace

/// The base class sends a frame when the server has passed on the one before, and waits for that
/// with this function. The library's own version reads the input from the thread that waits, beside
/// the event loop: it takes half of what a client sends, or blocks the loop. It also waits for ever
/// for a client that has stopped reading.
extern "C" __attribute__((visibility("default"))) void waitPingReply(const char *uid)
{
    std::unique_lock lock(g_replies.mutex);
    g_replies.changed.wait_for(lock, kSlowestClient,
                               [uid] { return g_replies.seen.erase(uid) > 0; });
}

int main(int argc, char **argv)
{
    static std::string name = argv[0];
    name = name.substr(name.rfind('/') + 1);
    me = name.data();
    if (argc > 1 && std::strcmp(argv[1], "--version") == 0) {
        std::printf("%s %s\n", me, VSCCAM_VERSION);
        return 0;
    }
    if (argc > 1 && std::strcmp(argv[1], "-v") != 0) {
        std::printf("%s: INDI driver for VSC cameras.\nUsage: indiserver %s\n\nOptions:\n"
                    "  -h,--help  Show this text\n  --version  Show the version\n"
                    "  -v         Tell more on standard error\n",
                    me, me);
        return std::strcmp(argv[1], "-h") == 0 || std::strcmp(argv[1], "--help") == 0 ? 0 : 2;
    }
    std::signal(SIGPIPE, SIG_IGN); // the camera is closed when the server is gone
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGINT);
    sigaddset(&ends, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &ends, nullptr);
    // Before there are threads: later it changes only its value; see the session.
    (void)vsctool::CamerasNamedByUser();
    setenv("VSCCAM_CAMERA", "", 0); // NOLINT(concurrency-mt-unsafe)

    const int wake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    std::promise<bool> made;
    std::thread protocol([&] {
        const bool apart = vscindi::TakeOwnDescriptors();
        g_driver = new CcdDriver(wake); // NOLINT(cppcoreguidelines-owning-memory): see there
        g_parser = newLilXML();
        g_input = IEAddCallback(STDIN_FILENO, TakeInput, nullptr);
        IEAddCallback(signalfd(-1, &ends, SFD_CLOEXEC), TakeSignal, nullptr);
        made.set_value(apart);
        g_driver->Run();
    });
    const bool apart = made.get_future().get();
    closeCamera(); // the library registers its clean-up here, so that it runs after the next one
    (void)std::atexit(EndFromProtocol);
    if (apart)
        vscindi::LeaveProtocol();
    g_driver->Session().Run(apart);
    protocol.join();
    return g_signals > 0 ? 143 : 0;
}
