#include "image/cir_buf.h"
#include "support/simulated_bus.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <vector>

namespace vsccam {
namespace {

using Bytes = std::vector<uint8_t>;

constexpr int kSlot = 4096;
constexpr ExposureSetting kShort{.us = 1'000};
constexpr ExposureSetting kLong{.us = 200'000};

class FrameBuffer : public SimulatedBus {
  protected:
    void SetUp() override
    {
        SimulatedBus::SetUp();
        m_buffer.SetProducing(true);
    }

    /// Fills a buffer with one value, as USB does, and inserts it.
    bool Insert(uint8_t value, int length = kSlot,
                const std::optional<ExposureSetting> &measured = std::nullopt)
    {
        std::fill_n(m_buffer.Filling(), kSlot, value);
        return m_buffer.InsertBuff(length, measured);
    }
    int Read(int length = kSlot, int timeoutMs = 0)
    {
        Bytes frame(kSlot, 0xEE);
        return m_buffer.ReadBuff(frame.data(), length, timeoutMs) ? frame[0] : -1;
    }

    CirBuf m_buffer{kSlot};
};

TEST_F(FrameBuffer, KeepsTwoFramesInOrderAndRefusesTheThird)
{
    EXPECT_EQ(Read(), -1);
    EXPECT_TRUE(Insert(1));
    EXPECT_TRUE(Insert(2));
    EXPECT_FALSE(Insert(3));
    EXPECT_EQ(Read(), 1);
    EXPECT_TRUE(Insert(4));
    EXPECT_EQ(Read(), 2);
    EXPECT_EQ(Read(), 4);
    EXPECT_EQ(Read(), -1);
}

TEST_F(FrameBuffer, SkipsFramesOfAnotherSizeAndForgetsEverythingOnReset)
{
    for (const int length : {kSlot + 1, 0, -1})
        EXPECT_FALSE(Insert(1, length)) << length;
    EXPECT_TRUE(Insert(1, 100));
    EXPECT_TRUE(Insert(2));
    EXPECT_EQ(Read(), 2);
    EXPECT_TRUE(Insert(3));
    EXPECT_EQ(m_buffer.ResetCirBuff(), 1);
    EXPECT_EQ(Read(), -1);
    EXPECT_TRUE(Insert(5)); // and works on
    EXPECT_EQ(Read(), 5);
}

TEST_F(FrameBuffer, WaitEndsWithAFrameTheTimeoutOrTheProducer)
{
    const struct {
        int timeoutMs;
        int frameAfterMs;   // -1: never
        int producerEndsMs; // -1: never
        int expected;
        int takesMs;
    } cases[] = {{100, 30, -1, 7, 30}, {100, -1, -1, -1, 100}, {-1, 40, -1, 7, 40},
                 {-1, -1, 50, -1, 50}, {1000, -1, 60, -1, 60}, {0, 30, -1, -1, 0}};
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.timeoutMs << " " << c.frameAfterMs);
        m_buffer.ResetCirBuff();
        m_buffer.SetProducing(true);
        Thread producer;
        ASSERT_TRUE(producer.Start([&] {
            if (c.frameAfterMs >= 0) {
                SleepFor(std::chrono::milliseconds(c.frameAfterMs));
                Insert(7);
            }
            if (c.producerEndsMs >= 0) {
                SleepFor(std::chrono::milliseconds(c.producerEndsMs));
                m_buffer.SetProducing(false);
            }
        }));
        const uint32_t start = GetTickCount();
        EXPECT_EQ(Read(kSlot, c.timeoutMs), c.expected);
        EXPECT_EQ(GetTickCount() - start, static_cast<uint32_t>(c.takesMs));
        producer.Join();
        SleepFor(std::chrono::milliseconds(100));
    }
    m_buffer.ResetCirBuff();
    m_buffer.SetProducing(false);
    EXPECT_EQ(Read(kSlot, -1), -1); // nothing can come: no endless wait
}

TEST_F(FrameBuffer, TellsTheHeadsOfBothFramesWithoutTakingThem)
{
    using Head = CirBuf::Head;
    using Place = CirBuf::Place;
    const auto headOf = [this](uint8_t value, Place place) {
        return m_buffer.IsBuffHeadCorrect(value * 0x01010101U, 0, place);
    };
    EXPECT_EQ(headOf(1, Place::Next), Head::Missing);
    EXPECT_TRUE(Insert(1));
    EXPECT_EQ(headOf(1, Place::Next), Head::Correct);
    EXPECT_EQ(headOf(2, Place::Next), Head::Wrong);
    EXPECT_EQ(headOf(1, Place::Behind), Head::Missing);
    EXPECT_TRUE(Insert(2));
    EXPECT_EQ(headOf(2, Place::Behind), Head::Correct);
    EXPECT_EQ(headOf(1, Place::Behind), Head::Wrong);
    m_buffer.DiscardBuff();
    EXPECT_EQ(headOf(2, Place::Next), Head::Correct);
    EXPECT_EQ(Read(), 2);
    m_buffer.DiscardBuff(); // nothing left
    EXPECT_EQ(Read(), -1);
}

TEST_F(FrameBuffer, OffersTheLatestFrameForOneLook)
{
    const auto look = [this](bool shortOnly) {
        const CirBuf::Look taken = m_buffer.TakeLatest(shortOnly);
        return taken.Frame().size() == kSlot ? taken.Frame()[0] : -1;
    };
    EXPECT_EQ(look(false), -1);
    Insert(1, kSlot, kLong);
    EXPECT_EQ(look(true), -1); // stays for another time
    EXPECT_EQ(look(false), 1);
    EXPECT_EQ(look(false), -1);
    Insert(2, kSlot, kShort);
    Insert(3, kSlot, kShort); // refused: the host takes none, the automatics do
    EXPECT_EQ(look(true), 3);
    Insert(4, kSlot, kShort);
    Insert(5); // is the latest, and tells nothing
    EXPECT_EQ(look(false), -1);
    Insert(6, kSlot, kShort);
    m_buffer.ResetCirBuff();
    EXPECT_EQ(look(false), -1);
}

/// Two in slots, one looked at, one for the next look, each of them another: the sixth frame is
/// written into none of them.
TEST_F(FrameBuffer, FillsNoBufferThatSomebodyNeeds)
{
    Insert(1, kSlot, kShort);
    {
        const CirBuf::Look looked = m_buffer.TakeLatest();
        m_buffer.DiscardBuff(); // from here on it is only looked at
        EXPECT_TRUE(Insert(2));
        EXPECT_TRUE(Insert(3));
        EXPECT_FALSE(Insert(4, kSlot, kShort));
        EXPECT_FALSE(Insert(5, kSlot, kShort));
        std::fill_n(m_buffer.Filling(), kSlot, 0xFF);       // the next one is on its way
        EXPECT_TRUE(m_buffer.TakeLatest().Frame().empty()); // one look at a time
        EXPECT_EQ(Read(), 2);
        EXPECT_EQ(Read(), 3);
        EXPECT_EQ(looked.Frame()[0], 1);
    }
    EXPECT_EQ(m_buffer.TakeLatest().Frame()[0], 5);
}

} // namespace
} // namespace vsccam
