#include "failure.h"
#include "fuzz.h"
#include "serve/alpaca/form.h"
#include "serve/http/guard.h"
#include "serve/http/members.h"
#include "serve/http/router.h"

#include <array>
#include <string>

namespace {

using namespace vsctool::serve;

/// The next line of the input, which is cut off.
std::string TakeLine(std::string &text)
{
    const std::string line = text.substr(0, text.find('\n'));
    text.erase(0, line.size() + 1);
    return line;
}

/// Takes whatever is asked for in every way that handlers do.
Answer TakeAll(const Request &request)
{
    Members members(request);
    if (const auto time = members.Time("time"))
        Must(time->count() >= 0);
    (void)members.Whole("whole");
    (void)members.Flag("flag");
    (void)members.Text("text");
    std::optional<Members> inner;
    if (members.Object("object", inner) && inner)
        inner->End();
    members.End();
    return Response{.body = {}, .headers = {}};
}

Answer TakeForm(const Request &request)
{
    const Parameters form = ParseForm(request.body);
    Must(form.size() <= request.body.size());
    const AlpacaParameters parameters(form);
    (void)parameters.Id("ClientID");
    (void)parameters.Flag("Flag");
    (void)parameters.Whole("Whole");
    (void)parameters.Number("Number");
    return Response{.body = {}, .headers = {}};
}

Router Routes()
{
    Router router;
    router.Add({"PUT", "/api/{name}", TakeAll});
    router.Add({"PUT", "/api/v1/camera/{number}/{member}", TakeForm});
    router.Add({"GET", "/", [](const Request &) { return Response{.body = {}, .headers = {}}; }});
    return router;
}

} // namespace

// A request as lines: method, path, Host, Origin, Content-Type, Authorization; then its body. Each
// is answered, by a status that HTTP knows.
int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    static const Guard kGuard({"localhost"}, "secret-token");
    static const Router kRouter = Routes();
    std::string text(reinterpret_cast<const char *>(bytes), size);
    Request request;
    for (std::string *part : {&request.method, &request.path, &request.host, &request.origin,
                              &request.contentType, &request.authorization})
        *part = TakeLine(text);
    request.body = text;
    if (const auto refusal = kGuard.Check(request))
        Must(refusal->status == 401 || refusal->status == 403 || refusal->status == 421);
    const Answer answer = kRouter.Handle(request);
    const int status = std::get<Response>(answer).status;
    Must(status == 200 || (status >= 400 && status < 416));
    return 0;
}
