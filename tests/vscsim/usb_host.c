/* A host program as anybody could write it: the stock libusb, no header of this project. It reads
 * from the first camera of a bus of simulated cameras and checks what it gets. */
#include <libusb.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

enum {
    kVendorId = 0x4B59,
    kEndpoint = 0x81,
    kSony = 0xB6, /* the requests that write a register */
    kFpga = 0xBD,
    kWidth = 1936,
    kHeight = 1096,
    kFrameBytes = kWidth * kHeight,
    kTransferBytes = 1 << 20,
    kTransfers = 3,
    kFewestLines = kHeight + 18,
};

static void Check(bool right, const char *what, int line)
{
    if (right)
        return;
    fprintf(stderr, "line %d: not so: %s\n", line, what);
    exit(1); /* NOLINT(concurrency-mt-unsafe): there is one thread */
}
#define CHECK(condition) Check((condition), #condition, __LINE__)

/* --------------------------------------------------------------------------------- requests */

static void Out(libusb_device_handle *camera, int request, int value, int index)
{
    CHECK(libusb_control_transfer(camera, 0x40, (uint8_t)request, (uint16_t)value, (uint16_t)index,
                                  NULL, 0, 500) == 0);
}

/* Registers of one byte each, the low byte of the value first. */
static void Write(libusb_device_handle *camera, int request, int first, int value, int bytes)
{
    for (int i = 0; i < bytes; ++i)
        Out(camera, request, first + i, value >> 8 * i & 0xFF);
}

/* Whole sensor, 8 bits, 18.5625 MHz, lines of 203 clocks, exposed throughout. */
static void StartStream(libusb_device_handle *camera, int frameLines)
{
    Write(camera, kFpga, 1, 1, 1);
    Write(camera, kSony, 0x3007, 0x40, 1);
    Write(camera, kSony, 0x3042, kWidth, 2);
    Write(camera, kSony, 0x303E, kHeight, 2);
    Write(camera, kSony, 0x3040, 0, 2);
    Write(camera, kSony, 0x303C, 0, 2);
    Write(camera, kSony, 0x3046, 0xF1, 1);
    Write(camera, kSony, 0x3009, 0x01, 1);
    Write(camera, kSony, 0x300A, 1, 2);
    Write(camera, kFpga, 8, kHeight, 2);
    Write(camera, kFpga, 4, kWidth, 2);
    Write(camera, kFpga, 10, 0x01, 1);
    Write(camera, kFpga, 19, 203, 2);
    Write(camera, kFpga, 16, frameLines, 3);
    Write(camera, kSony, 0x3020, 1, 3);
    Write(camera, kFpga, 1, 0, 1);
    Out(camera, 0xA9, 0, 0);
    Write(camera, kSony, 0x3000, 0, 1);
    Write(camera, kFpga, 0, 0x21, 1);
    CHECK(libusb_clear_halt(camera, kEndpoint) == 0);
}

static void StopStream(libusb_device_handle *camera)
{
    Write(camera, kFpga, 0, 0x31, 1);
    Write(camera, kSony, 0x3000, 1, 1);
    Out(camera, 0xAA, 0, 0);
}

/* ----------------------------------------------------------------------------- a frame's read */

struct Read {
    struct libusb_transfer *transfers[kTransfers];
    uint8_t *frame;
    int pending;
};

static void LIBUSB_CALL OnTransfer(struct libusb_transfer *transfer)
{
    --((struct Read *)transfer->user_data)->pending;
}

static struct Read NewRead(libusb_device_handle *camera, struct Read *self)
{
    struct Read read = {.frame = malloc(kFrameBytes)};
    CHECK(read.frame != NULL);
    for (int i = 0; i < kTransfers; ++i) {
        const int left = kFrameBytes - i * kTransferBytes;
        read.transfers[i] = libusb_alloc_transfer(0);
        libusb_fill_bulk_transfer(
            read.transfers[i], camera, kEndpoint, read.frame + (size_t)i * kTransferBytes,
            left < kTransferBytes ? left : kTransferBytes, OnTransfer, self, 0);
    }
    return read;
}

