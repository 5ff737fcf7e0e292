/*
 * vsccam - driver library for the VSC family of USB astronomy cameras.
 *
 * One camera is open at a time. A program counts the cameras, opens one by its index, initialises
 * it, sets format and controls, and then runs either video (startCapture, getImageData,
 * stopCapture) or single exposures (startExposure, getExpStatus, getImageAfterExp).
 *
 * Threads: every function may be called from any thread at any time; no lock of the host is needed.
 *  - A thread that waits for a frame (getImageData) or sends a guide pulse (pulseGuide) delays no
 *    other call. Calls that set or ask the camera may wait for the requests of other calls. The
 *    camera answers each of those within milliseconds; one that it does not answer takes 0.5 s at
 *    most.
 *  - "Served in turn", one after the other in the order of the calls, are: openCamera, closeCamera,
 *    initCamera, setImageFormat, setStartPos, startCapture, stopCapture, startExposure,
 *    stopExposure, and setValue of CONTROL_HARDWARE_BIN and CONTROL_HIGH_SPEED. Each of them may
 *    first wait for those that are under way.
 *  - Waits for frames end, without a frame, before stopCapture, stopExposure, closeCamera,
 *    setImageFormat and the two setValue return. A frame is delivered in the one format or in the
 *    other, and never beyond the size of the host's buffer.
 *  - While a camera is being closed, calls from other threads find none. Calls that are inside it
 *    end first, some of them failed (see there).
 *  - Functions that return what was set ask the library, not the camera: they return at once, also
 *    while another thread waits for the camera. Only temperature and identity are read anew.
 * No function takes a lock of the host, and none throws or aborts. Calls from signal handlers and
 * from a forked child that has not called exec are not supported.
 *
 * Errors are values: every function has a documented result for "no camera is open", and a false
 * (0) result changes nothing unless it says so. Messages for humans appear on standard output
 * after setDebugPrint(true), each behind the tag "<VSC SDK> ".
 *
 * How long a call may take: functions without a wait argument end within 2 s also when the camera
 * is unplugged or does not answer, unless their description says otherwise. A call of the kernel
 * that is under way (clearing an endpoint, resetting or configuring the device) may add its own
 * limit, five seconds at most.
 */
#ifndef VSCCAM_H
#define VSCCAM_H

#ifndef __cplusplus
#if defined(__STDC_VERSION__) && __STDC_VERSION__ >= 199901L
#include <stdbool.h>
#else
typedef unsigned char bool; /* one byte, 0 or 1, as in C99 and C++ */
#endif
#endif

#if defined(__GNUC__)
#define VSC_API __attribute__((visibility("default")))
#else
#define VSC_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** Boolean result: 1 true, 0 false. Arguments and output values use the one-byte bool. */
typedef int VSC_BOOL;

/** Controls of getValue, setValue, getMin, getMax, isAutoSupported and isAvailable. */
typedef int Control_TYPE;
enum {
    CONTROL_GAIN = 0,          /**< sensor gain. On Sony and S2800 models 0.1 dB a unit, in steps
                                *   of the sensor (Sony: 0.3 dB, and twice the charge conversion
                                *   from 61 on). PYTHON models: the range spans four doublings.
                                *   USB 2.0 sensors and S340-S: a doubling every 16 units, a
                                *   little more than one from 80 to 100. Read from the
                                *   registers; not verified on hardware */
    CONTROL_EXPOSURE = 1,      /**< exposure time, microseconds; startExposure tells how times from
                                *   1 s on are rounded. A negative time becomes the longest of the
                                *   model */
    CONTROL_GAMMA = 2,         /**< 0 to 100; 50 is linear, larger is brighter */
    CONTROL_WB_RED = 3,        /**< white balance of the red sites, 50 is unity; colour models */
    CONTROL_WB_BLUE = 4,       /**< white balance of the blue sites, 50 is unity; colour models */
    CONTROL_BRIGHTNESS = 5,    /**< black-level offset added by the sensor */
    CONTROL_BANDWIDTH = 6,     /**< share of the USB bandwidth that frames may use, per cent; on
                                *   S350, S056 and S047 models a step from 0 to 2 */
    CONTROL_OVERCLOCK = 7,     /**< over-clock, per cent; no model offers it */
    CONTROL_TEMPERATURE = 8,   /**< sensor temperature, tenths of a degree Celsius; read only */
    CONTROL_HARDWARE_BIN = 9,  /**< 1: binning is done by the sensor */
    CONTROL_HIGH_SPEED = 10,   /**< 1: faster read-out with fewer bits */
    CONTROL_COOLER_POWER = 11, /**< cooler power, per cent; read only; cooled models */
    CONTROL_TARGET_TEMP = 12,  /**< target of the cooler, degrees Celsius; cooled models */
    CONTROL_COOLER_ON = 13,    /**< 1: the cooler regulates; cooled models. Without a reading of the
                                *   temperature its power stays for 60 s, then falls to 0 until
                                *   there are readings again */
    CONTROL_MONO_BIN = 14,     /**< 1: colour models bin without regard to colour */
    CONTROL_FAN_ON = 15        /**< 1: the fan runs; cooled models */
};

