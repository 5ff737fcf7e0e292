#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vsctool {

using Samples = std::vector<uint8_t>; // of a whole frame

/// Makes one frame of several, pixel by pixel, without keeping them all.
class FrameStack {
  public:
    virtual ~FrameStack() = default;
    virtual void Add(Samples frame) = 0;
    virtual Samples Result() const = 0;
};

/// Rounded means.
class MeanStack : public FrameStack {
  public:
    static constexpr int kMostFrames = 257; // the sums fit into 16 bits

    void Add(Samples frame) override;
    Samples Result() const override;

  private:
    std::vector<uint16_t> m_sums;
    unsigned m_count = 0;
};

/// Medians, which leave out what shows in few frames: cosmic rays. Keeps the darker half of what
/// each pixel was; the upper one of two medians needs no more.
class MedianStack : public FrameStack {
  public:
    /// Frames kept of so many.
    static constexpr size_t KeptOf(size_t frames) { return frames / 2 + 1; }

    explicit MedianStack(size_t frames) : m_kept(KeptOf(frames)) {}

    void Add(Samples frame) override;
    Samples Result() const override { return m_kept.back(); }

  private:
    std::vector<Samples> m_kept; // of each pixel in ascending order
};

} // namespace vsctool
