/* Preloaded into a program: its files lie on a disk that is full, breaks, or is slow.
 * BAD_DISK=full:BYTES, broken:BYTES or slow:BYTES_PER_SECOND, of what is written by pwrite. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

typedef ssize_t (*write_at)(int, const void *, size_t, off64_t);

static ssize_t Write(int file, const void *bytes, size_t count, off64_t offset)
{
    const write_at real = (write_at)dlsym(RTLD_NEXT, "pwrite64");
    const char *kind = getenv("BAD_DISK");
    const long long amount = kind ? atoll(strchr(kind, ':') + 1) : 0;
    if (kind && *kind == 's') {
        usleep((useconds_t)((double)count * 1e6 / (double)amount));
    } else if (kind && offset + (off64_t)count > amount) {
        count = offset < amount ? (size_t)(amount - offset) : 0; /* what there is room for */
        if (count == 0) {
            errno = *kind == 'f' ? ENOSPC : EIO;
            return -1;
        }
    }
    return real(file, bytes, count, offset);
}

ssize_t pwrite(int file, const void *bytes, size_t count, off_t offset)
{
    return Write(file, bytes, count, offset);
}

ssize_t pwrite64(int file, const void *bytes, size_t count, off64_t offset)
{
    return Write(file, bytes, count, offset);
}