/** Image formats of setImageFormat, getImgType and isImgTypeSupported. */
enum VSC_IMG_TYPE {
    VSC_IMG_RAW8 = 0,  /**< one byte per pixel as the sensor has it (mosaic on colour models): the
                        *   upper 8 bits of the converter's 12, of 14 on S430, S083, S065 and S385,
                        *   or of 10 with CONTROL_HIGH_SPEED on Sony and S2800 models */
    VSC_IMG_RGB24 = 1, /**< three bytes per pixel, demosaiced from 8 bits, in the order blue, green,
                        *   red */
    VSC_IMG_RAW16 = 2, /**< 16 bits per pixel in host byte order; the 12 or 14 bits of the converter
                        *   are the upper ones, so that steps are 16 or 4 apart */
    VSC_IMG_Y8 = 3     /**< one byte luminance per pixel */
};

/** Result of getExpStatus. */
enum VSC_EXP_STATUS {
    VSC_EXP_IDLE = 0,    /**< no single exposure under way, or its frame was taken or dropped */
    VSC_EXP_WORKING = 1, /**< the exposure runs; also during video and after it */
    VSC_EXP_SUCCESS = 2, /**< a frame waits for getImageAfterExp */
    VSC_EXP_FAILED = 3   /**< the exposure ended without a frame; also: no camera is open */
};

/** The four lines of the guide port, in the order of the connector. Which of them moves the mount
 *  in which direction depends on the mount; the names follow the usual wiring and were not
 *  verified on hardware. */
typedef int GuideD;
enum { GUIDE_NORTH = 0, GUIDE_SOUTH = 1, GUIDE_EAST = 2, GUIDE_WEST = 3 };

/** Eight bytes of user identity that the camera keeps in its flash memory. */
typedef struct _VSC_ID {
    unsigned char id[8];
} _VSC_ID;

/* ---- the library and its cameras ---- */

/** Version of the library, such as "1.0.0". The text belongs to the library. */
VSC_API const char *getSDKVersion(void);

/** Switches the messages on standard output on or off; off at start. One line per event, no line
 *  per good frame. */
VSC_API void setDebugPrint(bool on);

/** Counts the supported cameras on the USB bus and refreshes the list behind the indexes of
 *  getCameraModel and openCamera.
 *
 *  The environment variable VSCCAM_CAMERA restricts the count, openCamera and the search for a
 *  camera that was unplugged to the cameras that it names: by their port as the system calls it,
 *  "usb:1-2.3", or by their model, "model:VSC470MC" (the maker's word may come first, upper and
 *  lower case are alike, a variant has its own name). Several are separated by commas. What cannot
 *  be read names no camera. A port belongs to one bus and thus to one speed: name both where a
 *  camera may fall back to USB 2.0. Without the variable, or with an empty one, all cameras count;
 *  programs with raised privileges (setuid) do not follow it. It is read at each count, so no other
 *  thread may change the environment meanwhile.
 *  @return number of cameras; 0 also when the bus cannot be read
 *  @note Takes the time to read the descriptors of all devices; asks nothing of an open camera. */
