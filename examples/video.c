/* Video in one thread, controls and guiding in another: neither waits for the other.
 *
 *     video [SECONDS]
 *
 * Prints one line a second, until the time is over or Ctrl-C is pressed. */
#include <pthread.h>
#include <signal.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>
#include <vsccam.h>

static volatile sig_atomic_t stopped; /* by the user */
static atomic_bool watching = true;   /* false: the other thread shall end */

static void stop(int signal)
{
    (void)signal;
    stopped = 1;
}

static double seconds(void)
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (double)now.tv_sec + (double)now.tv_nsec * 1e-9;
}

/* Makes the exposure longer and shorter in turn, and moves the mount to the east each time. A pulse
 * keeps this thread, but neither the video nor any other call. */
static void *steer(void *unused)
{
    static const int exposures[] = {20000, 27000, 36000, 27000}; /* microseconds */
    for (int step = 0; watching; step = (step + 1) % 4) {
        setValue(CONTROL_EXPOSURE, exposures[step], false);
        pulseGuide(GUIDE_EAST, 250); /* milliseconds */
    }
    return unused;
}

static double mean(const unsigned char *frame, int pixels)
{
    double sum = 0;
    for (int i = 0; i < pixels; ++i)
        sum += frame[i];
    return sum / pixels;
}

/* Frames of one byte per pixel until the time is over; how many came. */
static long watch(unsigned char *frame, int pixels, double duration)
{
    const double start = seconds();
    double told = start;
    long frames = 0;
    startCapture();
    while (!stopped && seconds() - start < duration) {
        /* The wait has an end, so that Ctrl-C works also when no frame comes. A camera that is
         * unplugged and plugged in again goes on by itself. */
        if (!getImageData(frame, pixels, 500))
            continue;
        ++frames;
        if (frames == 1 || seconds() - told >= 1) {
            told = seconds();
            printf("%7.1f s  %5ld frames  %ld dropped  exposure %d us  mean %.1f\n", told - start,
                   frames, (long)getDroppedFrames(), getValue(CONTROL_EXPOSURE, NULL),
                   mean(frame, pixels));
            fflush(stdout);
        }
    }
    stopCapture();
    return frames;
}

int main(int argc, char **argv)
{
    signal(SIGINT, stop);
    signal(SIGTERM, stop);
    if (getNumberOfConnectedCameras() == 0 || !openCamera(0) || !initCamera()) {
        fputs("no camera that can be opened\n", stderr);
        closeCamera();
        return 1;
    }

    const int pixels = getWidth() * getHeight(); /* VSC_IMG_RAW8, the format at start */
    unsigned char *const frame = malloc((size_t)pixels);
    pthread_t steering = 0;
    if (frame == NULL || pthread_create(&steering, NULL, steer, NULL) != 0) {
        fputs("out of memory\n", stderr);
        closeCamera();
        free(frame);
        return 1;
    }
    const long frames = watch(frame, pixels, argc > 1 ? strtod(argv[1], NULL) : 10);
    watching = false;
    pthread_join(steering, NULL);
    closeCamera(); /* also switches the guide lines off */
    free(frame);
    printf("%ld frames\n", frames);
    return frames > 0 ? 0 : 1;
}
