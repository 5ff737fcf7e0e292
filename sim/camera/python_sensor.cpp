#include "camera/python_sensor.h"

#include <algorithm>
#include <array>

namespace vscsim {
namespace {

constexpr size_t kRegisters = 512; // decimal addresses, as the sensor numbers them
constexpr int kColumnStep = 8;     // of a window
constexpr double kGainOne = 128;
constexpr int kBlackStep = 4; // 10 bits on a scale of 12

// The sequencer's program, of which only two words are known; it needs the others as they are.
constexpr uint16_t kFirstWord = 384;
constexpr uint16_t kWordsEnd = 476;
constexpr uint16_t kKnownWords[] = {425, 427};

constexpr uint16_t kTimerUnit = 199; // clocks
constexpr uint16_t kExposure = 201;  // in timer units
constexpr uint16_t kGain = 205;
constexpr uint16_t kWindowTop = 257;
constexpr uint16_t kWindowBottom = 258; // the last row

} // namespace

/// A way to read out: what tells the sensor so, with the words of the program that belongs to it.
struct PythonSensor::Program {
    std::array<Condition, 6> needs;
    uint32_t shortestLine; // clocks: 640 pixels and what the sensor adds
};

const PythonSensor::Program PythonSensor::kPrograms[] = {
    {{{{{192, 2, 3}, 0},
       {{204, 0, 4}, 3},
       {{65, 4, 7}, 8},
       {{425, 0, 15}, 8310},
       {{427, 0, 15}, 113},
       {{192, 1, 1}, 0}}},
     720},
    {{{{{192, 2, 3}, 3},
       {{204, 0, 4}, 1},
       {{65, 4, 7}, 2},
       {{425, 0, 15}, 8316},
       {{427, 0, 15}, 116},
       {{192, 1, 1}, 0}}},
     648},
};

// Resets released, clocks managed, powered, the sequencer running.
const PythonSensor::Condition PythonSensor::kAwake[] = {
    {{8, 0, 7}, 0},  {{9, 0, 3}, 0},   {{10, 0, 11}, 0}, {{16, 0, 1}, 3}, {{32, 0, 2}, 7},
    {{34, 0, 0}, 1}, {{40, 0, 1}, 3},  {{42, 0, 1}, 3},  {{48, 0, 0}, 1}, {{64, 0, 0}, 1},
    {{72, 0, 2}, 7}, {{112, 0, 2}, 7}, {{192, 0, 0}, 1},
};

PythonSensor::PythonSensor(PixelArray pixels, const PythonTraits &traits)
    : m_pixels(pixels), m_traits(traits), m_registers(kRegisters)
{
    m_registers[8] = 0x099; // in reset
    m_registers[9] = 0x009;
    m_registers[10] = 0x999;
}

void PythonSensor::WriteWord(uint16_t address, uint16_t value)
{
    if (address >= kRegisters)
        return;
    m_registers[address] = value;
    if (address >= kFirstWord && address < kWordsEnd && !std::ranges::count(kKnownWords, address))
        m_programSpoiled = true;
}

uint16_t PythonSensor::ReadWord(uint16_t address) const
{
    return address < kRegisters ? m_registers[address] : uint16_t{0};
}

unsigned PythonSensor::Bits(Field field) const
{
    return (m_registers.at(field.address) >> field.lowestBit) &
           ((2U << (field.highestBit - field.lowestBit)) - 1);
}

bool PythonSensor::Awake() const
{
    return std::ranges::all_of(kAwake, [this](const Condition &c) { return Holds(c); });
}

/// Nothing while flags and program do not belong together.
const PythonSensor::Program *PythonSensor::RunningProgram() const
{
    const auto *const found = std::ranges::find_if(kPrograms, [this](const Program &program) {
        return std::ranges::all_of(program.needs, [this](const Condition &c) { return Holds(c); });
    });
    return found == std::end(kPrograms) || m_programSpoiled ? nullptr : found;
}

/// The part of the programmed window that the sensor has.
Window PythonSensor::ReadoutWindow() const
{
    const int left = std::min(static_cast<int>(Bits({256, 0, 7})) * kColumnStep, m_pixels.width);
    const int right =
        std::min((static_cast<int>(Bits({256, 8, 15})) + 1) * kColumnStep, m_pixels.width);
    const int top = std::min<int>(m_registers[kWindowTop], m_pixels.height);
    const int bottom = std::min(m_registers[kWindowBottom] + 1, m_pixels.height);
    return {.x = left,
            .y = top,
            .width = std::max(right - left, 0),
            .height = std::max(bottom - top, 0)};
}

double PythonSensor::ExposureUs() const
{
    return m_registers[kExposure] * (m_registers[kTimerUnit] * 1e6 / m_traits.clockHz);
}

SensorReadout PythonSensor::Readout() const
{
    const Program *const program = RunningProgram();
    return {.streaming = Awake() && program != nullptr,
            .window = ReadoutWindow(),
            .clockHz = m_traits.clockHz,
            .shortestLine = program != nullptr ? program->shortestLine : 0,
            .exposureUs = ExposureUs(),
            .gain = m_registers[kGain] / kGainOne,
            .blackLevel = static_cast<int>(Bits({128, 0, 7})) * kBlackStep};
}

} // namespace vscsim