VSC_API int getNumberOfConnectedCameras(void);

/** Model name of a camera of the last count, such as "KYR VSC470MC".
 *  @param iCamIndex  0 to count - 1
 *  @return a text that the next call of the same thread overwrites; "Error" when the entry holds no
 *          supported camera; NULL when the index is negative or greater than the count
 *  @note There is one text for each thread. */
VSC_API char *getCameraModel(int iCamIndex);

/** Opens the camera at an index of the last count (counting first if there was no count yet).
 *  Opening the index that is open already does nothing and returns 1; another index closes the
 *  camera that is open. Only the primary product ID of a model can be opened; its variants ("-A",
 *  "-B") are counted but not opened by themselves.
 *  @return 1 on success; 0 when there is no such camera, it is in use by another program, access
 *          to it is not permitted, or memory ran out
 *  @note After a failure the index counts as open: call closeCamera before trying it again.
 *  @note Served in turn. While a camera is being opened, calls of other threads find none.
 *  @note Some USB 2.0 cameras with old firmware get a newer one from files, when these are there;
 *        it takes up to 10 s. Without them the camera is used as it is, and a message names the
 *        missing or damaged file: s340mm.fx2, s340mc.fx2, s350mm.fx2 or s052mc.fx2 of the model,
 *        and vendor1.bin and vendor2.bin. They are looked for in the directory that
 *        VSCCAM_FIRMWARE_DIR names in the environment, else in /usr/lib/firmware/vsccam, unless
 *        the library was configured otherwise. Nothing is written to such a camera when it does not
 *        answer the question for its version; it is not opened then. After a failed refresh, call
 *        closeCamera and open the camera again: its firmware runs until it is unplugged. */
VSC_API VSC_BOOL openCamera(int iCamIndex);

/** Programs sensor and camera and sets the full sensor size, bin 1, VSC_IMG_RAW8. To be called
 *  once after openCamera. A message tells what of the model was never verified on hardware.
 *  @return 1 on success; 0 without an open camera, or when a request that sets the camera up got no
 *          answer, although everything was sent again. Such a camera must not be used
 *  @note Served in turn; calls that set controls wait for its end. It waits for a SetID or GetID of
 *        another thread. */
VSC_API VSC_BOOL initCamera(void);

/** Stops whatever runs and closes the camera. Settings and cooling end with it.
 *  @note Served in turn, then ends within 2 s. Waits for frames end first, and so do guide pulses:
 *        their lines are switched off before their time. Other calls that use the camera have 0.3 s
 *        to end. Then the device is closed under them, and they fail; a SetID that fails so leaves
 *        no identity. */
VSC_API void closeCamera(void);

/* ---- controls ---- */

/** Present value of a control.
 *  @param pbAuto  receives whether the control sets itself; false for controls without that mode.
 *                 May be NULL.
 *  @return the value in the unit given at Control_TYPE; 0 for an unknown control or no camera
 *  @note CONTROL_TEMPERATURE asks the camera each time, see getSensorTemp. All others return at
 *        once. */
VSC_API int getValue(Control_TYPE control, bool *pbAuto);

/** Sets a control. Gain, exposure, white balance, bandwidth and target temperature are clamped to
 *  what the model can do; gamma and brightness are taken as they are (see getMin and getMax), but
 *  S2800 and PYTHON models clamp brightness, too. Read-only and unknown controls, and cooler
 *  controls of models without a cooler, are ignored.
 *  @param bAuto  true lets the control set itself (gain, exposure, white balance, bandwidth). Red
 *                and blue share this flag: either one switches it for both.
 *  @note A setting is in force at once. When the camera leaves a request for it unanswered, the
 *        library programs everything again before it takes another frame from the camera.
 *  @note Video goes on meanwhile. Up to five frames that are already being exposed, transferred or
 *        waiting still have the setting of before. The same holds for setStartPos: a frame shows
 *        one region or the other. A single exposure begins anew when exposure, region or frame
 *        timing change.
 *  @note Sends requests, and waits for calls of other threads that set something. Hardware binning
 *        and high speed pause a running capture, as setImageFormat does, and are served in turn. */
