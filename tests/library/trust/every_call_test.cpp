#include "catalogue/product_list.h"
#include "core/dark_file.h"
#include "core/hot_pixel_record.h"
#include "library/trust/session.h"
#include "models/usb2/usb2_registers.h"
#include "support/temporary_file.h"

#include <csignal>
#include <iostream>
#include <iterator>
#include <random>
#include <ranges>
#include <tuple>

// A session in which calls of libusb fail: each of them, in every way it can, once or from then on,
// and pairs of them.
namespace vsccam {
namespace {

using namespace std::chrono_literals;

struct Fallible {
    std::string_view function;
    std::vector<int> codes; // that it can return on this system, the likeliest first
};

const Fallible kControl = {"libusb_control_transfer",
                           {LIBUSB_ERROR_TIMEOUT, LIBUSB_ERROR_IO, LIBUSB_ERROR_PIPE,
                            LIBUSB_ERROR_NO_DEVICE, LIBUSB_ERROR_NO_MEM, LIBUSB_ERROR_OVERFLOW,
                            LIBUSB_ERROR_BUSY, LIBUSB_ERROR_INTERRUPTED}};
const Fallible kFallible[] = {
    kControl,
    {"libusb_init", {LIBUSB_ERROR_OTHER, LIBUSB_ERROR_NO_MEM}},
    {"libusb_get_device_list", {LIBUSB_ERROR_NO_MEM, LIBUSB_ERROR_IO}},
    {"libusb_open",
     {LIBUSB_ERROR_ACCESS, LIBUSB_ERROR_NO_DEVICE, LIBUSB_ERROR_NO_MEM, LIBUSB_ERROR_IO}},
    {"libusb_set_configuration",
     {LIBUSB_ERROR_BUSY, LIBUSB_ERROR_OTHER, LIBUSB_ERROR_NO_DEVICE, LIBUSB_ERROR_NOT_FOUND}},
    {"libusb_claim_interface",
     {LIBUSB_ERROR_BUSY, LIBUSB_ERROR_NO_DEVICE, LIBUSB_ERROR_NOT_FOUND, LIBUSB_ERROR_OTHER}},
    {"libusb_clear_halt", {LIBUSB_ERROR_NOT_FOUND, LIBUSB_ERROR_OTHER, LIBUSB_ERROR_NO_DEVICE}},
    {"libusb_reset_device", {LIBUSB_ERROR_NOT_FOUND, LIBUSB_ERROR_OTHER}},
    {"libusb_alloc_transfer", {LIBUSB_ERROR_NO_MEM}},
    {"libusb_submit_transfer", {LIBUSB_ERROR_NO_MEM, LIBUSB_ERROR_IO, LIBUSB_ERROR_NO_DEVICE}},
    {"libusb_cancel_transfer", {LIBUSB_ERROR_NOT_FOUND, LIBUSB_ERROR_OTHER}},
    {"libusb_handle_events_timeout_completed",
     {LIBUSB_ERROR_INTERRUPTED, LIBUSB_ERROR_IO, LIBUSB_ERROR_OTHER}},
    {"completion",
     {LIBUSB_ERROR_IO, LIBUSB_ERROR_PIPE, LIBUSB_ERROR_OVERFLOW, LIBUSB_ERROR_NO_DEVICE}},
};

/// How long the failures last: for one call each, until the host has noticed one, or until it has
/// closed the camera.
enum Lasting { kOnce, kUntilNoticed, kUntilClosed };
constexpr const char *kLasting[] = {"once", "until-noticed", "until-closed"};

struct Failure {
    std::string_view function;
    uint64_t call; // of the function
    int code;
};

struct Case {
    std::string model;
    Lasting lasting = kOnce;
    std::vector<Failure> failures = {};

