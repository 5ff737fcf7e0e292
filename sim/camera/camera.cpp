#include "camera/camera.h"

#include "camera/board.h"
#include "camera/controller.h"
#include "camera/fault_injector.h"
#include "camera/frame_stream.h"
#include "camera/request_line.h"

#include <fstream>
#include <utility>

namespace vscsim {
namespace {

constexpr size_t PacketSize(LinkSpeed link)
{
    return link == LinkSpeed::Super ? 1024 : 512;
}

/// The options as far as the camera can follow them.
CameraOptions Possible(const ModelFacts &model, CameraOptions asked)
{
    if (model.controller == ControllerKind::Fx2)
        asked.link = LinkSpeed::High;
    return asked;
}

Memories MakeMemories(const ModelFacts &model, const CameraOptions &options)
{
    constexpr size_t kEepromBytes = size_t{64} << 10;
    constexpr size_t kDevices = 8; // that the larger controller can address
    return {.flash = SpiFlash(options.flashFile),
            .eeprom = Eeprom(model.controller == ControllerKind::Fx2 ? kEepromBytes
                                                                     : kDevices * kEepromBytes)};
}

std::unique_ptr<SceneSource> MakeSource(const ModelFacts &model, const CameraOptions &options)
{
    return options.scene == Scene::Pattern ? MakePatternSource() : MakeSkySource(model, options);
}

} // namespace

struct Camera::State {
    State(const ModelFacts &facts, CameraOptions chosen, Memories memories)
        : model(facts), options(Possible(facts, std::move(chosen))),
          board(facts, options, std::move(memories)), scene(MakeSource(facts, options)),
          faults(options.faults, options.seed),
          stream(board, *scene, faults, options, PacketSize(options.link)),
          controller(MakeController(facts, board, stream)),
          requestFile(options.requestFile, std::ios::app)
    {
    }

    void StrikeByTime(Time now)
    {
        for (const FaultRule &hit : faults.ForTime(now))
            board.Strike(hit);
    }

    /// What a request gets before the firmware sees it.
    std::optional<Outcome> Preempted(const std::vector<FaultRule> &hits)
    {
        for (const FaultRule &hit : hits)
            board.Strike(hit);
        if (board.condition != Board::Condition::Working)
            return board.condition == Board::Condition::Mute ? Outcome::Timeout : Outcome::NoDevice;
        for (const FaultRule &hit : hits) {
            if (hit.fault == Fault::RefuseRequest)
                return Outcome::Stall;
            if (hit.fault == Fault::TimeOutRequest)
                return Outcome::Timeout;
        }
        return std::nullopt;
    }