VSC_API void setValue(Control_TYPE control, int value, bool bAuto);

/** Smallest value of a control; 0 for an unknown control or no camera. */
VSC_API int getMin(Control_TYPE control);

/** Largest value of a control; 0 for an unknown control or no camera. */
VSC_API int getMax(Control_TYPE control);

/** Whether a control can set itself; 0 for an unknown control or no camera. */
VSC_API VSC_BOOL isAutoSupported(Control_TYPE control);

/** Whether the open model has a control; 0 for an unknown control or no camera. */
VSC_API VSC_BOOL isAvailable(Control_TYPE control);

/** Limits of the automatic modes. While the mean brightness is within 15 % of the target, nothing
 *  moves.
 *  @param maxGain           gain that automatic gain never exceeds
 *  @param maxExp            exposure that automatic exposure never exceeds, seconds
 *  @param targetBrightness  mean brightness aimed at, 0 to 255. With 8 bits and software binning it
 *                           is that of the sum of the binned pixels: the mean of the delivered
 *                           frames is targetBrightness / (bin * bin) */
VSC_API void setAutoPara(int maxGain, int maxExp, int targetBrightness);

/** Reads what setAutoPara sets. Pointers may be NULL; nothing is written without a camera. */
VSC_API void getAutoPara(int *maxGain, int *maxExp, int *targetBrightness);

/* ---- geometry and format ---- */

/** Sets size, binning and format of the frames, with the region centred on the sensor (setStartPos
 *  moves it). A running video is stopped, programmed and started again, and so is a running
 *  exposure: no frame of the old size is delivered afterwards. The frame of a finished exposure
 *  that was not taken is dropped.
 *  Width times bin is at most getMaxWidth(), height times bin at most getMaxHeight(). USB 3.0
 *  models other than S340 want a width that is a multiple of 8 and an even height; S340 and S052
 *  models want width * height * bin * bin to be a multiple of 1024.
 *  @param width    output pixels
 *  @param height   output pixels
 *  @param bin      binning factor. isBinSupported names those that the model is made for; any other
 *                  from 1 on whose frame fits the sensor is accepted, too, and binned in software
 *  @param imgType  VSC_IMG_TYPE
 *  @return 1 on success; 0 when the size or format is refused, in which case the previous format
 *          stays; 0 also when the camera stopped answering, in which case the new format is in
 *          force, and the camera is programmed for it before its next frame
 *  @note Served in turn. Waits of other threads for a frame end, without one, before anything
 *        changes, also when the format is refused; a frame that is being delivered is finished. */
VSC_API VSC_BOOL setImageFormat(int width, int height, int bin, int imgType);

/** Present format, VSC_IMG_TYPE; 3 without a camera. */
VSC_API int getImgType(void);

/** Whether the open model delivers a format; 0 without a camera. */
VSC_API VSC_BOOL isImgTypeSupported(int imgType);

/** Whether the open model is made for a binning factor; 0 without a camera. */
VSC_API VSC_BOOL isBinSupported(int bin);

/** Present binning factor; 1 without a camera. */
VSC_API int getBin(void);

/** Largest width in unbinned pixels; 0 without a camera. */
VSC_API int getMaxWidth(void);

/** Largest height in unbinned pixels; 0 without a camera. */
VSC_API int getMaxHeight(void);

/** Present width of delivered frames, pixels; 0 without a camera. */
VSC_API int getWidth(void);

/** Present height of delivered frames, pixels; 0 without a camera. */
VSC_API int getHeight(void);

/** Moves the region, also while video runs. Positions are aligned and clamped by the model.
 *  @param x, y  top left corner in binned pixels
 *  @note Served in turn; sends requests. */
VSC_API void setStartPos(int x, int y);

/** Left edge of the region in binned pixels; 0 without a camera. */
VSC_API int getStartX(void);