    /// A refusal is an answer: the library does not take it for a loss.
    bool Refuses() const
    {
        return std::ranges::any_of(failures, [](const Failure &failure) {
            return failure.function == "libusb_control_transfer" &&
                   failure.code == LIBUSB_ERROR_PIPE;
        });
    }
    /// Whether nothing is expected of the rest of the session.
    bool Spoils() const { return lasting == kUntilClosed || Refuses(); }
};

/// As VSCCAM_FAIL takes it to repeat the case alone.
std::ostream &operator<<(std::ostream &out, const Case &c)
{
    out << c.model << " " << kLasting[c.lasting];
    for (const Failure &failure : c.failures)
        out << " " << failure.function << " " << failure.call << " "
            << libusb_error_name(failure.code);
    return out;
}

Case CaseOf(const std::string &text)
{
    std::istringstream in(text);
    Case c;
    std::string lasting;
    std::string function;
    std::string code;
    in >> c.model >> lasting;
    c.lasting = static_cast<Lasting>(std::ranges::find(kLasting, lasting) - kLasting);
    for (uint64_t call = 0; in >> function >> call >> code;)
        for (const Fallible &fallible : kFallible)
            for (const int candidate : fallible.codes)
                if (function == fallible.function && code == libusb_error_name(candidate))
                    c.failures.push_back({fallible.function, call, candidate});
    return c;
}

// The last words of a test that crashes or hangs.
std::string g_case;
struct sigaction g_actionBefore[SIGTERM];

void SayWhichCase(int signal)
{
    (void)!write(STDERR_FILENO, g_case.c_str(), g_case.size());
    (void)sigaction(signal, &g_actionBefore[signal], nullptr);
    (void)raise(signal);
}

const bool g_saysWhichCase = [] {
    struct sigaction action = {};
    action.sa_handler = SayWhichCase;
    for (const int signal : {SIGABRT, SIGSEGV, SIGALRM})
        (void)sigaction(signal, &action, &g_actionBefore[signal]);
    return true;
}();

class EveryCall : public HostTest,
                  public testing::WithParamInterface<std::tuple<std::string, size_t>> {
  public:
    static constexpr size_t kParts = 4;

  protected:
    EveryCall()
    {
        const auto *facts = vscsim::FindModel(m_model);
        const Size size{facts->sensorWidth / 8 * 8, facts->sensorHeight / 2 * 2}; // as delivered
        const auto pixels = static_cast<size_t>(size.width) * static_cast<size_t>(size.height);
        EXPECT_TRUE(CreateBMP(m_darkFile.c_str(), size, Bytes(pixels)));
    }
    ~EveryCall() override
    {
        (void)alarm(0);
        (void)std::remove(m_darkFile.c_str());
    }

    /// What a session without failures does is expected of the others.
    void Learn()
    {
        PlugIn();
        Play({m_model});
        for (const Fallible &fallible : kFallible)
            m_calls[fallible.function] = Bus().Calls(fallible.function);
        Bus().Reset();
    }

    void Try(const Case &c)
    {
        std::ostringstream text;
        text << "VSCCAM_FAIL='" << c << "'\n";
        g_case = text.str();
        SCOPED_TRACE(g_case);
        (void)alarm(300);
        PlugIn();
        for (const auto &[function, call, code] : c.failures)
            Bus().FailCalls(call, c.lasting == kOnce ? 1 : kForEver, code, function);
        Play(c);
        const auto left = Bus().LiveObjects();
        EXPECT_EQ(left.contextReferences + left.deviceLists + left.deviceReferences + left.handles +
                      left.claimedInterfaces + left.transfers,
                  0);
        Bus().MendCalls();
        Play({m_model}); // a later session
        EXPECT_EQ(Bus().TakeMisuse(), std::vector<std::string>());
        Bus().Reset();
    }

    const std::string m_model = std::get<0>(GetParam());
    const size_t m_part = std::get<1>(GetParam());
    std::map<std::string_view, uint64_t> m_calls; // of a session without failures

  private:
    void PlugIn()
    {
        m_device = Bus().Plug(m_model);
        m_fresh = true;
        Bytes bitmap(1024); // of hot pixels, one of them outside of the region that is captured
        bitmap[0] = 1;
        Bus().With(m_device, [record = Compress(bitmap)](vscsim::Camera &camera) {
            if (camera.Model().controller == vscsim::ControllerKind::Fx3)
                std::ranges::copy(record, camera.Flash().begin() + kHotPixelAddress);
        });
    }

    void Play(const Case &c)
    {
        HostSession host;
        host.darkFile = m_darkFile.c_str();
        for (const SessionStep &step : kSession) {
            SCOPED_TRACE(step.name);
            bool done = Do(step, host);
            for (size_t i = 0; i < c.failures.size() && !done && !c.Spoils(); ++i)
                done = DoAgain(step, host, c.lasting);
            EXPECT_TRUE(done || c.Spoils());
            // What a session before leaves in the registers is not all set anew before there are
            // frames.
            if (done && !c.Refuses() &&
                (step.proof == Proof::VideoFrame || (step.proof == Proof::Programmed && m_fresh)))
                CompareRegisters(step.name);
        }
        EXPECT_TRUE(host.broken == 0 || c.Refuses());
        m_fresh = false;
    }

    static bool Do(const SessionStep &step, HostSession &host)
    {
        const uint32_t start = GetTickCount();
        const bool done = step.run(host);
        EXPECT_LE(ElapsedMs(start), step.limitMs);
        return done;
    }

    /// A video goes on by itself, within 5 s and five times the wait for a frame. Anything else
    /// has to be done once more.
    static bool DoAgain(const SessionStep &step, HostSession &host, Lasting lasting)
    {
        if (lasting == kUntilNoticed)
            Bus().MendCalls();
        const auto limit = Clock::now() + 5s + 5 * 1010ms;
        SleepFor(2s);
        bool done = false;
        do {
            done = Do(step, host);
        } while (!done && step.proof == Proof::VideoFrame && Clock::now() < limit);
        return done;
    }

    void CompareRegisters(const char *step)
    {
        auto is = Registers(m_device);
        if (!isUSB3Camera())
            is.erase(usb2::kLineLength); // grows when frames get lost
        const auto [expected, learned] = m_registers.try_emplace(step, is);
        std::vector<std::pair<int, int>> differences;
        std::ranges::set_symmetric_difference(is, expected->second,
                                              std::back_inserter(differences));
        EXPECT_EQ(differences, (std::vector<std::pair<int, int>>()));
    }

    const std::string m_darkFile = TemporaryFile("dark.bmp");
    std::map<std::string_view, std::map<int, int>> m_registers; // expected, by step
    int m_device = 0;
    bool m_fresh = true; // its registers are as after power-on
};

/// The case that is to be tried alone, if one is.
std::optional<Case> Told()
{
    const char *text = std::getenv("VSCCAM_FAIL"); // NOLINT(concurrency-mt-unsafe)
    return text ? std::optional(CaseOf(text)) : std::nullopt;
}

/// The families by day, all models by night.
std::vector<std::string> Models()
{
    if (const auto told = Told())
        return {told->model};
    std::vector<std::string> models;
    for (const vscsim::ModelFacts &facts : vscsim::AllModels())
        if (EveryPoint() ? !FindProduct(facts.productId)->IsVariant()
                         : std::ranges::count(kFamilies, std::string_view(facts.name)) > 0)
            models.emplace_back(facts.name);
    return models;
}

/// Each of these found a fault once.
constexpr const char *kFound[] = {
    "VSC048MM until-closed libusb_control_transfer 411 LIBUSB_ERROR_PIPE"
    " libusb_cancel_transfer 4 LIBUSB_ERROR_OTHER",
    "VSC340MM once libusb_control_transfer 97 LIBUSB_ERROR_IO"
    " libusb_alloc_transfer 2 LIBUSB_ERROR_NO_MEM",
};

/// A number in the place of another, so that those which are picked by it have no period in common
/// with a table.
uint32_t Mixed(uint32_t number)
{
    return number * 2654435761U >> 8;
}

/// By day, each call fails once in the two likeliest ways, and some in all the others.
TEST_P(EveryCall, FailsAlone)
{
    Learn();
    if (const auto told = Told()) {
        if (m_part == 0)
            Try(*told);
        return;
    }
    const uint64_t ofTheRest = Stride(31);
    size_t n = 0;
    uint32_t chosen = 0;
    for (const auto &[function, codes] : kFallible)
        for (uint64_t call = 0; call < m_calls[function]; ++call)
            for (const int &code : codes)
                for (const Lasting lasting : {kOnce, kUntilNoticed, kUntilClosed}) {
                    const bool likely = lasting == kOnce && &code - codes.data() < 2;
                    if ((likely || n++ % ofTheRest == 0) &&
                        Mixed(chosen++) % (kParts * kSlowness) == m_part)
                        Try({m_model, lasting, {{function, call, code}}});
                }
}

TEST_P(EveryCall, FailsInPairs)
{
    if (Told())
        return;
    Learn();
    for (const char *text : kFound)
        if (const Case c = CaseOf(text); c.model == m_model && m_part == 0)
            Try(c);
    const char *chosen = std::getenv("VSCCAM_SEED"); // NOLINT(concurrency-mt-unsafe)
    const uint64_t seed = chosen ? std::stoull(chosen) : EveryPoint() ? std::random_device()() : 1;
    std::cout << "VSCCAM_SEED=" << seed << "\n";
    std::mt19937_64 random(seed + m_part);
    const auto draw = [&] {
        const Fallible &fallible =
            random() % 2 ? kControl : kFallible[random() % std::size(kFallible)];
        const uint64_t calls = std::max<uint64_t>(m_calls[fallible.function], 5);
        return Failure{fallible.function, random() % calls,
                       fallible.codes[static_cast<size_t>(random() % fallible.codes.size())]};
    };
    for (uint64_t i = 0; i < (EveryPoint() ? 160 : 16) / kSlowness; ++i) {
        const auto lasting = static_cast<Lasting>(random() % 3);
        const Failure first = draw();
        Try({m_model, lasting, {first, draw()}});
    }
}

INSTANTIATE_TEST_SUITE_P(Models, EveryCall,
                         testing::Combine(testing::ValuesIn(Models()),
                                          testing::Range(size_t{0}, EveryCall::kParts)));

} // namespace
} // namespace vsccam
