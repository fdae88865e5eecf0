// The cross-site check's header parsing: the input is split at newlines into Host,
// Sec-Fetch-Site, Origin and Referer (an empty line is an absent header). Whatever the
// values, the judgement never reads outside them, names evidence that is part of a header,
// and passes a request that carries no browser header under an IP literal.
#include <cstdlib>
#include <string>
#include <vector>

#include "module/cross_site_policy.h"
#include "tests/fuzz/fuzz_support.h"

namespace {

bool within(std::string_view part, const std::string &whole) {
    return part.empty() ||
           (part.data() >= whole.data() && part.data() + part.size() <= whole.data() + whole.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    using namespace korvex::cross_site;
    const std::string text = korvex::fuzz::as_text(data, size);
    std::vector<std::string> fields(4);
    std::size_t at = 0;
    for (std::string &field : fields) {
        const std::size_t end = text.find('\n', at);
        field = text.substr(at, end == std::string::npos ? std::string::npos : end - at);
        at = end == std::string::npos ? text.size() : end + 1;
    }
    static const char *const kTrusted[] = {"https://portal.example", "http://[::1]:8080"};
    static const char *const kHosts[] = {"gateway.local", "*.home.arpa"};
    const Policy policy{true, kTrusted, 2, kHosts, 2};
    RequestHeaders request;
    request.scheme = "http";
    request.host = fields[0].empty() ? nullptr : fields[0].c_str();
    request.sec_fetch_site = fields[1].empty() ? nullptr : fields[1].c_str();
    request.origin = fields[2].empty() ? nullptr : fields[2].c_str();
    request.referer = fields[3].empty() ? nullptr : fields[3].c_str();
    const Decision decision = judge(policy, request);
    if (decision.verdict != Verdict::kPass && !(within(decision.evidence, fields[0]) ||
                                                within(decision.evidence, fields[1]) ||
                                                within(decision.evidence, fields[2]) ||
                                                within(decision.evidence, fields[3])))
        std::abort();

    // The same headers without any browser header, under an IP literal: always served.
    RequestHeaders app;
    app.scheme = "http";
    app.host = "192.168.1.1:80";
    if (judge(policy, app).verdict != Verdict::kPass) std::abort();

    Origin origin;
    if (parse_origin(fields[2], &origin)) {
        if (origin.host.empty() || !same_origin(origin, origin)) std::abort();
    }
    return 0;
}