/** Top edge of the region in binned pixels; 0 without a camera. */
VSC_API int getStartY(void);

/** Whether the sensor has a colour mosaic; 0 without a camera. */
VSC_API VSC_BOOL isColorCam(void);

/** Edge of one unbinned pixel in micrometres; 0.0 without a camera. */
VSC_API double getPixelSize(void);

/** Mosaic of colour models, by its first row: 0 RG, 1 BG, 2 GR, 3 GB; 2 without a camera. */
VSC_API int getColorBayer(void);

/** Whether the camera is plugged into a USB 3.0 port; 0 without a camera. Known after initCamera; a
 *  camera that was lost may come back at a port of another speed. */
VSC_API VSC_BOOL isUSB3Host(void);

/** Whether the model is a USB 3.0 camera; 0 without a camera. */
VSC_API VSC_BOOL isUSB3Camera(void);

/** Whether the model has a cooler; 0 without a camera. */
VSC_API VSC_BOOL isCoolerCam(void);

/** Electrons per ADU, from the table of the models; 0.0 where it names none, or without a camera.
 *  An ADU is one step of the sensor's converter, which has 12 bits (14 on S430, S083, S065 and
 *  S385): a unit of VSC_IMG_RAW16 is 1/16 (1/4) ADU, one of VSC_IMG_RAW8 is 16 (64) ADU. The
 *  figures are taken to hold at gain 0, where they agree with the capacity of the pixels. Not
 *  verified on hardware.
 */
VSC_API float getElectronsPerADU(void);

/** The four gain and offset figures of the model, from the table of the models; -1 where it names
 *  none. What each of them recommends is not documented.
 *  Pointers may be NULL; nothing is written without a camera. */
VSC_API void getGainOffset(int *a, int *b, int *c, int *d);

/* ---- video ---- */

/** Starts continuous video. Does nothing when capture runs already or no camera is open. A camera
 *  that is lost during the capture is looked for, and programmed as it was when it is back. One
 *  that missed a request is programmed again, too.
 *  @note Served in turn. Does not wait for the first frame. */
VSC_API void startCapture(void);

/** Stops video, or aborts a single exposure.
 *  @note Served in turn, then ends within 2 s. Waits of other threads for a frame end first. */
VSC_API void stopCapture(void);

/** Copies the next video frame into the host's buffer.
 *  @param buffer      width x height pixels in the current format, top row first, no row padding
 *  @param bufferSize  bytes available; nothing is copied when the frame is larger
 *  @param waitMs      longest wait in milliseconds, -1 for no limit
 *  @return 1 when a frame was copied; 0 on time-out, small or NULL buffer, when capture stopped or
 *          the camera was lost during the wait, or no open camera
 *  @note Waits: blocks the calling thread, and no call of another one, for at most waitMs + 100 ms.
 *        Of several threads that wait, each gets its frames in the order of the calls; nobody gets
 *        one that another has got. */
VSC_API VSC_BOOL getImageData(unsigned char *buffer, int bufferSize, int waitMs);

/** Frames lost since capture was started: refused by a full buffer, incomplete, damaged, or missed
 *  while the camera was away. A stop resets the count; 0 without a camera. */
VSC_API int getDroppedFrames(void);

/* ---- single exposures ---- */

/** Starts one exposure of CONTROL_EXPOSURE microseconds; getExpStatus tells how it goes. Does
 *  nothing while video or another exposure runs, which go on: call stopCapture first.
 *
 *  Short exposures are timed by the sensor, long ones by the host, in whole steps; what is left of
 *  a step is cut off. In video the same holds for each frame.
 *    Sony models   from 1 s on: whole ms below 1.001 s, then 200 ms; 1.1 s is exposed as 1.0 s,
 *                  1.5 s as 1.4 s
 *    S2800         from 1 s on: whole ms below 2 s, then 100 ms, to the nearest; 2.04 s as 2.0 s
 *    S340-S        over 4 s (at a USB 3.0 port from 3.8 s): 200 ms
 *    USB 2.0       over 4 s: whole ms
 *    PYTHON        none: 64 ms are the longest
 *  Whatever the camera does, the exposure ends, with a frame or as failed, at most 5 s and four
 *  frame times after its own time. It fails within 1 s when the camera is unplugged.
 *  @note Served in turn. Does not wait for the exposure. */