/* A camera may be unplugged before all of its transfers are there. */
static void Submit(struct Read *read)
{
    for (int i = 0; i < kTransfers; ++i) {
        const int result = libusb_submit_transfer(read->transfers[i]);
        CHECK(result == 0 || (i > 0 && result == LIBUSB_ERROR_NO_DEVICE));
        read->pending += result == 0;
    }
}

static void Finish(struct Read *read)
{
    while (read->pending > 0)
        CHECK(libusb_handle_events(NULL) == 0);
}

/* Transfers that are complete cannot be cancelled. */
static void Cancel(struct Read *read)
{
    for (int i = 0; i < kTransfers; ++i)
        (void)libusb_cancel_transfer(read->transfers[i]);
    Finish(read);
}

static int Received(const struct Read *read)
{
    int bytes = 0;
    for (int i = 0; i < kTransfers; ++i)
        bytes += read->transfers[i]->actual_length;
    return bytes;
}

static void FreeRead(struct Read *read)
{
    for (int i = 0; i < kTransfers; ++i)
        libusb_free_transfer(read->transfers[i]);
    free(read->frame);
}

static int Word(const uint8_t *at)
{
    return at[0] | at[1] << 8;
}

static bool IsWhole(const uint8_t *frame, int *counter)
{
    *counter = Word(frame + 2);
    return Word(frame) == 0x5A7E && Word(frame + kFrameBytes - 2) == 0x3CF0 &&
           Word(frame + kFrameBytes - 4) == *counter;
}

/* The test pattern of the simulated camera, 8 bits. */
static bool ShowsPattern(const uint8_t *frame, int counter)
{
    for (int at = 4; at < kFrameBytes - 4; ++at) {
        const int x = at % kWidth, y = at / kWidth;
        if (frame[at] != ((counter * 29 + x * 5 + y * 11 + (x >> 6) * (y >> 5)) & 0xFF))
            return false;
    }
    return true;
}

/* ------------------------------------------------------------------------------------ checks */

static void CheckFrames(libusb_device_handle *camera)
{
    struct Read read = NewRead(camera, &read);
    StartStream(camera, kFewestLines);
    int last = -1;
    for (int i = 0; i < 20; ++i) {
        Submit(&read);
        Finish(&read);
        int counter = 0;
        CHECK(Received(&read) == kFrameBytes);
        CHECK(IsWhole(read.frame, &counter));
        CHECK(counter > last);
        CHECK(ShowsPattern(read.frame, counter));
        last = counter;
    }
    StopStream(camera);
    FreeRead(&read);
}

/* A camera that does not stream is silent: transfers wait until they are cancelled. */
static void CheckCancel(libusb_device_handle *camera)
{
    struct Read read = NewRead(camera, &read);
    Submit(&read);
    CHECK(libusb_submit_transfer(read.transfers[0]) == LIBUSB_ERROR_BUSY);
    Cancel(&read);
    for (int i = 0; i < kTransfers; ++i)
        CHECK(read.transfers[i]->status == LIBUSB_TRANSFER_CANCELLED);
    CHECK(Received(&read) == 0);

    int bytes = -1;
    CHECK(libusb_bulk_transfer(camera, kEndpoint, read.frame, kTransferBytes, &bytes, 50) ==
          LIBUSB_ERROR_TIMEOUT);
    CHECK(bytes == 0);
    CHECK(libusb_bulk_transfer(camera, 0x83, read.frame, 512, &bytes, 50) < 0);
    FreeRead(&read);
    CheckFrames(camera); /* and nothing of that is left over */
}

