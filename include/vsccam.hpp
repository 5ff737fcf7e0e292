// vsccam for C++20: the open camera, captures and frames as objects over the functions of vsccam.h.
//
//     vsccam::Camera camera; // the first one, ready for use
//     camera.Set(CONTROL_GAIN, 200);
//     camera.SetExposure(20ms);
//
//     vsccam::Frame frame;
//     for (vsccam::Video video(camera); video.Read(frame, 2s);)
//         Show(frame.Row(0));
//
// What ends the work of a program throws an Error: no camera, a format that is refused, an exposure
// that failed. What it should expect is a result: Video::Read returns false on time-out.
//
// The functions of vsccam.h can be called beside it; those that need no help are left out here. Any
// thread may call anything of a Camera, a Video or an Exposure at any time, but frames are not read
// while another thread changes their shape. A Frame belongs to one thread at a time.
#ifndef VSCCAM_HPP
#define VSCCAM_HPP

#if __cplusplus < 202002L
#error "vsccam.hpp needs C++20"
#endif

#include <vsccam.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace vsccam {

/// what() says in a sentence what could not be done.
class Error : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// The models that are plugged in, by the index that opens them. Counts anew.
inline std::vector<std::string> Cameras()
{
    std::vector<std::string> models;
    const int count = getNumberOfConnectedCameras();
    for (int index = 0; index < count; ++index) {
        const char *const model = getCameraModel(index);
        models.emplace_back(model ? model : ""); // none if another thread has counted fewer
    }
    return models;
}

/// Size and format of frames.
struct Shape {
    int width = 0;  ///< pixels
    int height = 0; ///< pixels
    int type = VSC_IMG_RAW8;

    std::size_t BytesPerPixel() const
    {
        return type == VSC_IMG_RGB24 ? 3 : type == VSC_IMG_RAW16 ? 2 : 1;
    }
    std::size_t BytesPerRow() const { return static_cast<std::size_t>(width) * BytesPerPixel(); }
    std::size_t Bytes() const { return static_cast<std::size_t>(height) * BytesPerRow(); }
    bool operator==(const Shape &) const = default;
};

/// A picture in memory of its own, which the next one that is read into it uses again.
class Frame {
  public:
    const Shape &GetShape() const { return m_shape; }

    /// All rows from the top one on, without padding.
    std::span<const std::uint8_t> Bytes() const { return m_bytes; }

    /// One row. Its samples are std::uint16_t in frames of VSC_IMG_RAW16; of VSC_IMG_RGB24 there
    /// are three in a pixel: blue, green, red.
    template <class Sample = std::uint8_t> std::span<const Sample> Row(int y) const
    {
        const auto row = Bytes().subspan(static_cast<std::size_t>(y) * m_shape.BytesPerRow(),
                                         m_shape.BytesPerRow());
        return {reinterpret_cast<const Sample *>(row.data()), row.size() / sizeof(Sample)};
    }

  private:
    friend class Exposure;
    friend class Video;

    /// Makes room for what the camera delivers now.
    void Fit()
    {
        m_shape = {getWidth(), getHeight(), getImgType()};
        m_bytes.resize(m_shape.Bytes());
    }
    int Capacity() const { return static_cast<int>(m_bytes.size()); }

    Shape m_shape;
    std::vector<std::uint8_t> m_bytes;
};

/// The camera that is open. A process has one at a time: another Camera meanwhile is an Error.
class Camera {
  public:
    /// Opens and initialises the camera at an index of Cameras().
    explicit Camera(int index = 0)
    {
        if (s_open.exchange(true))
            throw Error("a camera is open in this program already");
        if (!openCamera(index))
            Fail("the camera cannot be opened: it is missing, in use or not permitted");
        if (const char *model = getCameraModel(index)) // else somebody counts at the same time
            m_model = model;
        if (!initCamera())
            Fail("the camera does not answer: plug it in again");
    }
    /// Settings and cooling end here.
    ~Camera() { Close(); }
    Camera(const Camera &) = delete;
    Camera &operator=(const Camera &) = delete;

