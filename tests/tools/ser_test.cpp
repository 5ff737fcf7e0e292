#include "camera.h"
#include "failure.h"
#include "ser/file.h"
#include "ser/writer.h"
#include "temporary_file.h"
#include "video/drop_account.h"
#include "video/frame_ring.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <thread>

using namespace vsctool;
using namespace std::chrono_literals;

namespace {

constexpr int kFrames = 5;
constexpr size_t kFrameBytes = 16;
const char *const kFile = "small.ser";

UtcTime Now()
{
    return std::chrono::floor<Microseconds>(std::chrono::system_clock::now());
}

/// A recording with as many frames as it shall have, one every 10 ms; each is full of its number.
void AddFrames(SerWriter &writer, UtcTime begin)
{
    for (int i = 0; i < kFrames; ++i)
        writer.Add(std::vector<uint8_t>(kFrameBytes, static_cast<uint8_t>(i + 1)),
                   begin + i * 10ms);
}

std::string Contents(const std::filesystem::path &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void Make(const std::filesystem::path &path, const std::string &contents)
{
    std::ofstream(path, std::ios::binary | std::ios::trunc) << contents;
}

std::string Recording(UtcTime begin)
{
    SerWriter writer(kFile, {.width = 8, .height = 2}, true);
    AddFrames(writer, begin);
    writer.Close();
    return Contents(kFile);
}

std::string WithCount(std::string contents, int32_t count)
{
    std::memcpy(&contents[38], &count, sizeof count);
    return contents;
}

std::string Frame(int64_t number)
{
    return std::string(kFrameBytes, static_cast<char>(number + 1));
}

void ExpectSound(const std::string &original, int64_t frames, const char *path = kFile)
{
    const SerFile file(path);
    EXPECT_TRUE(file.Faults().empty()) << file.Faults().front();
    EXPECT_EQ(file.Frames(), frames);
    EXPECT_EQ(file.Times(), frames);
    const std::string contents = Contents(path);
    const size_t end = 178 + static_cast<size_t>(frames) * kFrameBytes;
    EXPECT_EQ(contents.size(), end + static_cast<size_t>(frames) * 8);
    EXPECT_EQ(contents.substr(178, end - 178), original.substr(178, end - 178));
}

} // namespace

TEST(Ser, TheHeaderIsWhatTheFormatSaysByteForByte)
{
    const std::string expected = std::string("LUCAM-RECORDER") +
                                 std::string("\x04\x03\x02\x01" // LuID
                                             "\x0B\0\0\0"       // ColorID
                                             "\0\0\0\0"         // LittleEndian
                                             "\x90\x07\0\0"     // 1936
                                             "\x48\x04\0\0"     // 1096
                                             "\x10\0\0\0"       // bits
                                             "\x2A\0\0\0",      // frames
                                             28) +
                                 "Me" + std::string(38, '\0') + "KYR VSC470MC" +
                                 std::string(28, '\0') + std::string(40, 'T') +
                                 std::string("\x08\x07\x06\x05\x04\x03\x02\x01"
                                             "\0\x80\xB5\xF7\xF5\x7F\x9F\x08",
                                             16);
    const SerHeader header{.luId = 0x01020304,
                           .colour = 11,
                           .width = 1936,
                           .height = 1096,
                           .bits = 16,
                           .frames = 42,
                           .observer = "Me",
                           .instrument = "KYR VSC470MC",
                           .telescope = std::string(50, 'T'),
                           .localTime = 0x0102030405060708,
                           .utcTime = SerTicksOf(UtcTime(0s))};
    const SerHeaderBytes bytes = Encode(header);
    ASSERT_EQ(bytes.size(), expected.size());
    for (size_t i = 0; i < bytes.size(); ++i)
        EXPECT_EQ(bytes[i], static_cast<uint8_t>(expected[i])) << "byte " << i;
    EXPECT_EQ(Encode(DecodeSerHeader(bytes)), bytes);
    EXPECT_EQ(FormatSerTicks(621'355'968'000'000'000), "1970-01-01T00:00:00.000000");
    EXPECT_EQ(FormatSerTicks(INT64_MIN), "-9223372036854775808");
}

TEST(Ser, ColoursFollowTheMosaicAsFlipsLeaveIt)
{
    // By the camera's code: not flipped, left to right, top to bottom, both.
    constexpr int kExpected[4][4] = {
        {8, 9, 10, 11}, {11, 10, 9, 8}, {9, 8, 11, 10}, {10, 11, 8, 9}};
    for (int code = 0; code < 4; ++code)
        for (int flips = 0; flips < 4; ++flips)
            EXPECT_EQ(SerColourOf(PixelFormat::kRaw16,
                                  MosaicOf(code, (flips & 1) != 0, (flips & 2) != 0)),
                      kExpected[code][flips])
                << code << ' ' << flips;
    EXPECT_EQ(SerColourOf(PixelFormat::kRgb24, std::nullopt), 101);
    EXPECT_EQ(SerColourOf(PixelFormat::kY8, std::nullopt), 0);
}

TEST(Ser, ARecordingCanBeReadWhileItGrowsAndIsSoundWhenItIsClosed)
{
    const UtcTime begin = Now();
    {
        SerWriter writer(kFile, {.width = 8, .height = 2}, true);
        AddFrames(writer, begin);
        std::this_thread::sleep_for(600ms); // so long that the count is due
        AddFrames(writer, begin + 50ms);
        const SerFile growing(kFile);
        EXPECT_GT(growing.Header().frames, kFrames);
        EXPECT_NE(growing.Faults().back().find("never closed"), std::string::npos);
        writer.Close();
    }
    ExpectSound(Contents(kFile), 2 * kFrames);
    const SerFile file(kFile);
    EXPECT_EQ(file.Header().utcTime, SerTicksOf(begin));
    const auto timing = TimingOf(file);
    EXPECT_EQ(timing->last - timing->first, 900'000);
    EXPECT_EQ(timing->gaps, 0);
    EXPECT_THROW(SerWriter(kFile, {.width = 8, .height = 2}, false), Failure);
    {
        const SerWriter empty("empty.ser", {.width = 8, .height = 2}, false);
    }
    EXPECT_FALSE(std::filesystem::exists("empty.ser"));
}

// Whatever a crash, a cut or another program left: repaired, it holds every frame that was whole.
TEST(Ser, RepairKeepsEveryWholeFrameOfWhateverIsThere)
{
    const std::string whole = Recording(Now());
    for (size_t size = 0; size <= whole.size(); ++size)
        for (const int32_t told : {0, 3, kFrames}) {
            SCOPED_TRACE(testing::Message() << size << " bytes, " << told << " frames told");
            Make(kFile, WithCount(whole, told).substr(0, size));
            if (size < 178) {
                EXPECT_THROW(RepairSer(kFile), Failure);
                continue;
            }
            const auto frames = std::min<int64_t>((size - 178) / kFrameBytes, kFrames);
            // Times behind a wrong count look like pixels, unless all of them are there.
            if (told != kFrames && frames == kFrames && size != whole.size())
                continue;
            EXPECT_EQ(RepairSer(kFile).frames, frames);
            ExpectSound(whole, frames);
        }
}

TEST(Ser, TimesAreRecoveredFromBesideTheFileAndOnlyTheRestIsEstimated)
{
    const UtcTime begin = Now();
    const std::string whole = Recording(begin);
    Make(kFile, WithCount(whole, 2).substr(0, 178 + kFrames * kFrameBytes + 3));
    Make(SerTimesBeside(kFile), whole.substr(178 + kFrames * kFrameBytes, 3 * 8 + 5));
    const SerRepair repair = RepairSer(kFile);
    EXPECT_EQ(repair.countBefore, 2);
    EXPECT_EQ(repair.bytesCut, 3);
    EXPECT_EQ(repair.timesRecovered, 3);
    EXPECT_EQ(repair.timesEstimated, 2);
    EXPECT_EQ(Contents(kFile), whole); // its frames came evenly
    EXPECT_FALSE(std::filesystem::exists(SerTimesBeside(kFile)));
}

TEST(Ser, HeadersThatCannotBeMeantAreRefused)
{
    const std::string whole = Recording(Now());
    const struct {
        size_t at;
        int32_t value;
    } cases[] = {{0, 0}, {26, 0}, {26, -1}, {26, INT32_MAX}, {30, -8}, {34, 0}, {34, 17}, {38, -1}};
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.value << " at " << c.at);
        std::string wrong = whole;
        std::memcpy(&wrong[c.at], &c.value, sizeof c.value);
        Make(kFile, wrong);
        EXPECT_THROW(SerFile{kFile}, Failure);
    }
    EXPECT_THROW(SerFile{"/dev/null"}, Failure);
}

TEST(Ser, PartsHaveTheFramesThatWereAskedForWithTheirTimes)
{
    const UtcTime begin = Now();
    const std::string whole = Recording(begin);
    CopyFrames(SerFile(kFile), 1, 3, "part.ser");
    EXPECT_EQ(Contents("part.ser").substr(178, 3 * kFrameBytes), Frame(1) + Frame(2) + Frame(3));
    const SerFile part("part.ser");
    EXPECT_TRUE(part.Faults().empty());
    EXPECT_EQ(part.TimeOf(2), SerTicksOf(begin + 30ms));
    EXPECT_EQ(part.Header().utcTime, SerTicksOf(begin + 10ms));
}

TEST(FrameRing, KeepsWhatWaitsInOrderAndDropsWhatComesWhenItIsFull)
{
    FrameRing ring(1, 4);
    const auto push = [&ring](uint8_t value) {
        ring.Spare()[0] = value;
        return ring.Push(UtcTime(Microseconds(value)));
    };
    const auto next = [&ring] {
        const auto frame = ring.Next(0ms);
        EXPECT_TRUE(!frame || frame->at == UtcTime(Microseconds(frame->bytes[0])));
        return frame ? frame->bytes[0] : -1;
    };
    EXPECT_EQ(next(), -1);
    EXPECT_TRUE(push(1) && push(2) && push(3));
    EXPECT_FALSE(push(4));
    EXPECT_EQ(next(), 1);
    EXPECT_FALSE(push(5)); // the first one is being written
    EXPECT_EQ(next(), 2);
    EXPECT_TRUE(push(6));
    EXPECT_EQ(next(), 3);
    ring.Close();
    EXPECT_FALSE(ring.AtEnd());
    EXPECT_EQ(next(), 6);
    EXPECT_TRUE(ring.AtEnd());
    EXPECT_TRUE(push(7));
    EXPECT_EQ(ring.Discard(), 1);
}

TEST(Drops, AreReadFromTheLastAccountOfTheLibrary)
{
    const std::vector<LibraryLine> lines = {
        {{}, "dropped short:9, empty reads:0"},
        {{}, "dropped short:1 half set:20 ring full:0 not taken:5 lost:3, empty reads:7"},
        {{}, "camera closed"}};
    const DropAccount expected = {{"short", 1}, {"half set", 20}, {"ring full", 0}, {"lost", 3}};
    EXPECT_EQ(DropAccountIn(lines), expected);
    EXPECT_EQ(SumOf(expected), 24);
}
