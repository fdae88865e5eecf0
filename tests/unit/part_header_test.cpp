#include "module/part_header.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace korvex {
namespace {

using Until = HeaderCollector::Until;
using State = HeaderCollector::State;

// Feeds text in pieces of `piece` bytes; returns the state and what was taken in total.
struct Collected {
    State state;
    std::size_t taken;
    std::string text;
};

Collected collect(const std::string &text, Until until, std::size_t piece) {
    std::vector<char> buffer(kPartHeaderLimit);
    HeaderCollector collector;
    collector.start(buffer.data(), until);
    std::size_t taken = 0;
    for (std::size_t at = 0; at < text.size(); at += piece) {
        const std::size_t size = std::min(piece, text.size() - at);
        const std::size_t took = collector.feed(text.data() + at, size);
        taken += took;
        if (took < size) break;
    }
    return {collector.state(), taken, std::string(collector.text(), collector.size())};
}

TEST(HeaderCollectorTest, StopsAtTheBlankLineWhateverThePieces) {
    const std::string header = "Content-Type: a\r\nContent-Disposition: form-data\r\n\r\n";
    const std::string rest = "IMAGE\r\n\r\n";
    for (std::size_t piece = 1; piece <= header.size() + rest.size(); ++piece) {
        const Collected got = collect(header + rest, Until::kBlankLine, piece);
        EXPECT_EQ(got.state, State::kComplete) << piece;
        EXPECT_EQ(got.taken, header.size()) << piece;
        EXPECT_EQ(got.text, header) << piece;
    }
}

TEST(HeaderCollectorTest, AnEmptyHeaderIsOneBlankLine) {
    const Collected got = collect("\r\nDATA", Until::kBlankLine, 100);
    EXPECT_EQ(got.state, State::kComplete);
    EXPECT_EQ(got.text, "\r\n");
}

TEST(HeaderCollectorTest, LineEndStopsAtTheFirstCrLf) {
    const Collected got = collect("--boundary\r\nContent-Type: a\r\n", Until::kLineEnd, 1);
    EXPECT_EQ(got.state, State::kComplete);
    EXPECT_EQ(got.text, "--boundary\r\n");
    // A lone LF or CR does not end the line.
    EXPECT_EQ(collect("--a\nb\rc", Until::kLineEnd, 1).state, State::kReading);
}

TEST(HeaderCollectorTest, BoundedToTheLimit) {
    const std::string at_limit = std::string(kPartHeaderLimit - 4, 'x') + "\r\n\r\n";
    EXPECT_EQ(collect(at_limit + "more", Until::kBlankLine, 1000).state, State::kComplete);
    const std::string over = std::string(kPartHeaderLimit - 3, 'x') + "\r\n\r\n";
    const Collected got = collect(over, Until::kBlankLine, 1000);
    EXPECT_EQ(got.state, State::kTooLong);
    EXPECT_EQ(got.taken, kPartHeaderLimit);
    EXPECT_EQ(collect(std::string(20000, 'x'), Until::kLineEnd, 7).state, State::kTooLong);
}

TEST(HeaderCollectorTest, RestartReadsTheNextHeader) {
    std::vector<char> buffer(kPartHeaderLimit);
    HeaderCollector collector;
    collector.start(buffer.data(), Until::kLineEnd);
    EXPECT_EQ(collector.feed("--b\r\n", 5), 5u);
    EXPECT_EQ(collector.state(), State::kComplete);
    EXPECT_EQ(collector.feed("X", 1), 0u);
    collector.restart(Until::kBlankLine);
    EXPECT_EQ(collector.feed("A: b\r\n\r\nrest", 12), 8u);
    EXPECT_EQ(std::string(collector.text(), collector.size()), "A: b\r\n\r\n");
}

TEST(PartFieldsTest, ContentTypeInAnyOrderAndCase) {
    for (const char *header :
         {"Content-Type: a\r\nContent-Disposition: form-data\r\n\r\n",
          "Content-Disposition: form-data\r\nContent-Type: a\r\n\r\n", "content-type: a\r\n\r\n",
          "CONTENT-TYPE:a\r\n\r\n", "X-A: 1\r\nConTent-TyPe: a\r\nX-B: 2\r\n\r\n"}) {
        const PartFields fields = read_part_fields(header, std::strlen(header));
        EXPECT_TRUE(fields.well_formed) << header;
        EXPECT_TRUE(fields.has_content_type) << header;
    }
}

TEST(PartFieldsTest, OnlyTheFieldNameCounts) {
    for (const std::string &header :
         {std::string("Content-Disposition: form-data; filename=\"Content-Type\"\r\n\r\n"),
          std::string("X-Content-Type: a\r\n\r\n"), std::string("Content-Types: a\r\n\r\n"), std::string("\r\n")}) {
        const PartFields fields = read_part_fields(header.data(), header.size());
        EXPECT_TRUE(fields.well_formed) << header;
        EXPECT_FALSE(fields.has_content_type) << header;
    }
}

TEST(PartFieldsTest, LinesThatAreNoFieldsAreMalformed) {
    for (const std::string &header :
         {std::string("Content-Type a\r\n\r\n"), std::string(": a\r\n\r\n"), std::string("Content Type: a\r\n\r\n"),
          std::string("Content-Type : a\r\n\r\n"), std::string(" folded: first\r\n\r\n"),
          std::string("A: b\r\n\r\nC: d\r\n\r\n"), std::string("A\0B: c\r\n\r\n", 10)}) {
        EXPECT_FALSE(read_part_fields(header.data(), header.size()).well_formed) << header;
    }
    // A folded continuation after a field is part of it.
    const std::string folded = "X-A: 1\r\n 2\r\nContent-Type: a\r\n\r\n";
    EXPECT_TRUE(read_part_fields(folded.data(), folded.size()).well_formed);
}

TEST(BoundaryLineTest, DashesAndAtLeastOneCharacter) {
    EXPECT_EQ(boundary_line_length("--a\r\n", 5), 3u);
    EXPECT_EQ(boundary_line_length("----WebKit\r\n", 12), 10u);
    EXPECT_EQ(boundary_line_length("--\r\n", 4), 0u);
    EXPECT_EQ(boundary_line_length("ab-c\r\n", 6), 0u);
    EXPECT_EQ(boundary_line_length("\r\n", 2), 0u);
}

}  // namespace
}  // namespace korvex