VSC_API void startExposure(void);

/** Aborts a running exposure; its frame is lost and the state goes back to VSC_EXP_IDLE.
 *  @note As stopCapture. */
VSC_API void stopExposure(void);

/** State of the single exposure, VSC_EXP_STATUS; 3 without a camera. */
VSC_API int getExpStatus(void);

/** Copies the frame of a finished exposure and sets the state to VSC_EXP_IDLE, whatever it was.
 *  @param buffer      as in getImageData
 *  @param bufferSize  bytes available; when the frame is larger, nothing changes
 *  @return 1 when a frame was copied; 0 when the state was not VSC_EXP_SUCCESS, for a small or
 *          NULL buffer, or no open camera
 *  @note Waits for no exposure; for a getImageData of another thread, 1 s at most. Of several
 *        threads that call it, one gets the frame. */
VSC_API VSC_BOOL getImageAfterExp(unsigned char *buffer, int bufferSize);

/* ---- other ---- */

/** Sensor temperature in degrees Celsius, the last known one when the camera does not answer;
 *  0.0 for models without a sensor thermometer or without a camera.
 *  @note Asks the camera: waits for its answer, 0.5 s at most for each of its requests (one; on
 *        USB 2.0 models up to three), and for a request of another thread. */
VSC_API float getSensorTemp(void);

/** Mirrors delivered frames: left to right (x), top to bottom (y).
 *  @return 1; 0 without a camera */
VSC_API VSC_BOOL SetMisc(bool bFlipX, bool bFlipY);

/** Reads what SetMisc sets. Pointers may be NULL; nothing is written without a camera. */
VSC_API void GetMisc(bool *pbFlipX, bool *pbFlipY);

/** Switches a line of the guide port on, waits, and switches it off again. Directions beyond the
 *  four do nothing.
 *  @param ms  length of the pulse in milliseconds; 0 or less sends only "off", which ends what a
 *             program that was killed may have left on
 *  @note Blocks the calling thread, and no call of another one, for the length of the pulse. Lines
 *        0 and 1 are opposite (north, south), and so are 2 and 3 (east, west): a pulse, of whatever
 *        length, first waits for those of other threads on its line and on the opposite one, in
 *        the order of the calls. The two axes do not wait for each other.
 *  @note A pulse ends early only when its camera is closed; the line is switched off then. */
VSC_API void pulseGuide(GuideD direction, int ms);

/** Loads a dark frame from an 8-bit BMP file of the full sensor size and subtracts it from 8-bit
 *  frames from then on; its mean is added back, and pixels far above it are patched. The
 *  frame follows region and binning. With automatic exposure, nothing is subtracted below 0.5 s.
 *  'vsccam dark make' writes such files.
 *  @return 1 when it was loaded; 0 otherwise, or without a camera
 *  @note Takes the time to read the file; sends nothing. */
VSC_API VSC_BOOL EnableDarkSubtract(const char *bmpPath);

/** Ends the subtraction of a dark frame and forgets it. */
VSC_API void DisableDarkSubtract(void);

/** Reads the identity that the camera keeps.
 *  @return 1 when the camera holds one; 0 otherwise, *id is then untouched
 *  @note Sends requests, and waits for a SetID or initCamera of another thread. */
VSC_API VSC_BOOL GetID(_VSC_ID *id);

/** Writes the identity into the camera's flash memory, for good.
 *  @return 1 when it was written and read back
 *  @note Erases a sector of the flash first: takes as long as that, 60 s at most. Delays no calls
 *        of other threads but GetID, SetID and initCamera. */
VSC_API VSC_BOOL SetID(_VSC_ID id);

#ifdef __cplusplus
}
#endif

#endif /* VSCCAM_H */
