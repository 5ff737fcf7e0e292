/* A plain host program in C: opens the first camera, captures video and a single exposure. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <vsccam.h>

#define WIDTH 640
#define HEIGHT 480

static int fail(const char *what)
{
    fprintf(stderr, "host: %s\n", what);
    closeCamera();
    return 1;
}

static int looks_like_a_picture(const unsigned char *image, int size)
{
    int different = 0;
    int i;
    for (i = 1; i < size; ++i)
        different += image[i] != image[i - 1];
    return different > size / 100;
}

int main(void)
{
    static unsigned char image[WIDTH * HEIGHT];
    const int size = (int)sizeof image;
    int waits = 0;

    printf("vsccam %s, %d camera(s)\n", getSDKVersion(), getNumberOfConnectedCameras());
    if (getNumberOfConnectedCameras() < 1)
        return fail("no camera");
    printf("first: %s\n", getCameraModel(0));
    if (!openCamera(0) || !initCamera())
        return fail("cannot open the camera");
    setValue(CONTROL_GAIN, 300, 0);
    setValue(CONTROL_EXPOSURE, 20000, 0);
    if (!setImageFormat(WIDTH, HEIGHT, 1, VSC_IMG_RAW8))
        return fail("format refused");

    startCapture();
    if (!getImageData(image, size, 5000) || !looks_like_a_picture(image, size))
        return fail("no video frame");
    stopCapture();

    memset(image, 0, sizeof image);
    startExposure();
    while (getExpStatus() == VSC_EXP_WORKING && waits < 500) {
        pulseGuide(GUIDE_NORTH, 20); /* a wait like any other */
        ++waits;
    }
    if (getExpStatus() != VSC_EXP_SUCCESS || !getImageAfterExp(image, size) ||
        !looks_like_a_picture(image, size))
        return fail("no exposure");
    closeCamera();
    puts("ok");
    return 0;
}
