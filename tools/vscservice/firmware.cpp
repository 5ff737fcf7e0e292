#include "firmware.h"

#include "api/session.h"
#include "confirm.h"
#include "core/flash_access.h"
#include "core/hot_pixel_record.h"
#include "failure.h"
#include "stop_signals.h"
#include "usb/firmware_files.h"
#include "usb/firmware_image.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <functional>
#include <future>
#include <memory>

namespace vsctool {
namespace {

using namespace std::chrono_literals;
using vsccam::CCameraBase;
using vsccam::DownloadResult;
using vsccam::FlashAccess;
using Image = std::vector<uint8_t>;

constexpr uint32_t kIdentityAddress = 0x70000; // of the flash
constexpr size_t kFlashBytes = 1 << 20;        // and with it the longest image of all
constexpr size_t kFx2EepromPage = 4096;        // of its writer
constexpr const char *kAgain = "The camera works until it is unplugged, and may not start again "
                               "then: write once more before";

struct WriteOptions {
    std::string memory;
    std::string file;
    bool yes = false;
};

/// A camera whose controller gets firmware.
class Workbench {
  public:
    explicit Workbench(Context &context)
        : m_console(context.console), m_camera(context.camera), m_inside(*vsccam::CurrentCamera())
    {
    }

    void Show();
    void Write(const WriteOptions &options);

  private:
    /// A memory, and the controller that has it.
    struct Memory {
        const char *name;
        bool ofUsb3;
        void (Workbench::*check)(const Image &) const;
        std::string (Workbench::*warning)(const Image &) const;
        void (Workbench::*write)(const Image &);
        const char *result; // ends "... bytes are "
    };
    static const Memory kMemories[];

    const std::string &Name() const { return m_camera.Entry().model; }
    const Memory &MemoryNamed(const std::string &name) const;

    void CheckFx2(const Image &image) const;
    void CheckFx2Eeprom(const Image &image) const;
    void CheckFx3(const Image &image) const;
    void CheckFx3Eeprom(const Image &image) const;

    std::string WarnOfRam(const Image &image) const;
    std::string WarnOfEeprom(const Image &image) const;
    std::string WarnOfFlash(const Image &image) const;

    void WriteFx2Ram(const Image &image);
    void WriteFx2Eeprom(const Image &image);
    void WriteFx3Ram(const Image &image);
    void WriteFx3Eeprom(const Image &image);
    void WriteFlash(const Image &image);

    bool WhileItLasts(const std::function<bool()> &work);
    bool ReadsBackFromFx3Eeprom(const Image &image);
    [[noreturn]] void Fail(const std::string &what, const char *advice) const;

