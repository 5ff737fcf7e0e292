#include "serve/http/server.h"

#include "failure.h"
#include "serve/http/router.h"
#include "serve/http/waiters.h"

#include <fmt/format.h>
#include <microhttpd.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <system_error>

namespace vsctool::serve {
namespace {

constexpr unsigned kMostConnections = 64;
constexpr unsigned kMostOfOneClient = 48;
constexpr unsigned kLongestSilenceS = 10;
constexpr size_t kMemoryOfConnection = 32 << 10; // for its headers, above all
constexpr size_t kLongestBody = 64 << 10;
constexpr size_t kMostRefused = 256 << 20; // of a body that is too long: who sends more is cut off
constexpr size_t kPieceOfStream = 64 << 10;
constexpr unsigned kThreads = 2; // that make answers; the camera needs the others

/// The page runs and shows nothing that does not come from here, and nobody else frames it.
constexpr std::pair<const char *, const char *> kHeaders[] = {
    {"Content-Security-Policy", "default-src 'self'; frame-ancestors 'none'"},
    {"X-Content-Type-Options", "nosniff"},
    {"Referrer-Policy", "no-referrer"},
    {"Cache-Control", "no-store"}};

struct FreeAddresses {
    void operator()(addrinfo *addresses) const { freeaddrinfo(addresses); }
};

class Socket {
  public:
    explicit Socket(int descriptor) : m_descriptor(descriptor) {}
    ~Socket()
    {
        if (m_descriptor >= 0)
            close(m_descriptor);
    }
    Socket(const Socket &) = delete;
    Socket &operator=(const Socket &) = delete;
    int Get() const { return m_descriptor; }
    int Release() { return std::exchange(m_descriptor, -1); }