    const std::string &Model() const { return m_model; }

    /// Sets a control, within the limits of the model; the automatic one gives way.
    void Set(Control_TYPE control, int value)
    {
        Require(control);
        setValue(control, value, false);
    }
    /// Lets a control set itself, from its present value on.
    void SetAuto(Control_TYPE control)
    {
        if (!isAutoSupported(control))
            throw Error("this camera does not set control " + std::to_string(control) +
                        " by itself");
        setValue(control, getValue(control, nullptr), true);
    }
    int Get(Control_TYPE control) const
    {
        Require(control);
        return getValue(control, nullptr);
    }

    void SetExposure(std::chrono::microseconds time)
    {
        constexpr std::chrono::microseconds kLongest(std::numeric_limits<int>::max());
        Set(CONTROL_EXPOSURE, static_cast<int>(std::min(time, kLongest).count()));
    }
    std::chrono::microseconds GetExposure() const
    {
        return std::chrono::microseconds(Get(CONTROL_EXPOSURE));
    }

    /// Frames of a part in the middle of the sensor; setStartPos moves it. A capture that runs goes
    /// on with them.
    void SetShape(const Shape &shape, int bin = 1)
    {
        if (!setImageFormat(shape.width, shape.height, bin, shape.type))
            throw Error("the camera refuses " + std::to_string(shape.width) + " x " +
                        std::to_string(shape.height) + " with bin " + std::to_string(bin) +
                        " and type " + std::to_string(shape.type));
    }
    /// Frames of the whole sensor, but for a few columns and a row that do not fill a step.
    void SetType(int type, int bin = 1)
    {
        SetShape({getMaxWidth() / bin / 8 * 8, getMaxHeight() / bin / 2 * 2, type}, bin);
    }

    /// Moves the mount, and waits meanwhile; video and exposures go on.
    void Guide(GuideD direction, std::chrono::milliseconds time)
    {
        pulseGuide(direction, static_cast<int>(time.count()));
    }

  private:
    static void Close()
    {
        closeCamera();
        s_open = false;
    }
    [[noreturn]] static void Fail(const char *why)
    {
        Close();
        throw Error(why);
    }
    static void Require(Control_TYPE control)
    {
        if (!isAvailable(control))
            throw Error("this camera has no control " + std::to_string(control));
    }

    inline static std::atomic<bool> s_open{false};
    std::string m_model;
};

/// Video runs for as long as this lives. Nothing else may capture meanwhile.
class Video {
  public:
    explicit Video(Camera &) { startCapture(); }
    ~Video() { stopCapture(); }
    Video(const Video &) = delete;
    Video &operator=(const Video &) = delete;

    /// Waits for the next frame.
    /// @return false when none came in time, or the camera was lost or stopped meanwhile
    bool Read(Frame &frame, std::chrono::milliseconds wait)
    {
        frame.Fit();
        return getImageData(frame.m_bytes.data(), frame.Capacity(), static_cast<int>(wait.count()));
    }

    /// Frames lost since the video was started.
    int Dropped() const { return getDroppedFrames(); }
};

/// One exposure, which begins here and is aborted when this ends before it.
class Exposure {
  public:
    explicit Exposure(Camera &) { startExposure(); }
    ~Exposure() { stopExposure(); }
    Exposure(const Exposure &) = delete;
    Exposure &operator=(const Exposure &) = delete;

    /// Whether there is nothing to wait for any more.
    bool Done() const { return getExpStatus() != VSC_EXP_WORKING; }

    /// Waits for its end, which comes also when the camera fails, and takes the frame.
    void Read(Frame &frame)
    {
        while (!Done())
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        frame.Fit();
        if (!getImageAfterExp(frame.m_bytes.data(), frame.Capacity()))
            throw Error("the exposure ended without a frame");
    }
};

} // namespace vsccam

#endif // VSCCAM_HPP
