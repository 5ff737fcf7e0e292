#include "core/dark_file.h"

#include "fuzz.h"

using namespace vsccam;

// An image is read as a whole, or the one of before is left alone.
int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    constexpr Size kSensor{16, 8};
    // fmemopen takes a pointer to non-const for writing too.
    const File file(fmemopen(const_cast<uint8_t *>(bytes), size, "rb"));
    if (!file)
        return 0;
    std::vector<uint8_t> image = {1, 2, 3};
    const bool read = ReadDarkFile(file.get(), kSensor, &image) == DarkFileResult::kRead;
    Must(image.size() == (read ? 16U * 8U : 3U));
    return 0;
}
