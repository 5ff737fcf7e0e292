#include "input_lines.h"

#include "failure.h"
#include "stop_signals.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

namespace vsctool {
namespace {

constexpr size_t kLongestLine = 64 << 10; // no end of a line in so much is none of a command

} // namespace

InputLines::InputLines(const std::string &file)
    : m_name(file.empty() ? "standard input" : file),
      // A pipe without a writer would hold up even the opening.
      m_descriptor(file.empty() ? STDIN_FILENO
                                : open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK))
{
    if (m_descriptor < 0)
        throw Failure(Exit::kFile, fmt::format("cannot read {}: {}", m_name,
                                               std::generic_category().message(errno)));
}

InputLines::~InputLines()
{
    if (m_descriptor != STDIN_FILENO)
        close(m_descriptor);
}

bool InputLines::FromTerminal() const
{
    return isatty(m_descriptor) == 1;
}

std::optional<std::string> InputLines::Next()
{
    size_t end = 0;
    while ((end = m_read.find('\n')) == std::string::npos && !m_atEnd) {
        if (m_read.size() > kLongestLine)
            throw Failure(Exit::kUsage, fmt::format("a line of {} is too long", m_name));
        StopSignals::WaitForInput(m_descriptor);
        std::array<char, 4096> block{};
        const ssize_t count = read(m_descriptor, block.data(), block.size());
        if (count < 0 && errno != EAGAIN && errno != EINTR)
            throw Failure(Exit::kFile, fmt::format("cannot read {}: {}", m_name,
                                                   std::generic_category().message(errno)));
        m_atEnd = count == 0;
        m_read.append(block.data(), static_cast<size_t>(std::max<ssize_t>(count, 0)));
    }
    if (m_read.empty())
        return std::nullopt; // the end
    const std::string line = m_read.substr(0, end);
    m_read.erase(0, end == std::string::npos ? end : end + 1);
    return line;
}

} // namespace vsctool
