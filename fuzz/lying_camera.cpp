#include "lying_camera.h"

#include "base/clock.h"

#include <deque>
#include <type_traits>
#include <vector>

// A whole session of a host with a camera whose every answer and every frame come from the input.
// However it lies, each call ends in its time, only whole frames are delivered, in their order and
// once, and nothing is left behind. With the cause gone, the next session has its frame.

using namespace std::chrono_literals;

namespace {

/// Where a camera writes its marks over the pixels.
struct Marks {
    std::vector<uint8_t> head; // what every frame begins with
    std::vector<uint8_t> tail; // and ends with
    size_t hiddenAtHead;       // bytes that hosts get from the row next to them
    size_t hiddenAtTail;
};
const Marks kUsb3Marks = {{0x7E, 0x5A}, {0xF0, 0x3C}, 4, 4};
const Marks kUsb2Marks = {{0x11, 0xAA, 0x00, 0xBB}, {}, 8, 0};

struct Model {
    const char *name;
    const Marks &marks;
};
const Model kModels[] = {
    {"VSC470MM-Cool", kUsb3Marks}, {"VSC340MM", kUsb2Marks},   {"VSC048MM", kUsb3Marks},
    {"VSC2800MM", kUsb3Marks},     {"VSC340MM-S", kUsb3Marks}, {"VSC056MM", kUsb2Marks},
};

constexpr int kWidth = 64;
constexpr int kHeight = 32;
using Image = std::vector<uint8_t>;

/// Keeps the whole frames that were sent, as a host should get them.
class Witness : public Liar {
  public:
    Witness(std::span<const uint8_t> input, const Marks &marks) : Liar(input), m_marks(marks) {}

    /// A table of hot pixels would change the frames. Another target looks at those.
    void Answer(const vscsim::ControlRequest &request, vscsim::ControlReply &reply) override
    {
        Liar::Answer(request, reply);
        if (!reply.data.empty() && reply.data[0] == 'V')
            reply.data[0] = 0;
    }

    void Send(std::span<uint8_t> room, vscsim::BulkReply &reply) override
    {
        Liar::Send(room, reply);
        const bool filled = reply.complete && reply.outcome == vscsim::Outcome::Ok &&
                            reply.bytes == room.size() && room.size() == kWidth * kHeight;
        if (filled && IsMarked(room))
            m_sent.push_back(Shown(room));
    }

    /// Whether it was sent, behind all that were delivered before. Under the lock of the bus.
    bool Vouches(const Image &image)
    {
        const auto found = std::ranges::find(m_sent, image);
        if (found == m_sent.end())
            return false;
        m_sent.erase(m_sent.begin(), found + 1);
        return true;
    }

  private:
    bool IsMarked(std::span<const uint8_t> frame) const
    {
        const auto counter = [](std::span<const uint8_t> at) { return at[0] | at[1] << 8; };
        return std::ranges::equal(frame.first(m_marks.head.size()), m_marks.head) &&
               std::ranges::equal(frame.last(m_marks.tail.size()), m_marks.tail) &&
               (m_marks.tail.empty() || counter(frame.subspan(2)) == counter(frame.last(4)));
    }

    Image Shown(std::span<const uint8_t> frame) const
    {
        Image image(frame.begin(), frame.end());
        std::copy_n(frame.begin() + kWidth, m_marks.hiddenAtHead, image.begin());
        std::copy_n(frame.end() - kWidth - static_cast<ptrdiff_t>(m_marks.hiddenAtTail),
                    m_marks.hiddenAtTail,
                    image.end() - static_cast<ptrdiff_t>(m_marks.hiddenAtTail));
        return image;
    }

    const Marks &m_marks;
    std::deque<Image> m_sent;
};

class Session {
  public:
    Session(const Model &model, std::span<const uint8_t> input)
        : m_witness(std::make_shared<Witness>(input, model.marks)), m_camera(model.name, m_witness)
    {
    }

    void Run(Decisions &host)
    {
        if (!Start())
            return;
        startCapture();
        for (int i = 0; i < 4; ++i)
            (void)TakeFrame(200);
        Work(host);
        Timed(2s, stopCapture);
        setValue(CONTROL_EXPOSURE, host.Flag() ? 1'200'000 : 1'000, false);
        startExposure();
        for (int i = 0; i < 20 && getExpStatus() == VSC_EXP_WORKING; ++i)
            vsccam::SleepFor(100ms);
        Image image(kWidth * kHeight);
        if (getImageAfterExp(image.data(), static_cast<int>(image.size())))
            CheckFrame(image);
        Timed(2s, closeCamera);
    }

    /// The next session of this process has nothing to complain of.
    void RunAgain()
    {
        closeCamera();
        m_camera.Mend();
        Must(Start());
        startCapture();
        Must(TakeFrame(5'000) && getDroppedFrames() >= 0);
    }

  private:
    /// A call, in its time. What the kernel does for it may come on top.
    template <class Call> std::invoke_result_t<Call> Timed(vscsim::Time bound, Call call)
    {
        struct Check {
            LyingCamera &camera;
            vscsim::Time limit;
            ~Check() { Must(camera.Now() <= limit); }
        };
        constexpr auto kKernelCall = 5s;
        const Check check{m_camera, m_camera.Now() + bound + kKernelCall};
        return call();
    }

    bool Start()
    {
        Must(getNumberOfConnectedCameras() <= 1);
        const bool ready = Timed(10s, [] { return openCamera(0) && initCamera(); }) &&
                           setImageFormat(kWidth, kHeight, 1, VSC_IMG_RAW8) != 0;
        setValue(CONTROL_EXPOSURE, 50'000, false);
        return ready;
    }

    /// What hosts do beside taking frames.
    void Work(Decisions &host)
    {
        _VSC_ID id{{1, 2, 3, 4, 5, 6, 7, 8}};
        for (int i = 0; i < 4; ++i) {
            const int value = host.Byte();
            const int control = host.Byte() % 16;
            if (control != CONTROL_GAMMA) // which changes the frames
                Timed(2s, [&] { setValue(control, value, host.Flag()); });
            Timed(2s, [] { (void)getSensorTemp(); });
            (void)TakeFrame(value);
        }
        Timed(2s, [&] { (void)GetID(&id); });
        if (host.Flag())
            Timed(60s, [&] { (void)SetID(id); });
        Timed(2s, [] { pulseGuide(GUIDE_EAST, 0); });
        vsccam::SleepFor(std::chrono::seconds(host.Byte() % 4)); // the cooler takes its turns
        Timed(2s, [] { (void)setImageFormat(kWidth, kHeight, 1, VSC_IMG_RAW8); });
    }

    bool TakeFrame(int waitMs)
    {
        Image image(kWidth * kHeight);
        const bool taken = Timed(std::chrono::milliseconds(waitMs + 100), [&] {
            return getImageData(image.data(), static_cast<int>(image.size()), waitMs) != 0;
        });
        if (taken)
            CheckFrame(image);
        return taken;
    }

    void CheckFrame(const Image &image)
    {
        Must(LyingCamera::Bus().With(0, [&](auto &) { return m_witness->Vouches(image); }));
    }

    std::shared_ptr<Witness> m_witness;
    LyingCamera m_camera;
};

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    const std::span input(bytes, size);
    Decisions host(input);
    const Model &model = kModels[host.Below(std::size(kModels))];
    Session session(model, input);
    session.Run(host);
    session.RunAgain();
    return 0;
}
