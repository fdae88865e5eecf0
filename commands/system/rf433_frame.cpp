#include "commands/system/rf433_frame.h"

namespace korvex::rf433 {

namespace {

constexpr char kHeader[] = "01,00,14,18";
constexpr char kStart[] = "ff,18";
constexpr char kOne[] = "7f,18,18,18";
constexpr char kZero[] = "18,18,7f,18";

}  // namespace

std::string frame(uint32_t code) {
    std::string text = std::string(kHeader) + "," + kStart;
    for (int bit = 31; bit >= 0; --bit) {
        text += ',';
        text += ((code >> bit) & 1u) != 0 ? kOne : kZero;
    }
    return text;
}

}  // namespace korvex::rf433
