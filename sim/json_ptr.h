// Owning handle for jansson values.
#pragma once

#include <jansson.h>

#include <memory>
#include <string>

namespace korvex::sim {

struct JsonDecref {
    void operator()(json_t *value) const { json_decref(value); }
};
using JsonPtr = std::unique_ptr<json_t, JsonDecref>;

// Compact one-line JSON text of any value (scalars included).
inline std::string json_compact_text(const json_t *value) {
    char *text = json_dumps(value, JSON_COMPACT | JSON_ENCODE_ANY);
    if (text == nullptr)
        return "null";
    std::string result(text);
    free(text);
    return result;
}

}  // namespace korvex::sim
