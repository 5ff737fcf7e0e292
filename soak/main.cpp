// Soak: simulated video for hours, in virtual time, while anything goes wrong.
//
//   soak [--minutes N] [--episodes N] [--first SEED] [--largest] [--parallel]
//   soak --seed SEED [--largest] [--parallel]
//
// The second form repeats the episode of one seed. With --parallel threads run as the machine has
// it and not in turn, which is for tools that look for races.
#include "soak/episode.h"

#include <malloc.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;
using soak::Episode;
using SystemClock = std::chrono::steady_clock;

/// What the processes share.
struct Board {
    soak::Counts counts;
    std::atomic<uint64_t> seed;
    char fault[400];
};
Board *g_board = nullptr;
bool g_inTurn = true;

constexpr uint64_t kInOneProcess = 100; // episodes
constexpr char kLog[] = "soak.log";     // of the last one

// What tools keep to themselves is no growth of the library.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(__arm__)
constexpr bool kOwnMemory = false;
#else
constexpr bool kOwnMemory = true;
#endif
constexpr size_t kGrowthKiB = 1024;

// An episode takes seconds; this one hangs.
constexpr auto kHang = 10min;

/// Runs `body` in a process of its own.
/// @param log  keeps what the library prints; without one, complaints are of no interest either
/// @return whether it came to its end and found nothing
template <class Body> bool InChild(const char *log, Body body)
{
    g_board->fault[0] = '\0';
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        FILE *const output = log ? std::fopen(log, "w+") : std::tmpfile();
        if (!output || dup2(fileno(output), STDOUT_FILENO) < 0 ||
            (!log && !std::freopen("/dev/null", "w", stderr)))
            std::abort();
        std::exit(body() ? 0 : 1); // leaks are looked for now
    }
    int status = 0;
    uint64_t episodes = g_board->counts.episodes;
    for (auto since = SystemClock::now(); waitpid(child, &status, WNOHANG) == 0;
         std::this_thread::sleep_for(20ms)) {
        if (episodes != g_board->counts.episodes)
            since = SystemClock::now();
        episodes = g_board->counts.episodes;
        if (SystemClock::now() - since > kHang)
            (void)kill(child, SIGABRT);
    }
    if (WIFSIGNALED(status) || (WIFEXITED(status) && WEXITSTATUS(status) > 1))
        std::snprintf(g_board->fault, sizeof g_board->fault, "it crashed, see above");
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

bool RunOne(const Episode &episode)
{
    g_board->seed = episode.seed;
    const std::string fault = Run(episode, g_inTurn, g_board->counts);
    std::snprintf(g_board->fault, sizeof g_board->fault, "%s", fault.c_str());
    return fault.empty();
}

/// What went wrong, whatever the numbers in it.
std::string KindOfFault()
{
    std::string kind = g_board->fault;
    std::erase_if(kind, [](char c) { return c >= '0' && c <= '9'; });
    return kind;
}

/// Threads that run all at once do not fail each time.
bool Fails(const Episode &episode, const char *log = nullptr)
{
    for (int tries = g_inTurn ? 1 : 4; tries > 0; --tries) {
        if (!InChild(log, [&] { return RunOne(episode); }))
            return true;
    }
    return false;
}

/// Leaves out events, halves first, as long as the episode fails in the same way without them.
void Shrink(Episode &episode)
{
    const std::string kind = KindOfFault();
    for (size_t size = std::max<size_t>(episode.events.size() / 2, 1); size > 0; size /= 2) {
        for (size_t at = 0; at < episode.events.size();) {
            Episode less = episode;
            const auto from = less.events.begin() + static_cast<std::ptrdiff_t>(at);
            less.events.erase(
                from, from + static_cast<std::ptrdiff_t>(std::min(size, less.events.size() - at)));
            if (Fails(less) && KindOfFault() == kind)
                episode = less;
            else
                at += size;
        }
    }
}

int Report(Episode episode)
{
    std::fprintf(stderr, "soak: seed %llu failed: %s\n",
                 static_cast<unsigned long long>(episode.seed), g_board->fault);
    if (!Fails(episode)) {
        std::fprintf(stderr, "soak: it does not fail by itself\n");
        return 1;
    }
    Shrink(episode);
    (void)Fails(episode, kLog);
    std::fprintf(stderr, "soak: the shortest run that shows it, %s at %s: %s\n", episode.model,
                 episode.link == vscsim::LinkSpeed::Super ? "SuperSpeed" : "high speed",
                 g_board->fault);
    for (const soak::Event &event : episode.events)
        std::fprintf(stderr, "  %6d ms  %s (%u)\n", event.atMs, event.deed->name, event.seed);
    return 1;
}

