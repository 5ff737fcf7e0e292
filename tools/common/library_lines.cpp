#include "library_lines.h"

#include "failure.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

namespace vsctool {
namespace {

constexpr std::string_view kTag = "<VSC SDK> ";
// Lines of our own, which tell when all that was printed before them has arrived.
constexpr char kMarkSign = '\x16';
constexpr std::string_view kMark = "\x16mark\n";
constexpr std::string_view kEndMark = "\x16last\n";
constexpr size_t kMostLines = 4096; // of a program that never asks for them

LibraryLines *g_listener = nullptr; // set and used by the main thread

void WriteAll(int descriptor, std::string_view text)
{
    while (!text.empty()) {
        const ssize_t written = write(descriptor, text.data(), text.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return; // nobody reads messages there; that stops nothing
        text.remove_prefix(static_cast<size_t>(written));
    }
}

} // namespace

std::string_view After(std::string_view beginning, std::string_view line)
{
    return line.starts_with(beginning) ? line.substr(beginning.size()) : std::string_view();
}

LibraryLines::LibraryLines(int onward) : m_onward(onward)
{
    int ends[2] = {-1, -1};
    if (pipe2(ends, O_CLOEXEC) != 0)
        throw Failure(Exit::kFailure,
                      "no pipe for messages: " + std::generic_category().message(errno));
    m_pipe = ends[0];
    dup2(ends[1], STDOUT_FILENO);
    close(ends[1]);
    m_thread = std::thread([this] { Listen(); });
    g_listener = this;
}

LibraryLines::~LibraryLines()
{
    g_listener = nullptr;
    WriteAll(STDOUT_FILENO, kEndMark);
    m_thread.join();
    dup2(m_onward < 0 ? STDERR_FILENO : m_onward, STDOUT_FILENO);
    close(m_pipe);
}

std::vector<LibraryLine> LibraryLines::Take()
{
    if (!g_listener)
        return {};
    g_listener->AwaitArrival();
    const std::lock_guard lock(g_listener->m_mutex);
    return std::exchange(g_listener->m_lines, {});
}

void LibraryLines::Keep()
{
    if (!g_listener)
        return;
    const std::lock_guard lock(g_listener->m_mutex);
    g_listener->m_kept.emplace();
}

std::vector<LibraryLine> LibraryLines::Kept()
{
    if (!g_listener)
        return {};
    g_listener->AwaitArrival();
    const std::lock_guard lock(g_listener->m_mutex);
    return g_listener->m_kept.value_or(std::vector<LibraryLine>());
}

void LibraryLines::AwaitArrival()
{
    std::unique_lock lock(m_mutex);
    const uint64_t mark = ++m_marksSent;
    lock.unlock();
    WriteAll(STDOUT_FILENO, kMark);
    lock.lock();
    m_arrived.wait(lock, [&] { return m_marksSeen >= mark; });
}

void LibraryLines::Listen()
{
    std::string waiting; // for the end of its line
    std::array<char, 4096> block{};
    for (;;) {
        const ssize_t count = read(m_pipe, block.data(), block.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return;
        waiting.append(block.data(), static_cast<size_t>(count));
        for (size_t end = 0; (end = waiting.find('\n')) != std::string::npos;) {
            // Some messages have no end: the next one, or a mark, follows in the same line.
            const size_t next = std::min(waiting.find(kTag, 1), waiting.find(kMarkSign, 1));
            const std::string line = waiting.substr(0, std::min(end + 1, next));
            waiting.erase(0, line.size());
            if (line == kEndMark)
                return;
            Hear(line);
        }
    }
}

void LibraryLines::Hear(const std::string &line)
{
    const std::lock_guard lock(m_mutex);
    if (line == kMark) {
        ++m_marksSeen;
        m_arrived.notify_all();
        return;
    }
    if (m_onward >= 0)
        WriteAll(m_onward, line);
    if (!line.starts_with(kTag))
        return;
    const size_t length = line.find_last_not_of('\n') + 1;
    const LibraryLine heard{std::chrono::steady_clock::now(),
                            line.substr(kTag.size(), length - kTag.size())};
    if (m_lines.size() < kMostLines)
        m_lines.push_back(heard);
    if (m_kept && m_kept->size() < kMostLines)
        m_kept->push_back(heard);
}

} // namespace vsctool
