#include "sim/nvram_store.h"

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <stdexcept>

namespace korvex::sim {
namespace {

std::string unescape(const std::string &text) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 1 < text.size()) {
            char next = text[++i];
            out += next == 'n' ? '\n' : next == 'r' ? '\r' : next;
        } else {
            out += text[i];
        }
    }
    return out;
}

std::string escape(const std::string &text) {
    std::string out;
    for (char c : text) {
        if (c == '\\') out += "\\\\";
        else if (c == '\n') out += "\\n";
        else if (c == '\r') out += "\\r";
        else out += c;
    }
    return out;
}

}  // namespace

NvramMap read_nvram_file(const std::string &path) {
    std::ifstream in(path);
    if (!in)
        throw std::runtime_error("cannot read nvram file " + path);
    NvramMap entries;
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#')
            continue;
        size_t equals = line.find('=');
        if (equals == std::string::npos || equals == 0)
            continue;
        entries[line.substr(0, equals)] = unescape(line.substr(equals + 1));
    }
    return entries;
}

void write_nvram_file(const std::string &path, const NvramMap &entries) {
    const std::string temporary = path + ".tmp";
    {
        std::ofstream out(temporary, std::ios::trunc);
        for (const auto &[key, value] : entries)
            out << key << '=' << escape(value) << '\n';
        out.flush();
        if (!out)
            throw std::runtime_error("cannot write " + temporary);
    }
    if (std::rename(temporary.c_str(), path.c_str()) != 0) {
        ::unlink(temporary.c_str());
        throw std::runtime_error("cannot rename " + temporary + " to " + path);
    }
}

NvramStore::NvramStore(std::string committed_path, std::string defaults_path)
    : committed_path_(std::move(committed_path)), defaults_path_(std::move(defaults_path)) {}

void NvramStore::load() {
    if (::access(committed_path_.c_str(), F_OK) != 0)
        write_nvram_file(committed_path_, read_nvram_file(defaults_path_));
    working_ = read_nvram_file(committed_path_);
}

std::optional<std::string> NvramStore::get(const std::string &key) const {
    auto found = working_.find(key);
    if (found == working_.end())
        return std::nullopt;
    return found->second;
}

void NvramStore::set(const std::string &key, const std::string &value) { working_[key] = value; }

bool NvramStore::commit() {
    try {
        write_nvram_file(committed_path_, working_);
        return true;
    } catch (const std::runtime_error &) {
        return false;
    }
}

std::vector<std::string> NvramStore::list(const std::string &prefix) const {
    std::vector<std::string> lines;
    for (auto it = working_.lower_bound(prefix); it != working_.end(); ++it) {
        if (it->first.compare(0, prefix.size(), prefix) != 0)
            break;
        lines.push_back(it->first + "=" + it->second);
    }
    return lines;
}

std::optional<std::string> NvramStore::committed_value(const std::string &key) const {
    NvramMap committed = read_nvram_file(committed_path_);
    auto found = committed.find(key);
    if (found == committed.end())
        return std::nullopt;
    return found->second;
}

void NvramStore::put_committed(const std::string &key, const std::string &value) {
    NvramMap committed = read_nvram_file(committed_path_);
    committed[key] = value;
    write_nvram_file(committed_path_, committed);
}

void NvramStore::reset_to_defaults() {
    working_ = read_nvram_file(defaults_path_);
    write_nvram_file(committed_path_, working_);
}

}  // namespace korvex::sim
