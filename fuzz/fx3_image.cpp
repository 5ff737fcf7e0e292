#include "fuzz.h"
#include "usb/firmware_image.h"

using namespace vsccam;

// The records of a sound image lie in it one behind the other, and leave no byte out.
int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    Fx3Image image;
    if (ParseFx3Image({bytes, size}, &image) != DownloadResult::Success)
        return 0;
    size_t at = 4;
    for (const auto &[address, data] : image.records) {
        at += 8;
        Must(data.data() == bytes + at && !data.empty() && data.size() % 4 == 0);
        at += data.size();
    }
    Must(at + 8 + 4 <= size);
    return 0;
}
