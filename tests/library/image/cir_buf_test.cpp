#include "image/cir_buf.h"
#include "support/simulated_bus.h"

#include <vector>

namespace vsccam {
namespace {

using Bytes = std::vector<uint8_t>;

constexpr int kSlot = 4096;

class FrameBuffer : public SimulatedBus {
  protected:
    void SetUp() override
    {
        SimulatedBus::SetUp();
        ASSERT_TRUE(m_buffer.StartInstBufThr());
        m_buffer.SetProducing(true);
    }
    void TearDown() override
    {
        m_buffer.StopInstBufThr();
        SimulatedBus::TearDown();
    }

    /// Inserts a frame of one value, and waits until it is copied.
    bool Insert(uint8_t value, int length = kSlot)
    {
        m_source.assign(kSlot + 1, value);
        const bool accepted = m_buffer.InsertBuff(m_source.data(), length);
        SleepFor(std::chrono::milliseconds(1)); // of virtual time: the insert thread has run
        return accepted;
    }
    int Read(int length = kSlot, int timeoutMs = 0)
    {
        Bytes frame(kSlot, 0xEE);
        return m_buffer.ReadBuff(frame.data(), length, timeoutMs) ? frame[0] : -1;
    }

    CirBuf m_buffer{kSlot};
    Bytes m_source;
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

TEST_F(FrameBuffer, RefusesWhatIsNoFrame)
{
    EXPECT_FALSE(m_buffer.InsertBuff(nullptr, 10));
    for (const int length : {kSlot + 1, 0, -1})
        EXPECT_FALSE(Insert(1, length)) << length;
}

TEST_F(FrameBuffer, SkipsFramesOfAnotherSizeAndForgetsEverythingOnReset)
{
    EXPECT_TRUE(Insert(1, 100));
    EXPECT_TRUE(Insert(2));
    EXPECT_EQ(Read(), 2);
    EXPECT_TRUE(Insert(3));
    m_buffer.ResetCirBuff();
    EXPECT_EQ(Read(), -1);
    m_source.assign(kSlot, 4);
    EXPECT_TRUE(m_buffer.InsertBuff(m_source.data(), kSlot)); // perhaps not copied yet
    m_buffer.ResetCirBuff();
    EXPECT_EQ(Read(kSlot, 10), -1);
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
        Bytes frame(kSlot, 7);
        Thread producer;
        ASSERT_TRUE(producer.Start([&] {
            if (c.frameAfterMs >= 0) {
                SleepFor(std::chrono::milliseconds(c.frameAfterMs));
                m_buffer.InsertBuff(frame.data(), kSlot);
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

} // namespace
} // namespace vsccam
