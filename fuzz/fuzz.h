#pragma once

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>

/// What a target must define: it is called with one input after the other.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size);

/// What must hold for every input. A failure is reported like a crash, with the input.
inline void Must(bool holds)
{
    if (!holds)
        std::abort();
}

/// An input as the source of decisions, read from its front or from its end, so that two can share
/// it. Zeros follow when it is used up.
class Decisions {
  public:
    enum class From { Front, End };

    explicit Decisions(std::span<const uint8_t> input, From from = From::Front)
        : m_input(input), m_from(from)
    {
    }

    bool UsedUp() const { return m_next >= m_input.size(); }

    uint8_t Byte()
    {
        if (UsedUp())
            return 0;
        const size_t at = m_next++;
        return m_input[m_from == From::Front ? at : m_input.size() - 1 - at];
    }

    size_t Below(size_t end) { return (Byte() | size_t{Byte()} << 8) % end; }

    /// A small number, one where something begins or overflows, or any.
    int Number()
    {
        constexpr int kEdges[] = {INT_MIN, INT_MIN + 1, -2,   -1,        0,          1,      2,
                                  99,      255,         1000, 0x4000000, 0x40000000, INT_MAX};
        const uint8_t choice = Byte();
        if (choice < std::size(kEdges))
            return kEdges[choice];
        uint32_t bits = choice;
        for (int i = 0; choice >= 0xC0 && i < 4; ++i)
            bits = bits << 8 | Byte();
        return static_cast<int>(bits);
    }

    bool Flag() { return (Byte() & 1) != 0; }

  private:
    std::span<const uint8_t> m_input;
    From m_from;
    size_t m_next = 0;
};
