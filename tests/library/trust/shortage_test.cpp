#include "core/dark_file.h"
#include "core/hot_pixel_record.h"
#include "library/trust/session.h"
#include "support/temporary_file.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <atomic>
#include <cstdio>
#include <new>

// The system refuses what the library asks it for: memory, a thread, a file. What the simulated
// cameras and the tests need is always there.
namespace {

enum class Asked { Memory, Thread, File };

struct {
    std::atomic<bool> on{false};
    Asked refused = Asked::Memory;
    uint64_t from = 0, count = 0;
    std::atomic<uint64_t> asked{0};
    std::atomic<int64_t> blocks{0}; // of memory, in use
} g_system;

thread_local bool t_isTest = false;

bool Refuses(Asked what)
{
    if (!g_system.on || what != g_system.refused || t_isTest || vscsim::Bus::InCall())
        return false;
    const uint64_t number = g_system.asked++;
    return number >= g_system.from && number - g_system.from < g_system.count;
}

} // namespace

void *operator new(size_t size)
{
    void *const block = Refuses(Asked::Memory) ? nullptr : std::malloc(size);
    if (!block)
        throw std::bad_alloc();
    ++g_system.blocks;
    return block;
}

void operator delete(void *block) noexcept
{
    g_system.blocks -= block != nullptr;
    std::free(block);
}

void operator delete(void *block, size_t) noexcept
{
    operator delete(block);
}

// The linker lets the library call these in place of what they stand for.
#define VSC_REFUSABLE(result, name, what, refusal, parameters, arguments)                          \
    extern "C" result __real_##name parameters;                                                    \
    extern "C" result __wrap_##name parameters                                                     \
    {                                                                                              \
        return Refuses(what) ? refusal : __real_##name arguments;                                  \
    }
VSC_REFUSABLE(void *, calloc, Asked::Memory, nullptr, (size_t count, size_t size), (count, size))
VSC_REFUSABLE(int, fstat, Asked::File, -1, (int file, struct stat *status), (file, status))
VSC_REFUSABLE(std::FILE *, fdopen, Asked::File, nullptr, (int file, const char *mode), (file, mode))
VSC_REFUSABLE(int, fseek, Asked::File, -1, (std::FILE * file, long at, int from), (file, at, from))
VSC_REFUSABLE(size_t, fread, Asked::File, 0,
              (void *room, size_t size, size_t count, std::FILE *file), (room, size, count, file))
VSC_REFUSABLE(int, open, Asked::File, -1, (const char *path, int flags), (path, flags))

// The C++ runtime calls it, which is no part of the program.
extern "C" int pthread_create(pthread_t *thread, const pthread_attr_t *attributes,
                              void *(*body)(void *), void *argument)
{
    static const auto create =
        reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
    return Refuses(Asked::Thread) ? EAGAIN : create(thread, attributes, body, argument);
}

namespace vsccam {
namespace {

class ShortageTest : public EachFamily {
  protected:
    ShortageTest()
    {
        t_isTest = true;
        const auto *facts = vscsim::FindModel(GetParam());
        const Size size{facts->sensorWidth, facts->sensorHeight};
        Bytes dark(static_cast<size_t>(size.width) * static_cast<size_t>(size.height));
        EXPECT_TRUE(CreateBMP(m_dark.c_str(), size, dark));
        dark[0] = 1; // the bits of the first pixels, which the session does not show
        m_hotPixels = Compress({dark.data(), dark.size() / 8});
        setenv("VSCCAM_CAMERA", "usb:1-1,usb:2-1", 1); // NOLINT(concurrency-mt-unsafe)
    }
    ~ShortageTest() override
    {
        unsetenv("VSCCAM_CAMERA"); // NOLINT(concurrency-mt-unsafe)
        (void)std::remove(m_dark.c_str());
        t_isTest = false;
    }

