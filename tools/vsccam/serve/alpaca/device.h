#pragma once

#include "serve/camera_works.h"
#include "serve/http/message.h"
#include "serve/jobs.h"

#include <cstdint>
#include <map>
#include <mutex>
#include <stdexcept>
#include <string>

namespace vsctool::serve {

/// What a client is told, in its own words and numbers, when the camera does not do what it asks.
class AlpacaError : public std::runtime_error {
  public:
    enum Number {
        kNotImplemented = 0x400,
        kInvalidValue = 0x401,
        kNotConnected = 0x407,
        kInvalidOperation = 0x40B,
        kActionNotImplemented = 0x40C,
        kOther = 0x500,
    };

    AlpacaError(Number number, const std::string &message)
        : std::runtime_error(message), m_number(number)
    {
    }
    int Code() const { return m_number; }

  private:
    int m_number;
};

/// What one client has asked for: the frames that it wants, and the last one that it got. Others
/// have their own, so that nobody takes the picture, or changes the region, of somebody else.
struct AlpacaClient {
    bool connected = false;
    int bin = 1;
    Region region; // in binned pixels; may be one that does not fit, until an exposure is asked for
    PixelFormat format = PixelFormat::kRaw16;
    std::shared_ptr<const TakenPicture> picture; // its last one
    Region part;                                 // of that picture
    bool exposing = false;
    std::string failure; // of the last exposure; empty also when it was aborted
    uint64_t turn = 0;   // when it was heard last
};

/// The camera as Alpaca sees it. Any thread may use it; what a function returns as work is for the
/// camera's thread. All throw AlpacaError.
class AlpacaDevice {
  public:
    AlpacaDevice(CameraWorks &works, JobQueue &jobs);

    CameraWorks &Works() { return m_works; }
    const CameraFacts &Facts() const { return m_works.Facts(); }

    /// Calls `use` with what is known of a client. Who has never said who it is, shares what the
    /// client has that was heard last.
    template <class Use> auto With(uint32_t id, Use use)
    {
        const std::lock_guard lock(m_mutex);
        return use(Of(id));
    }

    void Connect(uint32_t id, bool connect);
    bool IsConnected(uint32_t id);
    /// Throws kNotConnected.
    void RequireConnection(uint32_t id);

    /// Sensor pixels that every binning can show without a remainder.
    int Width() const { return m_width; }
    int Height() const { return m_height; }

    /// Checks what is asked for, and says how to do it.
    Job::Work StartExposure(uint32_t id, double seconds, bool light);
    Job::Work AbortExposure(uint32_t id);

  private:
    AlpacaClient &Of(uint32_t id);
    void Forget();
    void Took(uint32_t id, const Region &asked, std::shared_ptr<const TakenPicture> picture,
              const std::string &failure);
    static Region PartOf(const TakenPicture &picture, const Region &asked);

    CameraWorks &m_works;
    JobQueue &m_jobs;
    int m_width = 0;
    int m_height = 0;

    std::mutex m_mutex; // guards what follows
    std::map<uint32_t, AlpacaClient> m_clients;
    uint64_t m_turn = 0;
};

} // namespace vsctool::serve
