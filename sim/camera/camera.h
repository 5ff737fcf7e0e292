#pragma once

#include "camera/fault_plan.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// The simulated cameras. They know the wire (requests in, image bytes out), not the driver, and
/// share no code with it: registers are decoded by names and rules of their own, so that a wrong
/// constant in the driver shows as a wrong picture.
namespace vscsim {

/// Time of the camera, passed in by whoever drives it.
using Time = std::chrono::nanoseconds;
inline constexpr Time kNever = Time::max();

/// One control transfer on endpoint 0, as a device sees it.
struct ControlRequest {
    uint8_t requestType = 0; // bmRequestType; the device-to-host bit is 0x80
    uint8_t request = 0;
    uint16_t value = 0;
    uint16_t index = 0;
    uint16_t length = 0;                // wLength
    std::span<const uint8_t> data = {}; // of a host-to-device data stage, `length` bytes

    bool In() const { return (requestType & 0x80) != 0; }
};

/// How a transfer ended. The doors turn it into a libusb or kernel code.
enum class Outcome { Ok, Stall, Timeout, IoError, Overflow, NoDevice };

struct ControlReply {
    Outcome outcome = Outcome::Ok;
    std::vector<uint8_t> data = {}; // of a device-to-host data stage; may be shorter than asked
};

/// What the bus sees of a camera that was reset.
enum class AfterReset {
    SameDevice, // it goes on
    NewDevice,  // it boots: it leaves the bus and comes back after a power cycle
    Gone,       // it does not come back
};

/// What a bulk IN transfer at the head of the endpoint's queue gets.
struct BulkReply {
    bool complete = false;         // false: nothing decided yet, ask again at `readyAt`
    Outcome outcome = Outcome::Ok; // once complete
    size_t bytes = 0;              // written into the transfer's buffer so far
    Time readyAt = kNever;         // when something can change without a request of the host
};

/// How a camera comes back that was unplugged.
struct Return {
    Time after{};
    bool elsewhere = false; // at another port
};

/// What became of a camera's frames. The rest of those read out was dropped by a request of the
/// host, replaced by a fault, or is still held.
struct FrameCounts {
    uint64_t produced = 0; // read out by the sensor
    uint64_t sent = 0;     // to their last byte
    uint64_t lost = 0;     // read out when the host had not taken the one before
};

/// Speaks for a camera that lies: what a working camera answers and sends passes through here, and
/// may become anything.
class Forger {
  public:
    virtual ~Forger() = default;

    virtual void Answer(const ControlRequest &request, ControlReply &reply) = 0;
    /// `reply` is what the camera says of the transfer at the head of the queue, `room` its buffer.
    virtual void Send(std::span<uint8_t> room, BulkReply &reply) = 0;
};

/// What became of a frame that the sensor read out.
enum class FrameEnd {
    Whole,   // the host took all of it, at one go
    Spoiled, // the host took what a fault left of it, or took it in two pieces
    Cut,     // the host took a part, then the rest was dropped: a halt cleared, a reset
    Ended,   // the same, because the stream was stopped or the camera unplugged
    Joined,  // it began behind the end of another one in the same transfer, where nobody looks
    Unread,  // no byte of it left the camera
};

enum class Scene { Pattern, Sky, Moon };
enum class LinkSpeed { High, Super };

struct CameraOptions {
    Scene scene = Scene::Pattern;
    LinkSpeed link = LinkSpeed::Super;
    uint64_t seed = 1;                      // of the sky, its air and noise, and the random faults
    std::array<double, 3> glow = {1, 1, 1}; // of the sky in red, green, blue, times that at dusk
    double seeing = 0;                      // how unsteady the air is; 1 on an average night
    double driftPerS = 0;                   // pixels; what the mount does not follow of the sky
    bool capped = false;                    // the sky does not reach the sensor, for dark frames
    bool flawless = false; // its sensor has no noise, no dark current and no hot pixels
    double speed = 1.0;    // times real time; 0: a frame is ready as soon as one is asked for
    bool readableDescriptor = true;
    size_t framesMadeBeforehand = 0; // so many are made once and sent in turn; 0: each is made anew
    std::optional<uint64_t> frameLimit = {}; // the camera falls silent after so many frames
    FaultPlan faults = {};
    double ambientC = 20.0;       // of the air around the camera
    uint8_t firmwareVersion = 3;  // that the camera is delivered with
    std::string flashFile = {};   // keeps the SPI flash: read at the start, written on changes
    std::string requestFile = {}; // gets a line for each control request and frame, see LineOf
    std::shared_ptr<Forger> forger = {};
    /// Is told of the end of each frame, with its number since the stream was started.
    std::function<void(uint32_t, FrameEnd)> onFrameEnd = {};
};

/// The colours of the first two pixels of the first row.
enum class Mosaic { None, RG, BG, GR, GB };

/// The USB controllers. Of Cypress; the Fx2 knows no SuperSpeed.
enum class ControllerKind { Fx2, Fx3 };

struct SensorFamily;

/// What `vscsim list` and the doors need to know of a model.
struct ModelFacts {
    const char *maker;
    const char *name; // "VSC470MM", as a user types it
    uint16_t productId;
    int sensorWidth;
    int sensorHeight;
    Mosaic mosaic;
    bool cooled;
    ControllerKind controller;
    const SensorFamily *family; // what models with one sensor share