    ModelFacts model;
    CameraOptions options;
    Board board;
    std::unique_ptr<SceneSource> scene;
    FaultInjector faults;
    FrameStream stream;
    std::unique_ptr<Controller> controller;
    std::ofstream requestFile;
};

Camera::Camera(const ModelFacts &model, const CameraOptions &options)
    : m_state(std::make_unique<State>(model, options, MakeMemories(model, options)))
{
}

void Camera::PowerCycle(LinkSpeed link)
{
    const ModelFacts model = m_state->model;
    CameraOptions options = std::move(m_state->options);
    options.link = link;
    Memories kept = {std::move(m_state->board.flash), std::move(m_state->board.eeprom)};
    m_state.reset(); // first, as there may be no memory for two
    m_state = std::make_unique<State>(model, std::move(options), std::move(kept));
}

void Camera::PlugInAgain()
{
    FaultInjector plan = std::move(m_state->faults);
    PowerCycle();
    m_state->faults = std::move(plan);
}

std::optional<Return> Camera::ComesBack() const
{
    return m_state->board.comesBack;
}

Camera::~Camera() = default;
Camera::Camera(Camera &&) noexcept = default;
Camera &Camera::operator=(Camera &&) noexcept = default;

const ModelFacts &Camera::Model() const
{
    return m_state->model;
}

const CameraOptions &Camera::Options() const
{
    return m_state->options;
}

ControlReply Camera::Control(const ControlRequest &request, Time now)
{
    if (m_state->requestFile.is_open())
        m_state->requestFile << LineOf(request) << std::endl; // readers want each when it comes
    m_state->StrikeByTime(now);
    const std::vector<FaultRule> hits = m_state->faults.ForRequest(request.request);
    if (const auto outcome = m_state->Preempted(hits))
        return {.outcome = *outcome};
    m_state->stream.Advance(now);
    ControlReply reply = m_state->controller->Answer(request, now);
    m_state->stream.FollowBoard(now);
    if (const auto pulse = std::exchange(m_state->board.guided, std::nullopt);
        pulse && m_state->requestFile.is_open())
        m_state->requestFile << LineOf(*pulse) << std::endl;
    for (const FaultRule &hit : hits) {
        if (hit.amount >= reply.data.size())
            continue;
        const auto place = static_cast<size_t>(hit.amount);
        if (hit.fault == Fault::ShortAnswer)
            reply.data.resize(place);
        if (hit.fault == Fault::CorruptAnswer)
            reply.data[place] = static_cast<uint8_t>(~reply.data[place]);
    }
    if (m_state->options.forger)
        m_state->options.forger->Answer(request, reply);
    return reply;
}

BulkReply Camera::Bulk(uint8_t endpoint, std::span<uint8_t> room, size_t filled, Time now)
{
    m_state->StrikeByTime(now);
    const Board &board = m_state->board;
    BulkReply reply{.bytes = filled};
    if (endpoint != m_state->model.ImageEndpoint())
        return {.complete = true, .outcome = Outcome::Stall, .bytes = filled};
    if (board.condition == Board::Condition::Working)
        reply = m_state->stream.Serve(room, filled, now);
    if (const auto exposure = m_state->stream.TakeAccount())
        m_state->requestFile << LineOf(*exposure) << std::endl;
    if (board.condition == Board::Condition::Unplugged)
        return {.complete = true, .outcome = Outcome::NoDevice, .bytes = reply.bytes};
    if (m_state->options.forger && board.condition == Board::Condition::Working)
        m_state->options.forger->Send(room, reply);
    return reply;
}

void Camera::Advance(Time now)
{
    m_state->StrikeByTime(now);
    m_state->stream.Advance(now);
}

Time Camera::NextFault() const
{
    return m_state->faults.NextByTime();
}

bool Camera::IsUnplugged() const
{
    return m_state->board.condition == Board::Condition::Unplugged;
}

void Camera::GiveUp(uint8_t endpoint, Time now)
{
    if (endpoint == m_state->model.ImageEndpoint())
        m_state->stream.GiveUp(now);
}

void Camera::ClearHalt(uint8_t endpoint, Time now)
{
    if (endpoint != m_state->model.ImageEndpoint())
        return;
    m_state->stream.Advance(now);
    m_state->stream.ClearHalt();
}

AfterReset Camera::Reset(Time now)
{
    Board::Condition &condition = m_state->board.condition;
    if (!m_state->faults.ForReset().empty())
        condition = Board::Condition::Unplugged;
    if (condition == Board::Condition::Unplugged)
        return AfterReset::Gone;
    if (condition == Board::Condition::Mute || m_state->controller->BootsAtReset())
        return AfterReset::NewDevice;
    m_state->stream.Advance(now);
    m_state->board.dataPath = false;
    m_state->stream.ClearHalt();
    m_state->stream.FollowBoard(now);
    return AfterReset::SameDevice;
}

void Camera::PlanFaults(const FaultPlan &plan)
{
    m_state->faults.Plan(plan);
}

bool Camera::IsMute() const
{
    return m_state->board.condition == Board::Condition::Mute;
}

size_t Camera::BulkPacketSize() const
{
    return PacketSize(m_state->options.link);
}

double Camera::Celsius(Time now) const
{
    return m_state->board.climate.Celsius(now);
}

FrameCounts Camera::Frames() const
{
    return m_state->stream.Counts();
}

uint8_t Camera::SonyRegister(uint16_t address) const
{
    return m_state->board.sensor->ReadByte(address);
}

uint16_t Camera::FpgaRegister(uint8_t number) const
{
    return m_state->board.fpga.Read(number);
}

uint16_t Camera::SensorRegister(uint16_t address) const
{
    return m_state->board.sensor->ReadWord(address);
}

std::span<uint8_t> Camera::Flash()
{
    return m_state->board.flash.Contents();
}

std::span<uint8_t> Camera::Eeprom()
{
    return m_state->board.eeprom.Contents();
}

std::vector<uint8_t> Camera::Ram(uint32_t address, size_t length) const
{
    return m_state->controller->RamContents(address, length);
}

std::optional<uint32_t> Camera::ProgramEntry() const
{
    return m_state->controller->ProgramEntry();
}

} // namespace vscsim
