#include "commands/command.h"
#include "failure.h"
#include "serve/camera_thread.h"
#include "serve/camera_works.h"
#include "serve/http/server.h"
#include "serve/json_api.h"
#include "serve/page_files.h"
#include "stop_signals.h"

#include <nlohmann/json.hpp>

#include <memory>

namespace vsctool {
namespace {

using namespace std::chrono_literals;

struct ServeOptions {
    std::string address = "127.0.0.1";
    int port = 11111;
};

/// "http://127.0.0.1:11111/"
std::string UrlOf(const std::string &address, int port)
{
    const bool is6 = address.find(':') != std::string::npos;
    return fmt::format("http://{}:{}/", is6 ? '[' + address + ']' : address, port);
}

void AddPage(serve::Router &router)
{
    for (const serve::PageFile &file : serve::PageFiles()) {
        const std::string path = file.name == "index.html" ? "/" : "/" + std::string(file.name);
        const serve::Response response = {.contentType = serve::ContentTypeOf(file.name),
                                          .body = std::make_shared<std::string>(file.bytes),
                                          .headers = {}};
        router.Add({"GET", path, [response](const serve::Request &) { return response; }});
    }
}

/// One run of the command.
class Service {
  public:
    Service(const ServeOptions &options, Context &context)
        : m_options(options), m_console(context.console), m_works(context)
    {
    }

    void Run()
    {
        serve::JobQueue jobs;
        serve::Router router;
        AddPage(router);
        AddJsonApi(router, m_works, jobs);
        serve::Server server(
            m_options.address, static_cast<uint16_t>(m_options.port),
            [&router](serve::Request request) { return router.Handle(std::move(request)); });
        const serve::CameraThread thread(m_works, jobs, [&server] { server.Wake(); });
        Announce(server.Port());
        for (;;)
            StopSignals::SleepFor(1h);
    }

  private:
    void Announce(int port)
    {
        const std::string url = UrlOf(m_options.address, port);
        m_console.Say(url);
        m_console.Emit({{"url", url}, {"port", port}});
    }

    const ServeOptions &m_options;
    Console &m_console;
    serve::CameraWorks m_works;
};

} // namespace

void AddServeCommand(CLI::App &app, Command &chosen)
{
    CLI::App *serve = app.add_subcommand("serve", "Show the camera in a browser");
    const auto options = std::make_shared<ServeOptions>();
    serve->add_option("--bind", options->address, "Address to listen on")->capture_default_str();
    serve->add_option("--port", options->port, "TCP port to listen on, 0 for a free one")
        ->check(CLI::Range(0, 65535))
        ->capture_default_str();
    serve->footer("vsccam serve");
    serve->callback([&chosen, options] {
        chosen = [options](Context &context) { Service(*options, context).Run(); };
    });
}

} // namespace vsctool
