#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace vsctool {

/// A message of the library, without its tag, and when it came.
struct LibraryLine {
    std::chrono::steady_clock::time_point at;
    std::string text;
};

/// Listens to the messages that the library prints to descriptor 1: they tell what its functions
/// do not. There is one per process, from before the library's first call.
class LibraryLines {
  public:
    /// @param onward  descriptor that gets what is heard as well; -1 for nobody
    explicit LibraryLines(int onward);
    /// Descriptor 1 leads to `onward` again, or to standard error.
    ~LibraryLines();
    LibraryLines(const LibraryLines &) = delete;
    LibraryLines &operator=(const LibraryLines &) = delete;

    /// All that was printed since the last call, however it was on its way. Nothing when nobody
    /// listens.
    static std::vector<LibraryLine> Take();

    /// From now on, all that is printed is kept for Kept() as well, whoever takes it.
    static void Keep();
    static std::vector<LibraryLine> Kept();

  private:
    void Listen();
    void Hear(const std::string &line);
    void AwaitArrival();

    int m_onward;
    int m_pipe = -1; // the end to read from
    std::mutex m_mutex;
    std::condition_variable m_arrived;
    std::vector<LibraryLine> m_lines; // guarded by m_mutex, as are the next three
    std::optional<std::vector<LibraryLine>> m_kept;
    uint64_t m_marksSent = 0;
    uint64_t m_marksSeen = 0;
    std::thread m_thread; // reads the pipe; ended by a mark, joined by the destructor
};

/// What stands behind a beginning, e.g. behind "wait:"; empty when the line begins otherwise.
std::string_view After(std::string_view beginning, std::string_view line);

} // namespace vsctool
