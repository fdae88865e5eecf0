// Hostile queries from several clients at once on a threaded (worker) server: serving threads
// open their bus connections while others look up the module's record. Every answer is
// well-formed and no server child dies (tests/support/hostile_input_fixture.h).
#include <cstdint>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/hostile_input_fixture.h"
#include "tests/support/hostile_requests.h"
#include "tests/support/mpm_fixture.h"

namespace korvex::test {
namespace {

using namespace hostile;

using HostileInputWorkerTest = OnMpm<HostileInputTest, kWorkerMpm, KORVEX_LOG_CHILD>;

TEST_F(HostileInputWorkerTest, ConcurrentRandomRequests) {
    // Serving threads open their bus connections while others look up the module's record.
    constexpr int kClients = 4;
    constexpr int kEach = 25;
    std::vector<std::vector<std::pair<std::string, HttpResponse>>> answers(kClients);
    std::vector<std::thread> clients;
    for (int c = 0; c < kClients; ++c) {
        clients.emplace_back([c, &answers] {
            Random random(kSeed + 100 + static_cast<std::uint32_t>(c));
            for (int i = 0; i < kEach; ++i) {
                const std::string query = line_safe(random_query(random, 1 + random.below(8)));
                const std::string raw = random.chance(50) ? raw_get("/network.cgi?" + query)
                                                          : with_length("/network.cgi", repair_escapes(query));
                answers[c].emplace_back(query, send_raw(port(), raw, 15000));
            }
        });
    }
    for (std::thread &client : clients) client.join();
    for (const auto &list : answers) {
        for (const auto &[query, response] : list) {
            ++sent_;
            check("concurrent " + query, response, Shape::kNetwork, {200, 400, 414}, false);
        }
    }
}

}  // namespace
}  // namespace korvex::test
