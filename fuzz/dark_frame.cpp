#include "dark_bmp.h"
#include "failure.h"
#include "fuzz.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <string>

// The pixels of a frame that is read are all that its size promises, from where the file says.
int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    const int file = memfd_create("dark", MFD_CLOEXEC);
    Must(file >= 0 && write(file, bytes, size) == static_cast<ssize_t>(size));
    try {
        const vsctool::DarkFrame dark = vsctool::ReadDark("/proc/self/fd/" + std::to_string(file));
        Must(dark.width > 0 && dark.height > 0);
        Must(dark.pixels.size() ==
             static_cast<size_t>(dark.width) * static_cast<size_t>(dark.height));
        const size_t offset = bytes[12] | bytes[13] << 8 | bytes[14] << 16;
        Must(offset + dark.pixels.size() <= size);
        Must(std::equal(dark.pixels.begin(), dark.pixels.end(), bytes + offset));
    } catch (const vsctool::Failure &failure) {
        Must(*failure.what() != '\0');
    }
    close(file);
    return 0;
}
