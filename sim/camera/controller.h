#pragma once

#include "camera/board.h"
#include "camera/camera.h"
#include "camera/frame_stream.h"

#include <algorithm>
#include <optional>
#include <span>

namespace vscsim {

/// A USB controller's firmware: answers the vendor requests with the parts of the board. Here
/// stands what all cameras understand.
class Controller {
  public:
    Controller(Board &board, FrameStream &stream) : m_board(board), m_stream(stream) {}
    Controller(const Controller &) = delete;
    Controller &operator=(const Controller &) = delete;
    virtual ~Controller() = default;

    /// The answer, no longer than the host asked for; a request that nobody knows is stalled.
    ControlReply Answer(const ControlRequest &request, Time now);

    /// Whether a reset of the device makes the controller boot, so that it appears anew.
    virtual bool BootsAtReset() const { return false; }

    /// Bytes of the processor's memory.
    std::vector<uint8_t> RamContents(uint32_t address, size_t length) const
    {
        return m_ram.Read(address, length);
    }
    /// Where the host let the processor begin, if it did.
    virtual std::optional<uint32_t> ProgramEntry() const { return std::nullopt; }

  protected:
    template <class Firmware> struct Request {
        uint8_t code;
        bool in;
        ControlReply (Firmware::*answer)(const ControlRequest &, Time);
    };

    /// The answer of the request's row; nothing when it has none.
    template <class Firmware>
    static std::optional<ControlReply> AnswerFrom(std::span<const Request<Firmware>> rows,
                                                  Firmware &firmware, const ControlRequest &request,
                                                  Time now)
    {
        const auto row = std::ranges::find_if(rows, [&request](const Request<Firmware> &known) {
            return known.code == request.request && known.in == request.In();
        });
        if (row == rows.end())
            return std::nullopt;
        return (firmware.*row->answer)(request, now);
    }

    /// The answer to a request of this controller alone; nothing leaves it to the common ones.
    virtual std::optional<ControlReply> AnswerOwn(const ControlRequest &request, Time now) = 0;

    static ControlReply Done() { return {}; }
    static ControlReply Stalled() { return {.outcome = Outcome::Stall}; }
    static ControlReply DoneIf(bool worked) { return worked ? Done() : Stalled(); }
    static ControlReply Data(std::vector<uint8_t> bytes) { return {.data = std::move(bytes)}; }
    static uint8_t LowByte(int value) { return static_cast<uint8_t>(value & 0xFF); }

    void StopStream();

    Board &m_board;
    FrameStream &m_stream;
    Ram m_ram;

  private:
    static const Request<Controller> kRequests[];

    ControlReply WriteSensorByte(const ControlRequest &request, Time now);
    ControlReply ReadSensorByte(const ControlRequest &request, Time now);
    ControlReply WriteSensorWord(const ControlRequest &request, Time now);
    ControlReply ReadSensorWord(const ControlRequest &request, Time now);
    ControlReply FirmwareVersion(const ControlRequest &request, Time now);
    ControlReply StartDataPath(const ControlRequest &request, Time now);
    ControlReply StopDataPath(const ControlRequest &request, Time now);
    ControlReply StartSensorClock(const ControlRequest &request, Time now);
    ControlReply StopSensorClock(const ControlRequest &request, Time now);
    ControlReply GuideOn(const ControlRequest &request, Time now);
    ControlReply GuideOff(const ControlRequest &request, Time now);

    ControlReply SwitchGuide(const ControlRequest &request, bool on, Time now);
};

std::unique_ptr<Controller> MakeController(const ModelFacts &model, Board &board,
                                           FrameStream &stream);

} // namespace vscsim