    /// A session in which the camera is lost before the video ends.
    /// @return whether all steps succeeded
    bool RunSession()
    {
        const int device = Bus().Plug(GetParam());
        Bus().With(device, [this](auto &camera) {
            std::ranges::copy(m_hotPixels, camera.Flash().begin() + kHotPixelAddress);
        });
        HostSession host{.darkFile = m_dark.c_str()};
        bool succeeded = true;
        for (const SessionStep &step : kSession) {
            if (step.name == std::string_view("stop")) {
                Bus().Replug(device);
                SleepFor(std::chrono::seconds(2));
            }
            const uint32_t start = GetTickCount();
            t_isTest = false;
            try {
                succeeded = step.run(host) && succeeded;
                t_isTest = true;
            } catch (...) {
                t_isTest = true;
                ADD_FAILURE() << "an exception leaves " << step.name;
            }
            EXPECT_LE(ElapsedMs(start), step.limitMs) << step.name;
        }
        EXPECT_EQ(host.broken, 0);
        return succeeded;
    }

    /// A session in which so many of what is asked for are refused.
    bool RunSession(Asked refused, uint64_t from, uint64_t count)
    {
        g_system.refused = refused;
        g_system.from = from;
        g_system.count = count;
        g_system.asked = 0;
        g_system.on = true;
        const bool succeeded = RunSession();
        g_system.on = false;
        SimulatedBus::TearDown(); // nothing is left of libusb
        Bus().Reset();
        return succeeded;
    }

    const std::string m_dark = TemporaryFile("dark.bmp");
    Bytes m_hotPixels;
};

TEST_P(ShortageTest, OfAnythingAtAnyPointHarmsNothingAndNoLaterSession)
{
    const struct {
        const char *what;
        Asked refused;
        uint64_t stride;
    } resources[] = {
        {"block", Asked::Memory, 7}, {"thread", Asked::Thread, 3}, {"file call", Asked::File, 2}};
    EXPECT_TRUE(RunSession()); // makes what lasts
    NextCase();
    for (const auto &[what, refused, stride] : resources) {
        EXPECT_TRUE(RunSession(refused, 0, 0));
        const uint64_t asked = g_system.asked;
        EXPECT_GT(asked, 3U) << what;
        for (uint64_t n = 0; n < asked && !HasFailure(); n += Stride(stride)) {
            for (const uint64_t count : {uint64_t{1}, kForEver}) {
                SCOPED_TRACE(testing::Message() << what << " " << n << " x" << count);
                const int64_t blocks = g_system.blocks;
                const auto files = EntriesOf("/proc/self/fd");
                (void)RunSession(refused, n, count);
                EXPECT_TRUE(RunSession(refused, 0, 0));
                EXPECT_EQ(g_system.blocks, blocks);
                EXPECT_EQ(EntriesOf("/proc/self/fd"), files);
            }
        }
    }
}

TEST(AddressSpaceTest, OfHalfAGigabyteIsTooLittleForTheLargestCameraOrEnough)
{
    if (kSlowness > 1)
        GTEST_SKIP() << "sanitizers need more addresses, and an emulator sets no limit";
    for (const rlim_t mebibytes : {512, 448, 384, 320, 256, 192}) {
        const auto run = [mebibytes] {
            const VirtualTime time;
            (void)vscsim::Bus::Instance().Plug("VSC065MC-Cool");
            const rlimit limit = {mebibytes << 20, mebibytes << 20};
            bool consistent = setrlimit(RLIMIT_AS, &limit) == 0;
            const bool opened = getNumberOfConnectedCameras() == 1 && openCamera(0);

            consistent = consistent && opened == (initCamera() != 0);
            startCapture();                // which the end of the program ends
            std::exit(consistent ? 0 : 1); // NOLINT(concurrency-mt-unsafe): the only thread
        };
        EXPECT_EXIT(run(), testing::ExitedWithCode(0), "") << mebibytes;
    }
}

INSTANTIATE_TEST_SUITE_P(Families, ShortageTest, testing::ValuesIn(kFamilies));

} // namespace
} // namespace vsccam
