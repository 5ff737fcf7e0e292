#include "frame_stack.h"

#include <algorithm>

namespace vsctool {

void MeanStack::Add(Samples frame)
{
    m_sums.resize(frame.size());
    for (size_t i = 0; i < frame.size(); ++i)
        m_sums[i] = static_cast<uint16_t>(m_sums[i] + frame[i]);
    ++m_count;
}

Samples MeanStack::Result() const
{
    Samples means(m_sums.size());
    std::ranges::transform(m_sums, means.begin(), [this](unsigned sum) {
        return static_cast<uint8_t>((sum + m_count / 2) / m_count);
    });
    return means;
}

void MedianStack::Add(Samples frame)
{
    for (Samples &kept : m_kept) {
        kept.resize(frame.size(), UINT8_MAX);
        // The frame goes on with the brighter ones; what is left at the end is forgotten.
        for (size_t i = 0; i < frame.size(); ++i) {
            const uint8_t darker = std::min(kept[i], frame[i]);
            frame[i] = std::max(kept[i], frame[i]);
            kept[i] = darker;
        }
    }
}

} // namespace vsctool