static void CheckClaim(libusb_device_handle *camera)
{
    libusb_device_handle *second = NULL;
    CHECK(libusb_open(libusb_get_device(camera), &second) == 0);
    CHECK(libusb_claim_interface(second, 0) == LIBUSB_ERROR_BUSY);
    CHECK(libusb_set_configuration(second, 1) == LIBUSB_ERROR_BUSY);
    CHECK(libusb_claim_interface(second, 1) == LIBUSB_ERROR_NOT_FOUND);
    CHECK(libusb_kernel_driver_active(second, 0) == 0);
    CHECK(libusb_release_interface(camera, 0) == 0);
    CHECK(libusb_set_configuration(second, 1) == 0);
    CHECK(libusb_claim_interface(second, 0) == 0);
    libusb_close(second);
    CHECK(libusb_claim_interface(camera, 0) == 0);
}

/* The least that a program can do for 30 frames/s: there are always transfers queued, and nobody
 * looks at what they bring. */
static void MeasureSpeed(libusb_device_handle *camera)
{
    enum { kFrames = 150, kFrameLines = 3048 };
    struct Read reads[2];
    for (int i = 0; i < 2; ++i)
        reads[i] = NewRead(camera, &reads[i]);
    StartStream(camera, kFrameLines);
    Submit(&reads[0]);
    clock_t begin = 0;
    for (int i = 0; i <= kFrames; ++i) {
        struct Read *const read = &reads[i % 2];
        Submit(&reads[(i + 1) % 2]);
        Finish(read);
        CHECK(Received(read) == kFrameBytes);
        if (i == 0)
            begin = clock();
    }
    printf("%.2f ms of processor each\n",
           (double)(clock() - begin) * 1e3 / CLOCKS_PER_SEC / kFrames);
    StopStream(camera);
    Cancel(&reads[(kFrames + 1) % 2]);
    for (int i = 0; i < 2; ++i)
        FreeRead(&reads[i]);
}

static const struct {
    const char *name;
    void (*run)(libusb_device_handle *camera);
} kChecks[] = {
    {"frames", CheckFrames},
    {"cancel", CheckCancel},
    {"claim", CheckClaim},
    {"speed", MeasureSpeed},
};

static void List(void)
{
    libusb_device **devices = NULL;
    const ssize_t count = libusb_get_device_list(NULL, &devices);
    CHECK(count >= 0);
    for (ssize_t i = 0; i < count; ++i) {
        struct libusb_device_descriptor descriptor;
        CHECK(libusb_get_device_descriptor(devices[i], &descriptor) == 0);
        printf("%04x:%04x %s\n", descriptor.idVendor, descriptor.idProduct,
               libusb_get_device_speed(devices[i]) == LIBUSB_SPEED_SUPER ? "super" : "high");
    }
    libusb_free_device_list(devices, 1);
}

static libusb_device_handle *OpenFirst(void)
{
    libusb_device **devices = NULL;
    libusb_device_handle *camera = NULL;
    const ssize_t count = libusb_get_device_list(NULL, &devices);
    for (ssize_t i = 0; i < count && !camera; ++i) {
        struct libusb_device_descriptor descriptor;
        CHECK(libusb_get_device_descriptor(devices[i], &descriptor) == 0);
        if (descriptor.idVendor == kVendorId)
            CHECK(libusb_open(devices[i], &camera) == 0);
    }
    libusb_free_device_list(devices, 1);
    CHECK(camera != NULL);
    CHECK(libusb_set_configuration(camera, 1) == 0);
    CHECK(libusb_claim_interface(camera, 0) == 0);
    return camera;
}

/* usb_host list | CHECK... */
int main(int argc, char **argv)
{
    CHECK(libusb_init(NULL) == 0);
    if (argc > 1 && strcmp(argv[1], "list") == 0) {
        List();
        argc = 0;
    }
    for (int i = 1; i < argc; ++i) {
        bool known = false;
        for (size_t j = 0; j < sizeof kChecks / sizeof kChecks[0]; ++j) {
            if (strcmp(argv[i], kChecks[j].name) != 0)
                continue;
            libusb_device_handle *camera = OpenFirst();
            kChecks[j].run(camera);
            libusb_close(camera);
            known = true;
        }
        CHECK(known);
    }
    libusb_exit(NULL);
    return 0;
}
