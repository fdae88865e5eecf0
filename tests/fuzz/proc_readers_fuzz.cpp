// The /proc status line reader: any text, no crash, no read past its end.
#include <jansson.h>

#include <string>

#include "base/process_scan.h"
#include "tests/fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string line = korvex::fuzz::as_text(data, size);
    const int number = parseLine(line.c_str());
    json_t *object = json_object();
    addProcess(object, "fuzz", number);
    json_decref(object);
    return 0;
}
