#include "failure.h"
#include "fuzz.h"
#include "ser/file.h"

#include <sys/mman.h>
#include <unistd.h>

using namespace vsctool;

namespace {

/// Nothing is wrong with what was repaired, and it has the frames that it had before.
void RepairAndLook(const std::string &path)
{
    int64_t frames = 0;
    {
        const SerFile file(path);
        frames = file.Frames();
        Must(frames >= 0 && file.Times() >= 0 && file.Times() <= frames);
        Must(file.Place(frames) <= file.Size());
        (void)TimingOf(file);
        (void)file.Faults();
    }
    Must(RepairSer(path).frames == frames);
    const SerFile repaired(path);
    Must(repaired.Frames() == frames && repaired.Header().frames == frames);
    Must(repaired.Times() == 0 || repaired.Times() == frames);
    Must(repaired.Faults().empty());
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    const int file = memfd_create("ser", MFD_CLOEXEC);
    Must(file >= 0 && write(file, bytes, size) == static_cast<ssize_t>(size));
    try {
        RepairAndLook("/proc/self/fd/" + std::to_string(file));
    } catch (const Failure &failure) {
        Must(*failure.what() != '\0');
    }
    close(file);
    return 0;
}
