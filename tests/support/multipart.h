// Firmware upload bodies as a browser sends them: one file part of multipart/form-data.
#pragma once

#include <cstdint>
#include <cstring>
#include <random>
#include <string>

namespace korvex::test {

inline const std::string kUploadBoundary = "----KorvexUploadBoundary7MA4YWxkTrZu0gW";

// Image bytes from a seed; a large one holds CR LF and boundary-like text, which must
// survive as data.
inline std::string random_image(std::size_t size, unsigned seed) {
    std::mt19937_64 random(seed);
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i + 8 <= size; i += 8) {
        const std::uint64_t word = random();
        std::memcpy(&bytes[i], &word, 8);
    }
    if (size > 4096) {
        bytes.replace(1000, 2, "\r\n");
        bytes.replace(2000, kUploadBoundary.size() + 4, "\r\n" + kUploadBoundary + "--");
    }
    return bytes;
}

inline std::string upload_part_header(const std::string &filename = "uImage",
                                      const std::string &type = "application/octet-stream") {
    return "--" + kUploadBoundary + "\r\nContent-Disposition: form-data; name=\"file\"; filename=\"" + filename +
           "\"\r\nContent-Type: " + type + "\r\n\r\n";
}

inline std::string upload_closing() { return "\r\n--" + kUploadBoundary + "--\r\n"; }

inline std::string upload_body(const std::string &image) { return upload_part_header() + image + upload_closing(); }

// The module pauses a second after its memory purge; a test that does not time an upload
// asks the tests' build of the module (module/fault_hooks.h) to skip the pause.
inline const std::string kNoPurgePause = "no-purge-pause";
inline const std::string kNoPurgePauseHeader = "X-Korvex-Fault: " + kNoPurgePause;

// The answer of "update.cgi" to an upload it stored and handed to the updater.
inline const std::string kUpdateRefresh = "<meta http-equiv=\"refresh\" content=\"1;url=/updatestatus.htm\">";

inline std::string upload_content_type() { return "multipart/form-data; boundary=" + kUploadBoundary; }

}  // namespace korvex::test
