// The part-header reader: collecting a header in pieces of any size gives the same text,
// state and fields as collecting it at once; nothing past the limit is ever taken, and the
// fields are read only within what was collected (ASan).
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "module/part_header.h"

namespace {

struct Collected {
    korvex::HeaderCollector::State state;
    std::size_t taken;
    std::string text;
};

Collected collect(const std::string &input, korvex::HeaderCollector::Until until, size_t piece) {
    std::vector<char> buffer(korvex::kPartHeaderLimit);
    korvex::HeaderCollector collector;
    collector.start(buffer.data(), until);
    std::size_t taken = 0;
    for (size_t at = 0; at < input.size(); at += piece) {
        const size_t n = std::min(piece, input.size() - at);
        const std::size_t took = collector.feed(input.data() + at, n);
        if (took > n) std::abort();
        taken += took;
        if (took < n) break;
    }
    if (collector.size() > korvex::kPartHeaderLimit || collector.size() != taken) std::abort();
    return {collector.state(), taken, std::string(collector.text(), collector.size())};
}

bool has_content_type_line(const std::string &text) {
    for (size_t at = 0; at < text.size();) {
        const size_t end = text.find("\r\n", at);
        if (end == std::string::npos) break;
        std::string line = text.substr(at, end - at);
        for (char &c : line) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        if (line.rfind("content-type:", 0) == 0) return true;
        at = end + 2;
    }
    return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 2) return 0;
    const size_t piece = static_cast<size_t>(data[0]) + 1;
    const auto until = (data[1] & 1) != 0 ? korvex::HeaderCollector::Until::kLineEnd
                                          : korvex::HeaderCollector::Until::kBlankLine;
    // Long inputs reach the limit: repeat the input to past it when asked.
    std::string input(reinterpret_cast<const char *>(data + 2), size - 2);
    if ((data[1] & 2) != 0 && !input.empty()) {
        while (input.size() <= korvex::kPartHeaderLimit) input += input;
    }
    const Collected at_once = collect(input, until, input.size() + 1);
    const Collected pieces = collect(input, until, piece);
    if (at_once.state != pieces.state || at_once.text != pieces.text) std::abort();
    if (at_once.state == korvex::HeaderCollector::State::kComplete) {
        const std::string &text = at_once.text;
        if (text.size() < 2 || text.compare(text.size() - 2, 2, "\r\n") != 0) std::abort();
        // The terminator is the first one in the input.
        const std::string end = until == korvex::HeaderCollector::Until::kLineEnd ? "\r\n" : "\r\n\r\n";
        if (until == korvex::HeaderCollector::Until::kBlankLine && text != "\r\n" &&
            text.find(end) != text.size() - end.size()) {
            std::abort();
        }
        const korvex::PartFields fields = korvex::read_part_fields(text.data(), text.size());
        // Of a well-formed header, a Content-Type is a line that starts with the name and a
        // colon, in any letter case.
        if (fields.well_formed && fields.has_content_type != has_content_type_line(text)) std::abort();
        const std::size_t boundary = korvex::boundary_line_length(text.data(), text.size());
        if (boundary != 0 && (boundary + 2 != text.size() || text.compare(0, 2, "--") != 0)) std::abort();
    } else if (at_once.state == korvex::HeaderCollector::State::kTooLong) {
        if (at_once.taken != korvex::kPartHeaderLimit) std::abort();
    } else if (at_once.taken != input.size()) {
        std::abort();
    }
    return 0;
}
