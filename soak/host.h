#pragma once

#include "base/clock.h"
#include "base/sync.h"
#include "soak/image.h"
#include "standin/bus.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace soak {

/// A host program with a camera on the simulated bus, which checks all that it gets: no frame that
/// the camera has not sent whole, none twice or out of order, no call beyond its time; and at the
/// end that each frame the camera sent was delivered or counted as dropped.
class Host {
  public:
    Host(const char *model, vscsim::LinkSpeed link);

    using Dice = std::minstd_rand;
    static int Roll(Dice &dice, size_t end) { return static_cast<int>(dice() / 7 % end); }

    // The operator, on one thread
    bool Open();
    void Close();
    void Start();
    void Stop();
    void Expose(int exposureMs, int abortAfterMs);
    void Format(int width, int height, int bin, int type);
    void Move(int x, int y);
    void SwitchBinning(bool hardware);
    void SwitchSpeed(bool high);
    /// That a camera which nobody disturbs any more delivers again.
    void ExpectVideo();
    /// Ends the reading.
    void Finish();
    /// Takes the camera off the bus, when all threads have ended, and compares its account of the
    /// frames with that of the library.
    void CompareAccounts();

    // Readers
    struct Reader {
        int waitMs = 500;
        size_t next = 0; // of the frames, the first that may still come
        std::vector<uint8_t> buffer = {};
    };
    void Read(Reader &reader);

    // Anybody
    template <class Call> auto Within(const char *name, int64_t boundMs, Call call);
    void Set(int control, int value, bool automatic);
    void Pulse(int line, int ms);
    void Fail(const std::string &what);

    // The bus
    void Spoil(const vscsim::FaultRule &rule);
    void Replug(int afterMs, const vscsim::Place &place);
    void PutBack();

    bool Ended() const { return m_ended; }
    bool Colour() const { return m_colour; }
    int Device() const { return m_device; }
    std::string Fault() const;

    std::atomic<int> kernelMs{200}; // that a reset or clearing a halt adds to a call
    // Frames that the library may count beyond the camera's account: it has a part of one that
    // opening over running video or the plugging in of a mute camera ended, and takes the rest of
    // one that stayed in the way for another.
    std::atomic<int> mayCountMore{0};

    struct Count {
        std::atomic<uint64_t> delivered, exposures;
        std::array<std::atomic<uint64_t>, 6> ends; // by vscsim::FrameEnd
    };
    Count counts{};

  private:
    struct Sent {
        uint32_t number;
        vscsim::FrameEnd end;
        bool taken = false;
        bool exposure = false; // a single one
    };
    struct Shown {
        Image image;
        vsccam::Clock::time_point until = vsccam::kNever; // no reading that began later shows it
    };

    bool ReadVideo(Reader &reader);
    void Change(const std::function<bool()> &change);
    Image PresentImage() const;
    void Check(const Reader &reader, vsccam::Clock::time_point began, size_t from, size_t *next);
    size_t SentSoFar();

    const int m_headBytes, m_tailBytes;
    const bool m_colour;
    const bool m_multipliesStart; // by the binning, at a new format, until a region is set
    int m_device = 0;

    std::mutex m_sentSection;
    std::vector<Sent> m_sent;

    vsccam::CriticalSection m_section;
    std::vector<Shown> m_shown;
    size_t m_runBegan = 0; // of the frames, the first of the present format and run
    std::string m_fault;
    std::atomic<bool> m_changing{false}, m_ended{false}, m_exposing{false};
    std::atomic<int> m_readersBusy{0};
    std::atomic<bool> m_open{false}, m_video{false}; // as far as the host knows
    int64_t m_dropsOfExposures = 0;
};

} // namespace soak
