#include "core/flash_access.h"
#include "core/hot_pixel_record.h"
#include "core/hot_pixel_store.h"
#include "lying_camera.h"
#include "models/create_camera.h"

#include <array>

using namespace vsccam;

namespace {

constexpr uint32_t kIdentityAt = 0x70000;
constexpr size_t kIdentityBytes = 10; // with its tag
constexpr CameraId kNone = {9, 9, 9, 9, 9, 9, 9, 9};

/// Every flash access may end like the input says, or as it should.
class WornFlash : public Liar {
  public:
    using Liar::Liar;
    void Answer(const vscsim::ControlRequest &request, vscsim::ControlReply &reply) override
    {
        if (request.request == 0xC3)
            Liar::Answer(request, reply);
    }
};

/// What is read of a stored record is what the flash has, up to the longest, and no pixel that it
/// names lies beside the sensor.
void ReadTable(CCameraBase &camera)
{
    const Size sensor{camera.model.sensorWidth, camera.model.sensorHeight};
    StoredHotPixels stored;
    {
        FlashAccess flash(camera);
        stored = ReadHotPixels(flash);
    }
    Must(stored.record.size() <= kLongestHotPixelRecord);
    if (const auto pixels = PixelsOf(stored, sensor))
        Must(std::ranges::all_of(*pixels, [=](uint32_t pixel) {
            return pixel < static_cast<uint32_t>(sensor.width * sensor.height);
        }));
    (void)camera.LoadHPCTable();
}

/// An identity is what the flash has, with zeros for what did not come, or it is left alone.
void ReadIdentity(CCameraBase &camera, std::span<const uint8_t> page, bool honest)
{
    CameraId id = kNone;
    const bool read = camera.ReadIDFromSPI(&id);
    const bool tagged = page[0] == 'I' && page[1] == 'D';
    Must(read ? !honest || (tagged && std::ranges::equal(id, page.subspan(2)))
              : id == kNone && !(honest && tagged));
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    const std::span input(bytes, size);
    std::array<uint8_t, kIdentityBytes> page{};
    std::copy_n(input.begin(), std::min(size, page.size()), page.begin());
    const std::span record = input.subspan(std::min(size, page.size()));

    const auto flash = std::make_shared<WornFlash>(record);
    if (size % 2 == 0)
        flash->TellTheTruth();
    const LyingCamera onBus("VSC450MC", flash);
    LyingCamera::Bus().With(0, [&](vscsim::Camera &device) {
        std::ranges::copy(record.first(std::min<size_t>(record.size(), kLongestHotPixelRecord)),
                          &device.Flash()[kHotPixelAddress]);
        std::ranges::copy(page, &device.Flash()[kIdentityAt]);
    });
    const auto camera = CreateCamera(*FindProduct(0x450A));
    Must(camera->OpenCamera(1));
    ReadTable(*camera);
    ReadIdentity(*camera, page, size % 2 == 0);
    (void)camera->CloseCamera();
    return 0;
}
