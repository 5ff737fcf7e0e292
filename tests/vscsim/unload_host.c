/* A host program that loads the library, uses it and lets go of it again, as programs with plug-ins
 * do. Then something happens on the bus: no thread may still wait for that in code that is gone. */
#include <dlfcn.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <umockdev.h>
#include <unistd.h>

static void Check(bool right, const char *what, int line)
{
    if (right)
        return;
    fprintf(stderr, "line %d: not so: %s\n", line, what);
    exit(1); /* NOLINT(concurrency-mt-unsafe): nothing runs at exit */
}
#define CHECK(condition) Check((condition), #condition, __LINE__)

static int (*Function(void *library, const char *name))(int)
{
    int (*function)(int) = NULL;
    *(void **)&function = dlsym(library, name);
    CHECK(function != NULL);
    return function;
}

/* It can be seen and opened, but not set up. */
static const char kCamera[] = "P: /devices/usb1/1-1\n"
                              "N: bus/usb/001/002=00\n"
                              "E: SUBSYSTEM=usb\n"
                              "E: DEVNAME=/dev/bus/usb/001/002\n"
                              "E: DEVTYPE=usb_device\n"
                              "A: busnum=1\\n\n"
                              "A: devnum=2\\n\n"
                              "A: speed=480\\n\n"
                              "A: bConfigurationValue=1\\n\n"
                              "H: descriptors=1201000200000040594b0b47000100000000\n";

/* unload_host LIBRARY, under umockdev */
int main(int argc, char **argv)
{
    CHECK(argc == 2);
    UMockdevTestbed *const bus = umockdev_testbed_new();
    CHECK(umockdev_testbed_add_from_string(bus, kCamera, NULL));
    for (int times = 0; times < 2; ++times) {
        void *const library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
        CHECK(library != NULL);
        CHECK(Function(library, "getNumberOfConnectedCameras")(0) == 1);
        CHECK(Function(library, "openCamera")(0) == 0); /* its node is a plain file */
        (void)Function(library, "closeCamera")(0);
        CHECK(dlclose(library) == 0);
    }
    CHECK(dlopen(argv[1], RTLD_NOW | RTLD_NOLOAD) != NULL); /* a camera might have been open */
    umockdev_testbed_uevent(bus, "/sys/devices/usb1/1-1", "add");
    (void)usleep(200000);
    return 0;
}