    bool Colour() const { return mosaic != Mosaic::None; }
    uint8_t ImageEndpoint() const { return controller == ControllerKind::Fx2 ? 0x82 : 0x81; }
};

/// All simulated models, in the order of their names.
std::span<const ModelFacts> AllModels();

/// Finds a model by name, case and the name of its maker before it ignored; nullptr when there is
/// none.
const ModelFacts *FindModel(std::string_view name);

/// The vendor ID that all simulated cameras carry.
uint16_t VendorId();

/// One simulated camera. Not thread-safe: a door serialises its calls.
class Camera {
  public:
    Camera(const ModelFacts &model, const CameraOptions &options);
    ~Camera();
    Camera(Camera &&) noexcept;
    Camera &operator=(Camera &&) noexcept;

    const ModelFacts &Model() const;
    const CameraOptions &Options() const; // the link is what the controller knows at most

    /// Answers a vendor request of endpoint 0.
    ControlReply Control(const ControlRequest &request, Time now);

    /// Serves the bulk IN transfer at the head of the queue of `endpoint`. `room` is its whole
    /// buffer, `filled` what earlier calls for the same transfer wrote. A transfer is complete when
    /// the buffer is full, when a frame ends with a packet shorter than the endpoint's packet size,
    /// or on an error. When the host gives up, it takes the `bytes` written so far.
    BulkReply Bulk(uint8_t endpoint, std::span<uint8_t> room, size_t filled, Time now);

    /// Lets the camera go on to the present, as every transfer does: for the counts of its frames,
    /// and for faults that come by themselves.
    void Advance(Time now);
    /// When the next of those comes.
    Time NextFault() const;
    /// Whether a fault of the plan took it from the bus.
    bool IsUnplugged() const;

    /// Tells that the host gave up the transfer at the head of the queue (cancelled, timed out).
    /// A camera cannot see it; only an empty frame of the fault plan ends with it, so that one
    /// empty frame is one empty read whatever the host's time-out is.
    void GiveUp(uint8_t endpoint, Time now);

    /// What the standard requests of the USB core do to the camera. Clearing the halt drops what is
    /// left of the frame being sent; so do the requests that switch the data path. A reset also
    /// switches the data path off; registers survive it.
    void ClearHalt(uint8_t endpoint, Time now);
    AfterReset Reset(Time now);

    /// Another fault plan until power is off. Its rules count from now on.
    void PlanFaults(const FaultPlan &plan);

    /// Whether a fault of the plan keeps it from answering anything.
    bool IsMute() const;

    /// Of one that the plan has unplugged; nothing when it stays away.
    std::optional<Return> ComesBack() const;
    /// Then: as after a power cycle, but the fault plan goes on.
    void PlugInAgain();

    /// Power was off: registers and the fault plan start anew, flash and EEPROM keep their
    /// contents.
    void PowerCycle() { PowerCycle(Options().link); }
    /// On a port of another speed from then on, as far as the controller knows it.
    void PowerCycle(LinkSpeed link);

    /// 1024 at SuperSpeed, 512 at high speed.
    size_t BulkPacketSize() const;

    /// Since it was plugged in.
    FrameCounts Frames() const;
    uint64_t FramesProduced() const { return Frames().produced; }

    /// The values that the host programmed, for tests that look behind the wire.
    double Celsius(Time now) const; // of the sensor, whatever its thermometer tells
    uint8_t SonyRegister(uint16_t address) const;
    uint16_t FpgaRegister(uint8_t number) const;
    uint16_t SensorRegister(uint16_t address) const;
    std::span<uint8_t> Flash();  // 1 MiB
    std::span<uint8_t> Eeprom(); // 64 KiB, or 8 devices of 64 KiB behind the USB 3.0 controller
    /// What the host loaded into the controller's memory; 0 where it loaded nothing.
    std::vector<uint8_t> Ram(uint32_t address, size_t length) const;
    /// Where it told the USB 3.0 controller to begin.
    std::optional<uint32_t> ProgramEntry() const;

  private:
    struct State;
    std::unique_ptr<State> m_state;
};

} // namespace vscsim
