#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vscsim {

/// Registers with a hold. What is written reads back at once. While the hold is on it does not act;
/// the release applies everything together.
template <class Value> class HeldRegisters {
  public:
    explicit HeldRegisters(size_t count) : m_written(count), m_acting(count) {}

    size_t Size() const { return m_written.size(); }
    Value Written(size_t number) const { return m_written.at(number); }
    Value Acting(size_t number) const { return m_acting.at(number); }

    /// A write that the hold concerns.
    void Write(size_t number, Value value)
    {
        m_written.at(number) = value;
        if (!m_held)
            m_acting.at(number) = value;
    }

    /// A write that acts at once, held or not.
    void WriteThrough(size_t number, Value value)
    {
        m_written.at(number) = value;
        m_acting.at(number) = value;
    }

    void Hold(bool on)
    {
        m_held = on;
        if (!on)
            m_acting = m_written;
    }

    /// A number whose bytes lie in neighbouring registers, the lowest first.
    uint32_t Acting(size_t first, size_t bytes) const
    {
        uint32_t number = 0;
        for (size_t i = 0; i < bytes; ++i)
            number |= (static_cast<uint32_t>(Acting(first + i)) & 0xFFU) << (8 * i);
        return number;
    }

  private:
    std::vector<Value> m_written;
    std::vector<Value> m_acting;
    bool m_held = false;
};

} // namespace vscsim
