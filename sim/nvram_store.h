// The platform daemon's settings store: a working copy in memory and a committed copy in
// a text file of "key=value" lines.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace korvex::sim {

using NvramMap = std::map<std::string, std::string>;

// Reads "key=value" lines; blank lines and lines starting with '#' are skipped, the key
// ends at the first '='. In values "\\", "\n" and "\r" stand for a backslash, a line feed
// and a carriage return. Throws std::runtime_error when the file cannot be read.
NvramMap read_nvram_file(const std::string &path);

// Writes the map sorted by key through a temporary file renamed over `path`.
// Throws std::runtime_error on failure.
void write_nvram_file(const std::string &path, const NvramMap &entries);

class NvramStore {
  public:
    NvramStore(std::string committed_path, std::string defaults_path);

    // Loads the working copy from the committed file, creating that file from the
    // defaults when it does not exist. Throws std::runtime_error on failure.
    void load();

    std::optional<std::string> get(const std::string &key) const;
    void set(const std::string &key, const std::string &value);
    // Writes the whole working copy to the committed file; false when that failed.
    bool commit();
    // "key=value" of every working entry whose key starts with `prefix`, sorted by key.
    std::vector<std::string> list(const std::string &prefix) const;

    // Reads the committed file as it is now.
    std::optional<std::string> committed_value(const std::string &key) const;
    // Stores one entry into the committed file only, leaving other working changes
    // uncommitted.
    void put_committed(const std::string &key, const std::string &value);
    // Working and committed copies become the defaults again.
    void reset_to_defaults();

  private:
    std::string committed_path_;
    std::string defaults_path_;
    NvramMap working_;
};

}  // namespace korvex::sim
