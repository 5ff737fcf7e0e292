#include "fuzz.h"
#include "usb/firmware_image.h"

#include <algorithm>

using namespace vsccam;

// The records of a sound image lie in it one behind the other, and leave no byte out.
int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    const auto records = ParseFx2Image({bytes, size});
    if (!records)
        return 0;
    size_t at = kFx2HeaderBytes;
    for (const auto &[address, data] : *records) {
        at += 4;
        Must(data.data() == bytes + at && address <= 0xFFFF);
        at += data.size();
    }
    Must(at + kFx2EndRecord.size() <= size &&
         std::equal(kFx2EndRecord.begin(), kFx2EndRecord.end(), bytes + at));
    return 0;
}
