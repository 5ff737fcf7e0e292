#include "fits_writer.h"

#include "failure.h"
#include "plane.h"
#include "put_fits_key.h"
#include "temporary_file.h"

#include <fitsio.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <string_view>
#include <utility>

namespace vsctool {
namespace {

constexpr size_t kLongestName = 8;
constexpr size_t kLongestText = 68;
constexpr std::array<std::string_view, 15> kOwnKeys = {
    "SIMPLE", "BITPIX", "EXTEND",   "BZERO",   "BSCALE",   "BLANK",   "END",     "COMMENT",
    "",       "DATE",   "CHECKSUM", "DATASUM", "CONTINUE", "HISTORY", "XTENSION"};

/// An open FITS file. Its functions throw the texts of cfitsio as Failure.
class FitsFile {
  public:
    /// @param name  that it gets in the end, for messages
    FitsFile(const std::filesystem::path &path, std::filesystem::path name)
        : m_name(std::move(name))
    {
        int status = Begin();
        fits_create_diskfile(&m_file, path.c_str(), &status);
        Check(status);
    }
    /// One in memory, which grows as the writer wants it to.
    FitsFile(void **memory, size_t *size, size_t step) : m_name("a picture")
    {
        int status = Begin();
        fits_create_memfile(&m_file, memory, size, step, std::realloc, &status);
        Check(status);
    }
    ~FitsFile()
    {
        int status = 0; // only after a failure is the file still open, and it is removed then
        if (m_file)
            fits_close_file(m_file, &status);
    }
    FitsFile(const FitsFile &) = delete;
    FitsFile &operator=(const FitsFile &) = delete;

    void CreateImage(int bitsPerPixel, std::vector<long> axes)
    {
        int status = Begin();
        fits_create_img(m_file, bitsPerPixel, static_cast<int>(axes.size()), axes.data(), &status);
        Check(status);
    }

    void WriteSamples(int type, size_t first, size_t count, const void *samples)
    {
        int status = Begin();
        // cfitsio only reads the samples; its interface is older than const.
        fits_write_img(m_file, type, static_cast<LONGLONG>(first) + 1, static_cast<LONGLONG>(count),
                       const_cast<void *>(samples), &status);
        Check(status);
    }

    void Put(const FitsKey &key) { Check(PutFitsKey(m_file, key, Begin())); }

    /// Bytes up to the end of the picture, which is the end of the file.
    size_t Size()
    {
        LONGLONG end = 0;
        int status = Begin();
        fits_flush_file(m_file, &status);
        fits_get_hduaddrll(m_file, nullptr, nullptr, &end, &status);
        Check(status);
        return static_cast<size_t>(end);
    }

    void Close()
    {
        int status = Begin();
        fits_close_file(std::exchange(m_file, nullptr), &status);
        Check(status);
    }

  private:
    /// The status before a call. What the system says of a failure of before is forgotten.
    static int Begin()
    {
        errno = 0;
        return 0;
    }

    void Check(int status) const
    {
        if (status == 0)
            return;
        const int error = errno;
        std::array<char, FLEN_STATUS> text{};
        fits_get_errstatus(status, text.data());
        errno = error;
        throw CannotWrite(m_name, text.data());
    }

    std::filesystem::path m_name;
    fitsfile *m_file = nullptr;
};

template <class Number> bool IsNumber(std::string_view text, Number &number)
{
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end && !text.empty();
}

bool IsAllowedName(const std::string &name)
{
    return name.size() <= kLongestName && !name.starts_with("NAXIS") &&
           std::find(kOwnKeys.begin(), kOwnKeys.end(), name) == kOwnKeys.end() &&
           std::all_of(name.begin(), name.end(), [](unsigned char c) {
               return (std::isupper(c) || std::isdigit(c) || c == '-' || c == '_') && c < 0x80;
           });
}

void WriteSamples(FitsFile &file, const Picture &picture)
{
    const long width = picture.width;
    const long height = picture.height;
    if (picture.format == PixelFormat::kRgb24) {
        file.CreateImage(BYTE_IMG, {width, height, 3});
        const Rgb rgb = SplitRgb24(picture);
        for (size_t i = 0; i < rgb.size(); ++i)
            file.WriteSamples(TUSHORT, i * picture.Pixels(), picture.Pixels(),
                              rgb.at(i).samples.data());
        return;
    }
    const bool is16 = picture.format == PixelFormat::kRaw16;
    file.CreateImage(is16 ? USHORT_IMG : BYTE_IMG, {width, height});
    file.WriteSamples(is16 ? TUSHORT : TBYTE, 0, picture.Pixels(), picture.bytes.data());
}

} // namespace

void CheckFitsText(const std::string &text)
{
    const bool printable =
        std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; });
    if (!printable || text.size() > kLongestText)
        throw Failure(
            Exit::kUsage,
            fmt::format("'{}': FITS holds at most {} plain ASCII characters", text, kLongestText));
}

FitsKey ParseFitsKey(const std::string &text)
{
    const size_t equals = text.find('=');
    std::string name = text.substr(0, equals);
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    if (equals == std::string::npos || !IsAllowedName(name))
        throw Failure(Exit::kUsage,
                      fmt::format("'{}' is no FITS key; write NAME=VALUE with a name of at most {} "
                                  "letters, digits, - and _ that describes the picture",
                                  text, kLongestName));
    const std::string value = text.substr(equals + 1);
    CheckFitsText(value);
    int number = 0;
    double real = 0;
    if (value == "T" || value == "F")
        return {name, value == "T", ""};
    if (IsNumber(value, number))
        return {name, number, ""};
    if (IsNumber(value, real) && std::isfinite(real))
        return {name, real, ""};
    return {name, value, ""};
}

std::string FitsBytesOf(const Picture &picture, const std::vector<FitsKey> &keys)
{
    constexpr size_t kStep = 1 << 20;
    size_t size = kStep;
    struct Memory {
        void *bytes;
        ~Memory() { std::free(bytes); }
    } memory{std::malloc(size)};
    FitsFile file(&memory.bytes, &size, kStep);
    WriteSamples(file, picture);
    for (const FitsKey &key : keys)
        file.Put(key);
    const size_t used = file.Size();
    file.Close();
    return {static_cast<const char *>(memory.bytes), used};
}

void WriteFits(const std::filesystem::path &path, const Picture &picture,
               const std::vector<FitsKey> &keys)
{
    TemporaryFile temporary(path);
    FitsFile file(temporary.Path(), path);
    WriteSamples(file, picture);
    for (const FitsKey &key : keys)
        file.Put(key);
    file.Close();
    temporary.Commit();
}

} // namespace vsctool
