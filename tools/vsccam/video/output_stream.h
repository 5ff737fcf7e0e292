#pragma once

#include <atomic>
#include <cstdint>
#include <span>
#include <string_view>

namespace vsctool {

/// Bytes to the program behind a pipe, however slow that is.
class OutputStream {
  public:
    explicit OutputStream(int descriptor);
    ~OutputStream();
    OutputStream(const OutputStream &) = delete;
    OutputStream &operator=(const OutputStream &) = delete;

    /// Waits until all was taken. Throws Failure when the reader is gone, or after Abandon.
    void Write(std::span<const uint8_t> bytes);
    void Write(std::string_view text);

    /// Ends a Write, and each one after that; of any thread.
    void Abandon() { m_abandoned = true; }

    bool ReaderIsGone() const { return m_readerIsGone; }

  private:
    void AwaitReader() const;

    int m_descriptor;
    std::atomic<bool> m_abandoned{false};
    bool m_readerIsGone = false;
};

} // namespace vsctool
