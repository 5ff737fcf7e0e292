#include "usb/firmware_files.h"

#include "base/config.h"
#include "base/debug_print.h"
#include "usb/firmware_image.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <span>

namespace vsccam {

namespace {

constexpr FirmwareFile kVendor1 = {"vendor1.bin", 2048};
constexpr FirmwareFile kVendor2 = {"vendor2.bin", 1427};

class Descriptor {
  public:
    // Without O_NONBLOCK, opening a pipe waits until somebody writes to it.
    explicit Descriptor(const std::string &path)
        : m_descriptor(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY))
    {
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    ~Descriptor()
    {
        if (m_descriptor >= 0)
            (void)close(m_descriptor); // was only read
    }

    /// Nothing for what is no regular file.
    std::optional<uint64_t> Size() const
    {
        struct stat status = {};
        if (m_descriptor < 0 || fstat(m_descriptor, &status) != 0 || !S_ISREG(status.st_mode))
            return std::nullopt;
        return static_cast<uint64_t>(status.st_size);
    }

    /// Whether there were enough bytes.
    bool Fill(std::vector<uint8_t> &bytes) const
    {
        for (size_t at = 0; at < bytes.size();) {
            const ssize_t got = read(m_descriptor, bytes.data() + at, bytes.size() - at);
            if (got == 0 || (got < 0 && errno != EINTR))
                return false;
            at += got > 0 ? static_cast<size_t>(got) : 0;
        }
        return true;
    }

  private:
    int m_descriptor;
};

std::string FirmwareDirectory()
{
    // A program with more rights than its user must not load firmware that the user chose.
    const char *const chosen = secure_getenv("VSCCAM_FIRMWARE_DIR");
    return chosen && *chosen ? chosen : kFirmwareDirectory;
}

std::optional<std::vector<uint8_t>> ReadFirmware(const FirmwareFile &file,
                                                 bool (*isSound)(std::span<const uint8_t>))
{
    const std::string directory = FirmwareDirectory();
    auto bytes = ReadRegularFile(directory + "/" + file.name, file.bytes);
    if (bytes && bytes->size() == file.bytes && isSound(*bytes))
        return bytes;
    OutputDbgPrint("firmware file %s is missing or damaged in %.70s\n", file.name,
                   directory.c_str());
    return std::nullopt;
}

} // namespace

std::optional<std::vector<uint8_t>> ReadRegularFile(const std::string &path, size_t limit)
{
    const Descriptor file(path);
    const std::optional<uint64_t> size = file.Size();
    if (!size || *size > limit)
        return std::nullopt;
    std::vector<uint8_t> bytes(static_cast<size_t>(*size));
    if (!file.Fill(bytes))
        return std::nullopt;
    return bytes;
}

std::optional<EepromProgrammer> ReadEepromProgrammer()
{
    const auto hasNoForm = [](std::span<const uint8_t>) { return true; };
    auto low = ReadFirmware(kVendor1, hasNoForm);
    auto high = low ? ReadFirmware(kVendor2, hasNoForm) : std::nullopt;
    if (!high)
        return std::nullopt;
    return EepromProgrammer{*std::move(low), *std::move(high)};
}

std::optional<std::vector<uint8_t>> ReadFx2Image(const FirmwareFile &file)
{
    return ReadFirmware(
        file, [](std::span<const uint8_t> image) { return ParseFx2Image(image).has_value(); });
}

} // namespace vsccam