void PrintCounts()
{
    const soak::Counts &counts = g_board->counts;
    const auto number = [](uint64_t n) { return static_cast<unsigned long long>(n); };
    std::printf("%llu episodes, %llu frames and %llu exposures delivered, each pixel checked\n",
                number(counts.episodes), number(counts.delivered), number(counts.exposures));
    const char *const ends[] = {"whole", "spoiled", "cut", "ended", "joined", "unread"};
    std::printf("frames of the cameras:");
    for (size_t i = 0; i < std::size(ends); ++i)
        std::printf(" %s %llu", ends[i], number(counts.ends[i]));
    std::printf("\nevents:");
    for (const soak::Deed &deed : soak::AllDeeds())
        std::printf(" %s %llu,", deed.name, number(counts.events[&deed - soak::AllDeeds().data()]));
    std::printf("\n");
}

/// Whether enough went wrong for the result to say something.
bool TriedAll()
{
    constexpr uint64_t kMany = 100; // episodes, in which each of these comes about
    const soak::Counts &counts = g_board->counts;
    const auto ended = [&counts](vscsim::FrameEnd end) -> uint64_t {
        return counts.ends[static_cast<size_t>(end)];
    };
    return counts.episodes < kMany ||
           (counts.exposures > 0 && ended(vscsim::FrameEnd::Spoiled) > 0 &&
            ended(vscsim::FrameEnd::Cut) > 0);
}

/// What the process holds.
struct Footprint {
    Footprint()
    {
        const auto memory = mallinfo2(); // what is free stays with the process for a while
        usedKiB = (memory.uordblks + memory.hblkhd) / 1024;
        descriptors = EntriesOf("/proc/self/fd");
        threads = EntriesOf("/proc/self/task");
    }
    static long EntriesOf(const char *folder)
    {
        return std::distance(std::filesystem::directory_iterator(folder), {});
    }

    size_t usedKiB = 0;
    long threads = 0;
    long descriptors = 0;
};

bool IsNoLarger(const Footprint &now, const Footprint &before)
{
    const bool good = now.threads == before.threads && now.descriptors == before.descriptors &&
                      (!kOwnMemory || now.usedKiB <= before.usedKiB + kGrowthKiB);
    if (!good)
        std::snprintf(
            g_board->fault, sizeof g_board->fault,
            "the process grows: %zu to %zu KiB, %ld to %ld threads, %ld to %ld descriptors",
            before.usedKiB, now.usedKiB, before.threads, now.threads, before.descriptors,
            now.descriptors);
    return good;
}

struct Wishes {
    uint64_t first = 1;
    uint64_t episodes = UINT64_MAX;
    uint64_t minutes = 0; // no limit
    bool largest = false;
};

Wishes WishesIn(const std::vector<std::string_view> &words)
{
    Wishes wishes;
    for (size_t i = 0; i < words.size(); ++i) {
        const auto number = [&] {
            return i + 1 < words.size() ? std::strtoull(words[++i].data(), nullptr, 10) : 0;
        };
        if (words[i] == "--minutes")
            wishes.minutes = number();
        else if (words[i] == "--episodes")
            wishes.episodes = number();
        else if (words[i] == "--first")
            wishes.first = number();
        else if (words[i] == "--seed")
            wishes.first = number(), wishes.episodes = 1;
        else if (words[i] == "--largest")
            wishes.largest = true;
        else if (words[i] == "--parallel")
            g_inTurn = false;
        else
            std::exit((std::fprintf(stderr, "soak: what is '%s'?\n", words[i].data()), 2));
    }
    return wishes;
}

} // namespace

int main(int argc, char **argv)
{
    void *memory =
        mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        return 2;
    g_board = new (memory) Board;
    const Wishes wishes = WishesIn({argv + 1, argv + argc});
    std::printf("from seed %llu\n", static_cast<unsigned long long>(wishes.first));
    const auto until = SystemClock::now() + std::chrono::minutes(wishes.minutes);
    const auto goesOn = [&](uint64_t seed) {
        return seed - wishes.first < wishes.episodes &&
               (wishes.minutes == 0 || SystemClock::now() < until);
    };
    for (uint64_t seed = wishes.first; goesOn(seed); seed += kInOneProcess) {
        const auto run = [&] {
            std::optional<Footprint> atFirst;
            for (uint64_t s = seed; s < seed + kInOneProcess && goesOn(s); ++s) {
                if (!RunOne(Episode(s, wishes.largest)))
                    return false;
                if (s == seed + kInOneProcess / 4)
                    atFirst = Footprint();
            }
            return !atFirst || IsNoLarger(Footprint(), *atFirst);
        };
        if (!InChild(kLog, run))
            return Report(Episode(g_board->seed, wishes.largest));
    }
    PrintCounts();
    if (TriedAll())
        return 0;
    std::fprintf(stderr,
                 "soak: no exposure, or no frame that was spoiled or cut: it tries nothing\n");
    return 1;
}