  private:
    int m_descriptor;
};

int Listen(const std::string &address, uint16_t port)
{
    addrinfo hints = {};
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo *found = nullptr;
    if (getaddrinfo(address.c_str(), std::to_string(port).c_str(), &hints, &found) != 0)
        throw Failure(Exit::kUsage, fmt::format("'{}' is no address of a network", address));
    const std::unique_ptr<addrinfo, FreeAddresses> addresses(found);
    Socket listener(socket(found->ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int on = 1;
    setsockopt(listener.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (bind(listener.Get(), found->ai_addr, found->ai_addrlen) != 0 ||
        listen(listener.Get(), SOMAXCONN) != 0)
        throw Failure(Exit::kFailure, fmt::format("nobody can be served at {} port {}: {}", address,
                                                  port, std::generic_category().message(errno)));
    return listener.Release();
}

uint16_t PortOf(int socket)
{
    sockaddr_storage address = {};
    socklen_t size = sizeof address;
    getsockname(socket, reinterpret_cast<sockaddr *>(&address), &size);
    const bool is6 = address.ss_family == AF_INET6;
    return ntohs(is6 ? reinterpret_cast<const sockaddr_in6 &>(address).sin6_port
                     : reinterpret_cast<const sockaddr_in &>(address).sin_port);
}

std::string HeaderOf(MHD_Connection *connection, const char *name)
{
    const char *value = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name);
    return value ? value : "";
}

Parameters QueryOf(MHD_Connection *connection)
{
    Parameters query;
    const auto add = [](void *list, MHD_ValueKind, const char *name, size_t nameSize,
                        const char *value, size_t valueSize) {
        static_cast<Parameters *>(list)->emplace_back(
            std::string(name ? name : "", nameSize),
            std::string(value ? value : "", value ? valueSize : 0));
        return MHD_YES;
    };
    MHD_get_connection_values_n(connection, MHD_GET_ARGUMENT_KIND, add, &query);
    return query;
}

Request RequestOf(MHD_Connection *connection, const char *method, const char *path)
{
    return {.method = method,
            .path = path,
            .query = QueryOf(connection),
            .host = HeaderOf(connection, MHD_HTTP_HEADER_HOST),
            .origin = HeaderOf(connection, MHD_HTTP_HEADER_ORIGIN),
            .contentType = HeaderOf(connection, MHD_HTTP_HEADER_CONTENT_TYPE),
            .accept = HeaderOf(connection, MHD_HTTP_HEADER_ACCEPT),
            .authorization = HeaderOf(connection, MHD_HTTP_HEADER_AUTHORIZATION),
            .body = {},
            .captured = {}};
}

/// Whether the client tells of a body that is too long before it sends it.
bool AnnouncesTooMuch(MHD_Connection *connection)
{
    const std::string length = HeaderOf(connection, MHD_HTTP_HEADER_CONTENT_LENGTH);
    uint64_t bytes = 0;
    std::from_chars(length.data(), length.data() + length.size(), bytes);
    return bytes > kLongestBody;
}

int SocketOf(MHD_Connection *connection)
{
    const MHD_ConnectionInfo *info =
        MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
    return info ? info->connect_fd : -1;
}

void FreeBody(void *body)
{
    delete static_cast<Body *>(body);
}

/// The library's form of an answer.
class Reply {
  public:
    /// The body is shared, and sent as it lies there.
    explicit Reply(const Response &response) : m_status(static_cast<unsigned>(response.status))
    {
        auto body =
            std::make_unique<Body>(response.body ? response.body : std::make_shared<std::string>());
        const std::string &bytes = **body;
        m_response = MHD_create_response_from_buffer_with_free_callback_cls(
            bytes.size(), const_cast<char *>(bytes.data()), FreeBody, body.get());
        if (m_response)
            (void)body.release(); // which FreeBody deletes
        Add(MHD_HTTP_HEADER_CONTENT_TYPE, response.contentType);
        for (const auto &[name, value] : kHeaders)
            if (!Find(response.headers, name))
                Add(name, value);
        for (const auto &[name, value] : response.headers)
            Add(name.c_str(), value);
    }
    Reply(const Stream &stream, MHD_ContentReaderCallback read, void *reader)
        : m_status(200), m_response(MHD_create_response_from_callback(
                             MHD_SIZE_UNKNOWN, kPieceOfStream, read, reader, nullptr))
    {
        Add(MHD_HTTP_HEADER_CONTENT_TYPE, stream.contentType);
        for (const auto &[name, value] : kHeaders)
            Add(name, value);
    }
    ~Reply()
    {
        if (m_response)
            MHD_destroy_response(m_response); // the connection keeps it for as long as it needs it
    }
    Reply(const Reply &) = delete;
    Reply &operator=(const Reply &) = delete;

    MHD_Result Queue(MHD_Connection *connection)
    {
        return m_response ? MHD_queue_response(connection, m_status, m_response) : MHD_NO;
    }

  private:
    void Add(const char *name, const std::string &value)
    {
        if (m_response)
            MHD_add_response_header(m_response, name, value.c_str());
    }

    unsigned m_status;
    MHD_Response *m_response = nullptr;
};

} // namespace

class Server::Implementation {
  public:
    Implementation(const std::string &address, uint16_t port, Handler handler)
        : m_handler(std::move(handler)), m_waiters(kThreads)
    {
        Socket listener(Listen(address, port));
        m_port = PortOf(listener.Get());
        constexpr unsigned kFlags =
            MHD_USE_EPOLL_INTERNAL_THREAD | MHD_ALLOW_SUSPEND_RESUME | MHD_USE_ITC;
        m_daemon = MHD_start_daemon(
            kFlags, m_port, nullptr, nullptr, &Implementation::Access, this, //
            MHD_OPTION_LISTEN_SOCKET, listener.Get(),                        //
            MHD_OPTION_CONNECTION_LIMIT, kMostConnections,                   //
            MHD_OPTION_PER_IP_CONNECTION_LIMIT, kMostOfOneClient,            //
            MHD_OPTION_CONNECTION_TIMEOUT, kLongestSilenceS,                 //
            MHD_OPTION_CONNECTION_MEMORY_LIMIT, kMemoryOfConnection,         //
            MHD_OPTION_NOTIFY_COMPLETED, &Implementation::Completed, nullptr, MHD_OPTION_END);
        if (!m_daemon)
            throw Failure(Exit::kFailure, "the HTTP server did not start");
        (void)listener.Release(); // the daemon closes it
    }

    ~Implementation()
    {
        m_waiters.End(); // it must not find anybody waiting
        MHD_stop_daemon(m_daemon);
    }

    Implementation(const Implementation &) = delete;
    Implementation &operator=(const Implementation &) = delete;

    uint16_t Port() const { return m_port; }
    void Wake() { m_waiters.Wake(); }

  private:
    /// A request on its way, and its answer. It belongs to the thread of the daemon; while the
    /// connection is suspended, to those that look for the answer.
    struct Exchange {
        MHD_Connection *connection;
        Implementation &server;
        Request request;
        size_t refused = 0; // bytes of a body that is too long
        std::optional<Answer> answer{};
        Body part{}; // of a stream, and how much of it was sent
        size_t sent = 0;
        bool ended = false;
    };

    static MHD_Result Access(void *self, MHD_Connection *connection, const char *path,
                             const char *method, const char *, const char *upload,
                             size_t *uploadSize, void **context)
    {
        // No exception may leave, it would pass through C. A request that finds no memory is one
        // that ends its connection.
        try {
            auto &server = *static_cast<Implementation *>(self);
            if (!*context) {
                *context = new Exchange{.connection = connection,
                                        .server = server,
                                        .request = RequestOf(connection, method, path)};
                return AnnouncesTooMuch(connection) ? TooLong(connection) : MHD_YES;
            }
            auto &exchange = *static_cast<Exchange *>(*context);
            if (*uploadSize > 0)
                return Take(exchange, {upload, std::exchange(*uploadSize, 0)});
            if (exchange.refused > 0)
                return TooLong(connection);
            return server.Proceed(exchange);
        } catch (const std::exception &) {
            return MHD_NO;
        }
    }

    static void Completed(void *, MHD_Connection *, void **context, MHD_RequestTerminationCode)
    {
        delete static_cast<Exchange *>(std::exchange(*context, nullptr));
    }

    static MHD_Result TooLong(MHD_Connection *connection)
    {
        return Reply(ErrorResponse(413, "the body is too long")).Queue(connection);
    }

    static MHD_Result Take(Exchange &exchange, std::string_view piece)
    {
        std::string &body = exchange.request.body;
        if (exchange.refused > 0 || body.size() + piece.size() > kLongestBody)
            exchange.refused += piece.size();
        else
            body += piece;
        return exchange.refused > kMostRefused ? MHD_NO : MHD_YES;
    }

    /// With a request that is complete, or with the answer that was waited for.
    MHD_Result Proceed(Exchange &exchange)
    {
        if (!exchange.answer)
            exchange.answer = m_handler(std::move(exchange.request));
        if (const auto *response = std::get_if<Response>(&*exchange.answer))
            return Reply(*response).Queue(exchange.connection);
        if (const auto *stream = std::get_if<Stream>(&*exchange.answer))
            return Reply(*stream, &Implementation::ReadStream, &exchange)
                .Queue(exchange.connection);
        const auto patience = std::get<Later>(*exchange.answer).patience;
        Await(
            exchange, Waiters::Clock::now() + patience,
            [&exchange](bool last) { return Look(exchange, last); },
            ErrorResponse(503, "the server ends"));
        return MHD_YES;
    }

    /// Suspends the connection until the answer is there.
    template <class Instead>
    void Await(Exchange &exchange, Waiters::Clock::time_point deadline, Waiters::Ask look,
               Instead instead)
    {
        MHD_suspend_connection(exchange.connection);
        if (m_waiters.Add(std::move(look), deadline, SocketOf(exchange.connection)))
            return; // and the exchange may be gone by now
        if constexpr (std::is_same_v<Instead, Response>)
            exchange.answer = std::move(instead);
        else
            exchange.ended = true;
        MHD_resume_connection(exchange.connection);
    }

    static bool Look(Exchange &exchange, bool last)
    {
        const Later &later = std::get<Later>(*exchange.answer);
        std::optional<Response> response;
        try {
            response = later.ask();
            if (!response && last)
                response =
                    later.tooLate ? later.tooLate() : ErrorResponse(503, "nothing came in time");
        } catch (const std::exception &) {
            response = ResponseToException();
        }
        if (!response)
            return false;
        exchange.answer = std::move(*response);
        MHD_resume_connection(exchange.connection);
        return true;
    }

    static ssize_t ReadStream(void *context, uint64_t, char *buffer, size_t size)
    {
        auto &exchange = *static_cast<Exchange *>(context);
        if (exchange.part && exchange.sent < exchange.part->size()) {
            const size_t count = exchange.part->copy(buffer, size, exchange.sent);
            exchange.sent += count;
            return static_cast<ssize_t>(count);
        }
        if (exchange.ended)
            return MHD_CONTENT_READER_END_OF_STREAM;
        exchange.part.reset();
        exchange.server.Await(
            exchange, Waiters::Clock::time_point::max(),
            [&exchange](bool last) { return LookForPart(exchange, last); }, nullptr);
        return 0;
    }

    static bool LookForPart(Exchange &exchange, bool last)
    {
        std::optional<Body> part;
        try {
            part = std::get<Stream>(*exchange.answer).next();
        } catch (const std::exception &) {
            part = nullptr;
        }
        if (!part && !last)
            return false;
        exchange.part = part.value_or(nullptr);
        exchange.sent = 0;
        exchange.ended = last || !exchange.part;
        MHD_resume_connection(exchange.connection);
        return true;
    }

    const Handler m_handler;
    Waiters m_waiters;
    uint16_t m_port = 0;
    MHD_Daemon *m_daemon = nullptr;
};

Server::Server(const std::string &address, uint16_t port, Handler handler)
    : m_implementation(std::make_unique<Implementation>(address, port, std::move(handler)))
{
}

Server::~Server() = default;

uint16_t Server::Port() const
{
    return m_implementation->Port();
}

void Server::Wake()
{
    m_implementation->Wake();
}

} // namespace vsctool::serve
