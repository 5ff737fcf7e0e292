#include "commands/command.h"
#include "cooling.h"
#include "failure.h"
#include "identity.h"
#include "serve/alpaca/api.h"
#include "serve/alpaca/discovery.h"
#include "serve/camera_thread.h"
#include "serve/camera_works.h"
#include "serve/http/guard.h"
#include "serve/http/server.h"
#include "serve/json_api.h"
#include "serve/page_files.h"
#include "serve/picture_routes.h"
#include "stop_signals.h"

#include <nlohmann/json.hpp>

#include <memory>
#include <optional>

namespace vsctool {
namespace {

using namespace std::chrono_literals;

struct ServeOptions {
    std::string address = "127.0.0.1";
    int port = 11111;
    std::string tokenFile;
    std::string folder = ".";
    bool alpaca = false;
    bool noWarming = false;
};

/// "http://127.0.0.1:11111/"
std::string UrlOf(const std::string &address, int port)
{
    const bool is6 = address.find(':') != std::string::npos;
    return fmt::format("http://{}:{}/", is6 ? '[' + address + ']' : address, port);
}

std::string PathOf(std::string_view file)
{
    if (file == "index.html")
        return "/";
    return (file == "openapi.json" ? "/api/" : "/") + std::string(file);
}

void AddPage(serve::Router &router)
{
    for (const serve::PageFile &file : serve::PageFiles()) {
        const serve::Response response = {.contentType = serve::ContentTypeOf(file.name),
                                          .body = std::make_shared<std::string>(file.bytes),
                                          .headers = {}};
        router.Add(
            {"GET", PathOf(file.name), [response](const serve::Request &) { return response; }});
    }
}

bool IsLoopback(const std::string &address)
{
    return address.starts_with("127.") || address == "::1";
}

/// One run of the command.
class Service {
  public:
    Service(const ServeOptions &options, const std::string &token, Context &context)
        : m_options(options), m_console(context.console), m_guard(serve::HostNames(), token),
          m_works(context, options.folder)
    {
    }

    void Run()
    {
        WorkThenWarm(
            m_console, [this] { Serve(); }, [this] { Warm(); });
    }

  private:
    void Serve()
    {
        serve::JobQueue jobs;
        serve::Router router;
        AddPage(router);
        AddJsonApi(router, m_works, jobs);
        AddPictureRoutes(router, m_works.Frames());
        serve::AlpacaDevice alpaca(m_works, jobs);
        if (m_options.alpaca)
            AddAlpacaApi(router, alpaca, jobs, UniqueId());
        serve::Server server(m_options.address, static_cast<uint16_t>(m_options.port),
                             [this, &router](serve::Request request) -> serve::Answer {
                                 if (auto refusal = m_guard.Check(request))
                                     return std::move(*refusal);
                                 return router.Handle(std::move(request));
                             });
        const serve::CameraThread thread(m_works, jobs, [&server] { server.Wake(); });
        std::optional<serve::Discovery> discovery;
        if (m_options.alpaca)
            Discover(discovery.emplace(m_options.address, server.Port()));
        Announce(server.Port());
        for (;;)
            StopSignals::SleepFor(1h);
    }

    void Warm()
    {
        if (!m_options.noWarming)
            m_works.Warm();
    }

    void Discover(const serve::Discovery &discovery)
    {
        if (!discovery.Trouble().empty())
            m_console.Note(discovery.Trouble());
    }

    /// By which clients know the camera again: what it holds itself, else what it is.
    std::string UniqueId() const
    {
        const auto id = IdOfCamera();
        return "vsccam-" + (id ? InHex(*id) : m_works.Facts().model);
    }

    void Announce(int port)
    {
        const std::string url = UrlOf(m_options.address, port);
        m_console.Say(url);
        m_console.Emit({{"url", url}, {"port", port}});
    }

    const ServeOptions &m_options;
    Console &m_console;
    const serve::Guard m_guard;
    serve::CameraWorks m_works;
};

void Serve(const ServeOptions &options, Context &context)
{
    if (options.tokenFile.empty() && !IsLoopback(options.address))
        throw Failure(Exit::kUsage, "whoever reaches another address than 127.0.0.1 could use the "
                                    "camera: add --token FILE");
    const std::string token = options.tokenFile.empty() ? "" : serve::ReadToken(options.tokenFile);
    Service(options, token, context).Run();
}

} // namespace

void AddServeCommand(CLI::App &app, Command &chosen)
{
    CLI::App *serve = app.add_subcommand("serve", "Show the camera in a browser");
    const auto options = std::make_shared<ServeOptions>();
    serve->add_flag("--alpaca", options->alpaca, "Serve programs that speak Alpaca, too");
    serve->add_option("--bind", options->address, "Address to listen on")->capture_default_str();
    serve->add_option("--port", options->port, "TCP port to listen on, 0 for a free one")
        ->check(CLI::Range(0, 65535))
        ->capture_default_str();
    serve
        ->add_option("--token", options->tokenFile,
                     "File with a password in its first line, which clients then have to give; "
                     "needed for other addresses than this machine's own")
        ->type_name("FILE");
    serve->add_option("--folder", options->folder, "Folder for pictures and recordings")
        ->type_name("FOLDER")
        ->capture_default_str();
    serve->add_flag("--no-warming", options->noWarming, "End the cooling at once at the end");
    serve->footer("vsccam serve --folder pictures");
    serve->callback(
        [&chosen, options] { chosen = [options](Context &context) { Serve(*options, context); }; });
}

} // namespace vsctool