    Console &m_console;
    Camera m_camera;
    CCameraBase &m_inside;
};

const Workbench::Memory Workbench::kMemories[] = {
    {"ram", false, &Workbench::CheckFx2, &Workbench::WarnOfRam, &Workbench::WriteFx2Ram,
     "in the RAM, and the controller runs them"},
    {"eeprom", false, &Workbench::CheckFx2Eeprom, &Workbench::WarnOfEeprom,
     &Workbench::WriteFx2Eeprom, "in the EEPROM and were read back; the controller runs them"},
    {"ram", true, &Workbench::CheckFx3, &Workbench::WarnOfRam, &Workbench::WriteFx3Ram,
     "in the RAM and were read back; the controller starts with them"},
    {"eeprom", true, &Workbench::CheckFx3Eeprom, &Workbench::WarnOfEeprom,
     &Workbench::WriteFx3Eeprom,
     "in the EEPROM and were read back; the camera starts with them when it is plugged in"},
    {"flash", true, &Workbench::CheckFx3, &Workbench::WarnOfFlash, &Workbench::WriteFlash,
     "in the flash and were read back; the camera starts with them when it is plugged in"},
};

const Workbench::Memory &Workbench::MemoryNamed(const std::string &name) const
{
    const auto *found = std::ranges::find_if(kMemories, [&](const Memory &memory) {
        return memory.name == name && memory.ofUsb3 == m_inside.model.usb3Camera;
    });
    if (found == std::end(kMemories))
        throw Failure(Exit::kNotSupported, fmt::format("{} has no {} for firmware", Name(), name));
    return *found;
}

// ---------------------------------------------------------------- what may be written, and where

void Workbench::CheckFx2(const Image &image) const
{
    if (!vsccam::ParseFx2Image(image))
        throw Failure(Exit::kFile,
                      fmt::format("this is no whole firmware for the controller of {}", Name()));
}

void Workbench::CheckFx2Eeprom(const Image &image) const
{
    CheckFx2(image);
    // The library leaves out a last page that is full when there are several.
    if (image.size() > kFx2EepromPage && image.size() % kFx2EepromPage == 0)
        throw Failure(Exit::kFile, fmt::format("firmware of whole pages of {} bytes cannot be "
                                               "written: add a byte behind its end",
                                               kFx2EepromPage));
    if (!vsccam::ReadEepromProgrammer())
        throw Failure(Exit::kFile, "the firmware that writes the EEPROM, vendor1.bin and "
                                   "vendor2.bin, is missing or damaged; VSCCAM_FIRMWARE_DIR names "
                                   "its folder");
}

void Workbench::CheckFx3(const Image &image) const
{
    vsccam::Fx3Image parsed;
    if (vsccam::ParseFx3Image(image, &parsed) != DownloadResult::Success)
        throw Failure(Exit::kFile,
                      fmt::format("this is no whole firmware for the controller of {}", Name()));
}

/// Of the I2C memory that an image says it is meant for, the first device.
size_t Fx3EepromBytes(const Image &image)
{
    constexpr unsigned kSmallest = 2; // 4 KiB, each further class twice that
    constexpr unsigned kLargest = 6;
    const unsigned sizeClass = image[2] >> 1U & 7U;
    return sizeClass < kSmallest ? 0 : size_t{1024} << std::min(sizeClass, kLargest);
}

void Workbench::CheckFx3Eeprom(const Image &image) const
{
    CheckFx3(image);
    if (image.size() > Fx3EepromBytes(image))
        throw Failure(Exit::kFile, fmt::format("{} bytes are more than the EEPROM that this "
                                               "firmware names has room for",
                                               image.size()));
}

std::string Workbench::WarnOfRam(const Image &image) const
{
    return fmt::format("The controller of {} gets {} bytes into its RAM and runs them instead of "
                       "its firmware. Nothing that it keeps changes: unplugging it brings back "
                       "what there was.",
                       Name(), image.size());
}

std::string Workbench::WarnOfEeprom(const Image &image) const
{
    return fmt::format("The first {} bytes of the EEPROM are overwritten, which {} starts from. "
                       "With wrong firmware, or without power meanwhile, it does not start again.",
                       image.size(), Name());
}

std::string Workbench::WarnOfFlash(const Image &image) const
{
    const size_t sectors = (image.size() + FlashAccess::kSector - 1) / FlashAccess::kSector;
    const size_t end = sectors * FlashAccess::kSector;
    std::string lost = "the firmware that it starts from";
    if (end > vsccam::kHotPixelAddress)
        lost += ", its table of hot pixels";
    if (end > kIdentityAddress)
        lost += ", its identifier";
    return fmt::format("The first {} KiB of the flash of {} are erased: {}. With wrong firmware, "
                       "or without power meanwhile, it does not start again.",
                       end / 1024, Name(), lost);
}

// ------------------------------------------------------------------------------------- writing

/// Shows how long a call of the library has lasted: it cannot be stopped half way.
bool Workbench::WhileItLasts(const std::function<bool()> &work)
{
    constexpr auto kStep = 100ms;
    auto done = std::async(std::launch::async, work);
    LiveLine line(m_console.ShowsProgress());
    for (auto waited = 0ms; done.wait_for(kStep) != std::future_status::ready; waited += kStep)
        line.Show(fmt::format("writing, {:.1f} s; do not unplug the camera",
                              Seconds(std::chrono::duration_cast<Microseconds>(waited))));
    return done.get();
}

void Workbench::Fail(const std::string &what, const char *advice) const
{
    m_camera.CheckPresence();
    throw Failure(Exit::kFailure, fmt::format("the {} of {} does not hold what was written. {}",
                                              what, Name(), advice));
}

void Workbench::WriteFx2Ram(const Image &image)
{
    // Whether it went well the library does not tell; a controller that answers runs.
    const bool answers = WhileItLasts(
        [&] { return m_inside.UpdateFW2RAM(image) && m_inside.AskFirmwareVersion().has_value(); });
    if (!answers)
        Fail("RAM", "Unplug the camera, and plug it in again");
}

void Workbench::WriteFx2Eeprom(const Image &image)
{
    if (!WhileItLasts([&] { return m_inside.UpdateFW(image); })) // reads back by itself
        Fail("EEPROM", kAgain);
}

void Workbench::WriteFx3Ram(const Image &image)
{
    const bool same = WhileItLasts([&] { // reads back by itself
        return m_inside.DownloadFwToRam(image, vsccam::request::kRam) == DownloadResult::Success;
    });
    if (!same)
        Fail("RAM", "Unplug the camera, and plug it in again");
}

void Workbench::WriteFx3Eeprom(const Image &image)
{
    const bool same = WhileItLasts([&] {
        return m_inside.DownloadBuftoI2CE2PROM(image, vsccam::request::kWriteI2cEeprom) ==
                   DownloadResult::Success &&
               ReadsBackFromFx3Eeprom(image);
    });
    if (!same)
        Fail("EEPROM", kAgain);
}

bool Workbench::ReadsBackFromFx3Eeprom(const Image &image)
{
    constexpr size_t kUnit = 64; // of lengths
    std::array<uint8_t, vsccam::kFirmwareChunk> chunk{};
    for (size_t at = 0; at < image.size(); at += chunk.size()) {
        const size_t length = std::min(chunk.size(), image.size() - at);
        if (!m_inside.SendCMD(vsccam::request::kReadI2cEeprom, 0, static_cast<uint16_t>(at), true,
                              chunk.data(),
                              static_cast<long>((length + kUnit - 1) / kUnit * kUnit)) ||
            !std::equal(chunk.begin(), chunk.begin() + static_cast<ptrdiff_t>(length),
                        image.begin() + static_cast<ptrdiff_t>(at)))
            return false;
    }
    return true;
}

void Workbench::WriteFlash(const Image &image)
{
    LiveLine line(m_console.ShowsProgress());
    const auto show = [&](const char *doing, size_t at) {
        line.Show(fmt::format("{:<8} {} {} of {} KiB; do not unplug the camera", doing,
                              Bar(static_cast<int64_t>(at), static_cast<int64_t>(image.size())),
                              at / 1024, image.size() / 1024));
    };
    FlashAccess flash(m_inside);
    for (size_t at = 0; at < image.size(); at += FlashAccess::kSector) {
        show("erasing", at);
        if (!flash.Erase(at / FlashAccess::kSector))
            Fail("flash", kAgain);
    }
    for (size_t at = 0; at < image.size(); at += FlashAccess::kChunk) {
        show("writing", at);
        const size_t length = std::min(FlashAccess::kChunk, image.size() - at);
        std::vector<uint8_t> pages((length + FlashAccess::kPage - 1) / FlashAccess::kPage *
                                       FlashAccess::kPage,
                                   FlashAccess::kErased);
        std::copy_n(image.begin() + static_cast<ptrdiff_t>(at), length, pages.begin());
        if (!flash.WriteAndCompare(static_cast<uint32_t>(at), pages, pages.size()))
            Fail("flash", kAgain);
    }
}

/// Signals stop the program before a memory is written or after it.
void StopIfAsked()
{
    StopSignals::SleepFor(0ms);
}

void Workbench::Write(const WriteOptions &options)
{
    const auto image = vsccam::ReadRegularFile(options.file, kFlashBytes);
    if (!image)
        throw Failure(Exit::kFile, fmt::format("{} cannot be read, is no regular file, or is "
                                               "longer than {} KiB",
                                               options.file, kFlashBytes / 1024));
    const Memory &memory = MemoryNamed(options.memory);
    (this->*memory.check)(*image);
    m_console.Warn((this->*memory.warning)(*image) + " No write was verified on hardware yet.");
    if (!options.yes)
        Confirm(fmt::format("Write {}?", options.file));
    StopIfAsked();
    (this->*memory.write)(*image);
    m_console.Say(fmt::format("{}  {} bytes are {}", Name(), image->size(), memory.result));
    m_console.Emit({{"model", Name()}, {"memory", memory.name}, {"bytes", image->size()}});
    StopIfAsked();
}

void Workbench::Show()
{
    uint8_t version = 0;
    if (!m_inside.GetFirmwareVer(&version))
        throw Failure(Exit::kFailure, fmt::format("{} tells no version of its firmware", Name()));
    nlohmann::ordered_json result = {{"model", Name()}, {"firmware", version}};
    std::string words = fmt::format("{}  firmware {}", Name(), version);
    uint8_t major = 0;
    uint8_t minor[4] = {};
    if (m_inside.model.usb3Camera && m_inside.GetFPGAVer(&major, minor)) {
        const std::string fpga =
            fmt::format("{}.{}.{}.{}.{}", major, minor[0], minor[1], minor[2], minor[3]);
        words += ", FPGA " + fpga;
        result["fpga"] = fpga;
    }
    m_console.Say(words);
    m_console.Emit(result);
}

} // namespace

void AddFirmwareCommand(CLI::App &app, Command &chosen)
{
    CLI::App *firmware = app.add_subcommand("firmware", "The firmware of a camera's controller");
    firmware->footer("vscservice firmware show");
    firmware->add_subcommand("show", "Show its version, and that of the FPGA")->callback([&chosen] {
        chosen = [](Context &context) { Workbench(context).Show(); };
    });

    CLI::App *write = firmware->add_subcommand("write", "Write firmware from a file");
    write->footer("vscservice firmware write flash camera.img");
    const auto options = std::make_shared<WriteOptions>();
    write
        ->add_option("memory", options->memory,
                     "ram, eeprom or flash: which of them a camera has follows from its controller")
        ->required()
        ->check(CLI::IsMember({"ram", "eeprom", "flash"}));
    write->add_option("file", options->file, "The firmware")->required()->type_name("FILE");
    write->add_flag("--yes", options->yes, "Do not ask");
    write->callback([&chosen, options] {
        chosen = [options](Context &context) { Workbench(context).Write(*options); };
    });
}

} // namespace vsctool
