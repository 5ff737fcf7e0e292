#include "api/camera_names.h"
#include "api/session.h"
#include "base/config.h"
#include "base/debug_print.h"
#include "catalogue/product_list.h"
#include "models/create_camera.h"
#include "usb/device_list.h"

#include <unistd.h>
#include <vsccam.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <iterator>
#include <new>
#include <utility>

using namespace vsccam;

namespace {

bool IsOurs(const libusb_device_descriptor &descriptor)
{
    return descriptor.idVendor == CAMERA_VID && FindProduct(descriptor.idProduct);
}

/// Which device of its group, counted from 1, the camera at an index is.
int OrdinalOf(const CameraList &cameras, int index)
{
    const uint32_t *list = cameras.productIds;
    const uint32_t productId = list[index];
    return 1 + static_cast<int>(std::count_if(list, list + index, [productId](uint32_t other) {
               return SameGroup(productId, other);
           }));
}

/// Returns false also when memory or threads are short: no exception reaches the host.
bool CreateAndOpen(std::unique_ptr<CCameraBase> &camera, const Product &product, int ordinal)
{
    try {
        camera = CreateCamera(product);
        camera->RestrictTo(TheSession().Choice());
        return camera->OpenCamera(ordinal);
    } catch (const std::exception &) {
        OutputDbgPrint("no memory for %s\n", product.name);
        return false;
    }
}

} // namespace

int getNumberOfConnectedCameras()
try {
    CameraChoice choice = CamerasNamedByEnvironment();
    if (libusb_init(nullptr) != 0)
        return 0;
    uint32_t found[CameraList::kMaxCameras];
    size_t count = 0;
    {
        DeviceList devices(nullptr);
        for (libusb_device *device : devices) {
            libusb_device_descriptor descriptor{};
            if (libusb_get_device_descriptor(device, &descriptor) < 0) {
                // Quirk, kept: abrupt. The list and the context are left as they are.
                OutputAlways(Output::kStandardError, "failed to get device descriptor");
                devices.Abandon();
                return 0;
            }
            OutputDbgPrint("%04x:%04x (bus %d, device %d)\n", descriptor.idVendor,
                           descriptor.idProduct, libusb_get_bus_number(device),
                           libusb_get_device_address(device));
            if (IsOurs(descriptor) && choice.Allows(PortPathOf(device), descriptor.idProduct) &&
                count < std::size(found))
                found[count++] = descriptor.idProduct;
        }
    }
    libusb_exit(nullptr);
    TheSession().SetConnectedCameras({found, count}, std::move(choice));
    return static_cast<int>(count);
} catch (const std::bad_alloc &) {
    return 0;
}

char *getCameraModel(int iCamIndex)
{
    static thread_local char name[64];
    const CameraList cameras = TheSession().ConnectedCameras();
    if (iCamIndex < 0 || iCamIndex > cameras.count)
        return nullptr;
    const Product *product = FindProduct(cameras.productIds[iCamIndex]);
    (void)std::snprintf(name, sizeof name, "%s", product ? product->name : "Error");
    return name;
}

VSC_BOOL openCamera(int iCamIndex)
{
    const Call call(Call::Kind::Replacing);
    Session &session = TheSession();
    if (session.ConnectedCameras().count == 0)
        (void)getNumberOfConnectedCameras();
    const CameraList cameras = session.ConnectedCameras();
    if (iCamIndex < 0 || iCamIndex > cameras.count)
        return false;
    if (session.HasCamera()) {
        if (iCamIndex == session.CameraIndex())
            return true;
        OutputDbgPrint("already open close and reopen\n");
        session.CloseCamera();
    }
    const Product *product = FindProduct(cameras.productIds[iCamIndex]);
    if (!product)
        return false;
    std::unique_ptr<CCameraBase> camera;
    const bool opened = CreateAndOpen(camera, *product, OrdinalOf(cameras, iCamIndex));
    // A failed open leaves the object: the next open of another index, or a close, destroys it.
    session.InstallCamera(std::move(camera), iCamIndex); // open, no thread meets it half-way
    return opened;
}

VSC_BOOL initCamera()
{
    const Call camera(Call::Kind::InTurn);
    return camera && camera->programming.Whole([&camera] {
        const Size size = MaxSizeOf(camera->model);
        return camera->InitCamera() &&
               SetImageFormat(*camera, size.width, size.height, 1, VSC_IMG_RAW8);
    });
}

void closeCamera()
{
    const Call call(Call::Kind::Replacing);
    TheSession().CloseCamera();
}
