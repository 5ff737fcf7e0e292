#include "failure.h"
#include "fits_header.h"
#include "fits_writer.h"
#include "png_writer.h"

#include <fitsio.h>
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <memory>

using namespace vsctool;
using namespace std::chrono_literals;

namespace {

struct CloseFits {
    void operator()(fitsfile *file) const
    {
        int status = 0;
        fits_close_file(file, &status);
    }
};
using OpenFits = std::unique_ptr<fitsfile, CloseFits>;

OpenFits Open(const std::string &path)
{
    fitsfile *file = nullptr;
    int status = 0;
    fits_open_diskfile(&file, path.c_str(), READONLY, &status);
    EXPECT_EQ(status, 0);
    return OpenFits(file);
}

/// Value of a key as text, "-" when there is none.
std::string ValueOf(const OpenFits &file, const char *key)
{
    char value[FLEN_VALUE] = "";
    int status = 0;
    fits_read_key(file.get(), TSTRING, key, value, nullptr, &status);
    return status == 0 ? value : "-";
}

std::vector<int> SamplesIn(const OpenFits &file, size_t count)
{
    std::vector<int> samples(count);
    int status = 0;
    fits_read_img(file.get(), TINT, 1, static_cast<LONGLONG>(count), nullptr, samples.data(),
                  nullptr, &status);
    EXPECT_EQ(status, 0);
    return samples;
}

PictureFacts SomeFacts();

void ExpectRoundTrip(const std::string &path, const Picture &picture,
                     const std::vector<int> &samples)
{
    SCOPED_TRACE(path);
    WriteFits(path, picture, HeaderOf(SomeFacts()));
    const OpenFits file = Open(path);
    EXPECT_EQ(SamplesIn(file, samples.size()), samples);
    EXPECT_EQ(ValueOf(file, "NAXIS1"), std::to_string(picture.width));
    EXPECT_FALSE(std::filesystem::exists(fmt::format(".{}.part", path)));
}

PictureFacts SomeFacts()
{
    PictureFacts facts;
    facts.model = "KYR VSC470MC-Cool";
    facts.software = "vsccam test";
    facts.identity = "00FF10";
    facts.type = "dark";
    facts.object = "M 42's core";
    facts.start = UtcTime(1s);
    facts.asked = 3300ms;
    facts.planned = 3200ms;
    facts.measured = 3204ms;
    facts.gain = 200;
    facts.electronsPerAdu = 3.584;
    facts.temperatureC = -10.25;
    facts.targetC = -10;
    facts.coolerPerCent = 40;
    facts.bin = 2;
    facts.pixelUm = 2.9;
    facts.startX = 100;
    facts.mosaic = MosaicOf(0, true, false);
    facts.simulated = true;
    return facts;
}

} // namespace

TEST(Fits, HoldsEverySampleOfEveryFormatInOrder)
{
    const uint16_t deep[] = {0, 1, 32767, 32768, 65520, 65535};
    Picture raw16 = {3, 2, PixelFormat::kRaw16, std::vector<uint8_t>(sizeof deep)};
    std::memcpy(raw16.bytes.data(), deep, sizeof deep);
    ExpectRoundTrip("raw16.fit", raw16, {0, 1, 32767, 32768, 65520, 65535});
    ExpectRoundTrip("raw8.fit", {3, 2, PixelFormat::kRaw8, {0, 1, 127, 128, 254, 255}},
                    {0, 1, 127, 128, 254, 255});
    ExpectRoundTrip("rgb24.fit", {2, 1, PixelFormat::kRgb24, {10, 20, 30, 40, 50, 255}},
                    {30, 255, 20, 50, 10, 40});
    // A name that cfitsio would otherwise take for a selection within the file.
    ExpectRoundTrip("y8 [1].fits", {2, 1, PixelFormat::kY8, {7, 200}}, {7, 200});
}

TEST(Fits, HeaderTellsWhatStackingProgramsAskFor)
{
    std::vector<FitsKey> keys = HeaderOf(SomeFacts());
    for (const char *own : {"FILTER=Ha", "FOCUSPOS=1200", "OBJECT=Orion nebula"})
        keys.push_back(ParseFitsKey(own));
    WriteFits("header.fit", {8, 2, PixelFormat::kRaw8, std::vector<uint8_t>(16)}, keys);
    const OpenFits file = Open("header.fit");
    const struct {
        const char *key;
        const char *value;
    } cases[] = {
        {"DATE-OBS", "1970-01-01T00:00:01.000000"},
        {"DATE-AVG", "1970-01-01T00:00:02.602000"},
        {"EXPTIME", "3.2"},
        {"EXPMEAS", "3.204"},
        {"XPIXSZ", "5.8"},
        {"BAYERPAT", "GRBG"},
        {"ROWORDER", "TOP-DOWN"},
        {"IMAGETYP", "Dark Frame"},
        {"CCD-TEMP", "-10.25"},
        {"CAMID", "00FF10"},
        {"SIMULATE", "T"},
        {"FILTER", "Ha"},
        {"OBJECT", "Orion nebula"}, // the user has the last word
    };
    for (const auto &c : cases)
        EXPECT_EQ(ValueOf(file, c.key), c.value) << c.key;
}

TEST(Fits, HeaderSaysNothingThatIsNotKnown)
{
    WriteFits("plain.fit", {8, 2, PixelFormat::kRaw8, std::vector<uint8_t>(16)},
              HeaderOf(PictureFacts{}));
    const OpenFits file = Open("plain.fit");
    for (const char *key : {"BITDEPTH", "EXPMEAS", "OBJECT", "CAMID", "EGAIN", "CCD-TEMP",
                            "SET-TEMP", "COOLPOWR", "BAYERPAT", "SIMULATE"})
        EXPECT_EQ(ValueOf(file, key), "-") << key;
}

TEST(Files, FailWithTheFileCodeAndLeaveNothingBehind)
{
    const Picture picture = {8, 2, PixelFormat::kRaw8, std::vector<uint8_t>(16)};
    std::filesystem::create_directories("occupied.fit/full"); // a folder stands where the file goes
    std::filesystem::create_directories("occupied.png/full");
    const auto expectFileFailure = [](const auto &write) {
        try {
            write();
            ADD_FAILURE() << "no failure";
        } catch (const Failure &failure) {
            EXPECT_EQ(failure.Code(), static_cast<int>(Exit::kFile));
        }
    };
    expectFileFailure([&] { WriteFits("occupied.fit", picture, {}); });
    expectFileFailure([&] { WriteFits("/dev/null/no.fit", picture, {}); });
    expectFileFailure([&] { WritePreview("occupied.png", picture, std::nullopt); });
    EXPECT_FALSE(std::filesystem::exists(".occupied.fit.part"));
    EXPECT_FALSE(std::filesystem::exists(".occupied.png.part"));
    std::filesystem::remove_all("occupied.fit");
    std::filesystem::remove_all("occupied.png");
}
