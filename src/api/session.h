#pragma once

#include "base/sync.h"
#include "base/turns.h"
#include "core/camera_base.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <span>

/// The state behind the exported functions: the last count of cameras and the one that is open.
namespace vsccam {

/// The last count of cameras.
struct CameraList {
    static constexpr int kMaxCameras = 1024;

    // Entries behind the count are what earlier counts left there; the one after it may be opened.
    uint32_t productIds[kMaxCameras + 1] = {};
    int count = 0;
};

/// One for the process. Whoever uses the camera is inside it for that time (see Call); it is closed
/// and destroyed after all have left.
class Session {
  public:
    Session() = default;
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    /// The camera, nullptr when there is none. A camera that was returned lives until the matching
    /// Leave.
    CCameraBase *Enter();
    void Leave();

    /// Opening, closing, initialising, format, start and stop, one after the other.
    Turns &Lifecycle() { return m_lifecycle; }

    // For calls that are in turn.
    bool HasCamera() const;
    int CameraIndex() const { return iCamIndex; }
    void InstallCamera(std::unique_ptr<CCameraBase> camera, int index);
    /// Ends the waits of calls inside the camera and closes it. The object is destroyed when all
    /// calls have left. It stays for good when they take longer than the limit, or when a signal
    /// brought the calling thread here from within a call of its own.
    void CloseCamera(Clock::time_point limit = kNever);
    /// Stops streaming and cooling when the host's process ends with a camera open, perhaps with
    /// threads inside.
    void EndWithProcess();

    /// Bytes of a frame in the present format, 0 before there is one.
    int FrameBytes() const { return data_lenth; }
    void SetFrameBytes(int bytes) { data_lenth = bytes; }
    void NoteImageType(int type) { cur_img_type = type; }

    CameraList ConnectedCameras();
    /// Which cameras were to be counted.
    CameraChoice Choice();
    void SetConnectedCameras(std::span<const uint32_t> productIds, CameraChoice choice);

  private:
    bool AwaitLeaving(Clock::time_point limit);

    Turns m_lifecycle;

    mutable CriticalSection m_insideSection;
    std::unique_ptr<CCameraBase> pCamera VSC_GUARDED_BY(m_insideSection);
    /// Calls in this camera, or in the one that is being closed.
    int m_inside VSC_GUARDED_BY(m_insideSection) = 0;
    Condition m_left;

    Shared<int> m_ownerPid; // the process that opened the camera
    int iCamIndex = 0;      // used in turn

    Shared<int> cur_img_type;
    Shared<int> data_lenth;

    CriticalSection m_listSection;
    CameraList m_cameras VSC_GUARDED_BY(m_listSection);
    CameraChoice m_choice VSC_GUARDED_BY(m_listSection);
};

Session &TheSession();

/// An exported function at work. Every one that needs the camera begins with it: the camera that it
/// gives lives at least as long as the object.
class Call {
  public:
    enum class Kind {
        Beside,    // any others, also its like
        InTurn,    // its like one after the other
        Replacing, // in turn, and not inside a camera: it opens or closes one
    };

    explicit Call(Kind kind = Kind::Beside);
    ~Call();
    Call(const Call &) = delete;
    Call &operator=(const Call &) = delete;

    explicit operator bool() const { return m_camera != nullptr; }
    CCameraBase &operator*() const { return *m_camera; }
    CCameraBase *operator->() const { return m_camera; }

  private:
    std::optional<Turns::Turn> m_turn;
    RequestBudget m_budget;
    CCameraBase *m_camera = nullptr;
};

/// What setImageFormat does, for calls in turn.
bool SetImageFormat(CCameraBase &camera, int width, int height, int bin, int imgType);

/// The current camera, nullptr when there is none: for programs on this library's objects that have
/// one thread.
CCameraBase *CurrentCamera();

} // namespace vsccam
