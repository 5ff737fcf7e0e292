#include "models/python/python_sequences.h"

#include <algorithm>
#include <array>

namespace vsccam::python {

namespace {

// The sensor needs its writes in this order. Most addresses are undocumented set-up. The compiler
// finds a lost row by the lengths, and a slip in a row where its bits cannot hold the value.

constexpr SensorWrite kSoftResetWrites[] = {Whole(8, 153), Whole(9, 9), Whole(10, 2457)};

constexpr SensorWrite kClockManagement1Writes[] = {
    {2, 0, 0, 0},    {2, 1, 1, 0},    {32, 3, 3, 0},  {32, 2, 2, 1},   {32, 12, 14, 0},
    {32, 12, 14, 2}, {32, 4, 5, 0},   {20, 0, 0, 0},  {17, 13, 14, 1}, {17, 8, 12, 1},
    {17, 0, 7, 19},  {26, 0, 7, 128}, {26, 8, 10, 2}, {26, 12, 14, 2}, {27, 0, 7, 45},
    {27, 8, 15, 61}, {8, 0, 3, 0},    {8, 4, 7, 0},   {16, 2, 2, 0},   {16, 0, 0, 1},
    {16, 1, 1, 1},
};
static_assert(std::size(kClockManagement1Writes) == 21);

constexpr SensorWrite kClockManagement2Writes[] = {
    {9, 0, 3, 0}, {32, 1, 1, 1}, {34, 0, 0, 1}, {128, 15, 15, 0}};

constexpr SensorWrite kRequiredUploadWrites[] = {
    {65, 0, 0, 1},    {129, 13, 13, 0}, {211, 4, 6, 4},   {192, 15, 15, 0}, {194, 6, 7, 0},
    Whole(197, 1),    {224, 0, 3, 2},   {224, 4, 7, 0},   {129, 1, 9, 0},   {129, 0, 0, 1},
    {211, 3, 3, 1},   {207, 0, 7, 0},   {129, 15, 15, 1}, {128, 0, 7, 20},  {128, 8, 10, 7},
    {128, 11, 14, 8}, {204, 0, 4, 3},   {204, 5, 12, 15}, {41, 8, 10, 0},   {41, 11, 12, 1},
    {42, 4, 6, 1},    {211, 1, 1, 0},   {215, 1, 1, 1},   {215, 2, 2, 1},   {215, 3, 3, 1},
    {215, 4, 4, 1},   {215, 9, 9, 0},   {215, 11, 11, 0}, {215, 12, 12, 1}, {227, 4, 4, 0},
    {43, 1, 1, 0},    {43, 2, 2, 0},    {43, 3, 3, 1},    {43, 0, 0, 0},    {70, 0, 3, 1},
    {70, 4, 7, 1},    {70, 8, 11, 1},   {70, 12, 15, 1},  {67, 0, 3, 5},    {67, 4, 7, 6},
    {67, 8, 11, 6},   {67, 12, 15, 0},  {66, 0, 3, 6},    {66, 4, 7, 12},   {68, 0, 3, 5},
    {194, 9, 9, 1},   {192, 11, 13, 1},
};
static_assert(std::size(kRequiredUploadWrites) == 47);

constexpr SensorWrite kPowerUpWrites[] = {
    {32, 0, 0, 1}, {10, 0, 3, 0}, {10, 4, 7, 0}, {10, 8, 11, 0}, {64, 0, 0, 1},
    {72, 0, 0, 1}, {72, 1, 1, 1}, {72, 2, 2, 1}, {42, 0, 0, 1},  {42, 1, 1, 1},
    {40, 0, 0, 1}, {40, 1, 1, 1}, {40, 2, 2, 0}, {48, 0, 0, 1},  {112, 0, 2, 7},
};
static_assert(std::size(kPowerUpWrites) == 15);

constexpr SensorWrite kPowerDownWrites[] = {
    {192, 0, 0, 0}, // the sequencer stops first
    {32, 0, 0, 0},  {10, 0, 3, 9}, {10, 4, 7, 9}, {10, 8, 11, 9}, {64, 0, 0, 0},
    {72, 0, 0, 0},  {72, 1, 1, 0}, {72, 2, 2, 0}, {42, 0, 0, 0},  {42, 1, 1, 0},
    {40, 0, 0, 0},  {40, 1, 1, 0}, {40, 2, 2, 0}, {48, 0, 0, 0},  {112, 0, 2, 0},
};
static_assert(std::size(kPowerDownWrites) == 16);

// What the sequencer programs differ in.
struct RowOverhead {
    uint16_t zero; // flag
    uint16_t gainSwitch;
    uint16_t bias;
    uint16_t word425, word427;
};

// The sequencer is stopped, told how to read out, and given what differs in its program. The other
// ninety or so words are not known: the sensor keeps those it has. Not verified on hardware.
constexpr auto SequencerProgram(RowOverhead overhead)
{
    return std::to_array<SensorWrite>({
        {192, 0, 0, 0},
        {192, 1, 1, 0},
        {194, 0, 0, 0},
        {194, 1, 1, 0},
        {192, 2, 2, overhead.zero},
        {192, 3, 3, overhead.zero},
        {204, 0, 4, overhead.gainSwitch},
        {65, 4, 7, overhead.bias},
        Whole(425, overhead.word425),
        Whole(427, overhead.word427),
    });
}

constexpr auto kNormalRowOverheadWrites =
    SequencerProgram({.zero = 0, .gainSwitch = 3, .bias = 8, .word425 = 8310, .word427 = 113});
constexpr auto kZeroRowOverheadWrites =
    SequencerProgram({.zero = 1, .gainSwitch = 1, .bias = 2, .word425 = 8316, .word427 = 116});

constexpr Sequence kAll[] = {
    kSoftResetWrites, kClockManagement1Writes, kClockManagement2Writes,  kRequiredUploadWrites,
    kPowerUpWrites,   kPowerDownWrites,        kNormalRowOverheadWrites, kZeroRowOverheadWrites};
static_assert(std::ranges::all_of(kAll, [](Sequence sequence) {
    return std::ranges::all_of(sequence, &SensorWrite::Fits);
}));

} // namespace

constinit const Sequence kSoftReset = kSoftResetWrites;
constinit const Sequence kClockManagement1 = kClockManagement1Writes;
constinit const Sequence kClockManagement2 = kClockManagement2Writes;
constinit const Sequence kRequiredUploads = kRequiredUploadWrites;
constinit const Sequence kPowerUp = kPowerUpWrites;
constinit const Sequence kPowerDown = kPowerDownWrites;
constinit const Sequence kNormalRowOverhead = kNormalRowOverheadWrites;
constinit const Sequence kZeroRowOverhead = kZeroRowOverheadWrites;

} // namespace vsccam::python
