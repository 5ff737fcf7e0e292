#include "video/output_stream.h"

#include "failure.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace vsctool {
namespace {

constexpr int kTurnMs = 100;

/// A pipe is opened anew, so that writing to it does not wait. Others share what was opened before:
/// they would not wait either.
int OpenAnew(int descriptor)
{
    struct stat facts {};
    if (fstat(descriptor, &facts) == 0 && S_ISFIFO(facts.st_mode)) {
        const int anew = open(fmt::format("/proc/self/fd/{}", descriptor).c_str(),
                              O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        if (anew >= 0)
            return anew;
    }
    return fcntl(descriptor, F_DUPFD_CLOEXEC, 3);
}

} // namespace

OutputStream::OutputStream(int descriptor) : m_descriptor(OpenAnew(descriptor)) {}

OutputStream::~OutputStream()
{
    close(m_descriptor);
}

void OutputStream::Write(std::string_view text)
{
    Write(std::span(reinterpret_cast<const uint8_t *>(text.data()), text.size()));
}

void OutputStream::Write(std::span<const uint8_t> bytes)
{
    while (!bytes.empty()) {
        AwaitReader();
        const ssize_t written = write(m_descriptor, bytes.data(), bytes.size());
        if (written >= 0) {
            bytes = bytes.subspan(static_cast<size_t>(written));
        } else if (errno != EAGAIN && errno != EINTR) {
            m_readerIsGone = errno == EPIPE;
            throw Failure(Exit::kFile,
                          "cannot write the video: " + std::generic_category().message(errno));
        }
    }
}

void OutputStream::AwaitReader() const
{
    pollfd reader{.fd = m_descriptor, .events = POLLOUT, .revents = 0};
    do {
        if (m_abandoned)
            throw Failure(Exit::kFile, "the video was ended before all of it was taken");
    } while (poll(&reader, 1, kTurnMs) <= 0);
}

} // namespace vsctool
