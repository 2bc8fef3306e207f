#include "support/corpus.h"

#include <sys/wait.h>  // WIFEXITED, WEXITSTATUS

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>

namespace tiffgate::testing {

std::vector<std::string> split_csv(const std::string& line) {
  std::vector<std::string> fields(1);
  bool quoted = false;
  for (std::size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    if (c == '"' && quoted && i + 1 < line.size() && line[i + 1] == '"') fields.back() += line[++i];
    else if (c == '"') quoted = !quoted;
    else if (c == ',' && !quoted) fields.emplace_back();
    else fields.back() += c;
  }
  return fields;
}

std::vector<CsvRow> read_csv(const std::string& path) {
  std::ifstream in(path);
  if (!in) throw std::runtime_error("cannot read " + path);
  std::string line;
  std::getline(in, line);
  const std::vector<std::string> columns = split_csv(line);
  std::vector<CsvRow> rows;
  while (std::getline(in, line)) {
    const std::vector<std::string> fields = split_csv(line);
    CsvRow& row = rows.emplace_back();
    for (std::size_t i = 0; i < columns.size() && i < fields.size(); ++i) row[columns[i]] = fields[i];
  }
  return rows;
}

std::vector<std::string> tiff_files_in(const std::string& folder) {
  std::vector<std::string> files;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    const std::string ext = entry.path().extension().string();
    if (entry.is_regular_file() && (ext == ".tif" || ext == ".tiff")) files.push_back(entry.path().string());
  }
  std::sort(files.begin(), files.end());
  return files;
}

std::string test_source(const std::string& name) { return std::string(TIFFGATE_SOURCE_DIR) + "/tests/" + name; }

std::string command_output(const std::string& command) {
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) throw std::runtime_error("cannot run " + command);
  std::string out;
  char block[65536];
  for (std::size_t got; (got = std::fread(block, 1, sizeof block, pipe)) > 0;) out.append(block, got);
  const int status = pclose(pipe);
  if (status == -1 || !WIFEXITED(status) || WEXITSTATUS(status) != 0)
    throw std::runtime_error("failed (status " + std::to_string(status) + "): " + command);
  return out;
}

namespace {

/// Single quotes for the shell, with embedded quotes closed and reopened.
std::string quoted(const std::string& text) {
  std::string out = "'";
  for (const char c : text) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return out + "'";
}

}  // namespace

std::string run_python(const std::string& script, const std::vector<std::string>& arguments) {
  std::string command = "/usr/bin/python3 " + quoted(test_source(script));
  for (const std::string& a : arguments) command += " " + quoted(a);
  return command_output(command);
}

std::vector<double> TagRecord::numbers() const {
  std::vector<double> out;
  std::istringstream in(values);
  for (std::string word; in >> word;) out.push_back(std::strtod(word.c_str(), nullptr));
  return out;
}

std::vector<unsigned char> TagRecord::bytes() const {
  std::vector<unsigned char> out;
  for (std::size_t i = 0; i + 1 < values.size(); i += 2)
    out.push_back(static_cast<unsigned char>(std::stoi(values.substr(i, 2), nullptr, 16)));
  return out;
}

const TagRecord* DirectoryRecord::tag(std::uint32_t code) const {
  const auto found = tags.find(code);
  return found == tags.end() ? nullptr : &found->second;
}

std::map<std::string, FileDirectories> tifffile_directories(const std::vector<std::string>& files,
                                                            bool decodeSubIfds) {
  std::vector<std::string> arguments = files;
  if (decodeSubIfds) arguments.insert(arguments.begin(), "--decode-subifds");
  std::istringstream out(run_python("tifffile_directories.py", arguments));
  std::map<std::string, FileDirectories> result;
  FileDirectories* file = nullptr;
  DirectoryRecord* directory = nullptr;
  for (std::string line; std::getline(out, line);) {
    std::vector<std::string> f;
    std::istringstream fields(line);
    for (std::string field; std::getline(fields, field, '\t');) f.push_back(field);
    if (f.empty()) continue;
    if (f[0] == "F" && f.size() == 2) {
      file = &result[f[1]];
      directory = nullptr;
    } else if (f[0] == "D" && f.size() == 2 && file) {
      directory = &(*file)[f[1]];
    } else if (f[0] == "T" && f.size() >= 4 && directory) {
      TagRecord& tag = directory->tags[static_cast<std::uint32_t>(std::stoul(f[1]))];
      tag.type = static_cast<std::uint16_t>(std::stoul(f[2]));
      tag.count = std::stoull(f[3]);
      tag.values = f.size() > 4 ? f[4] : "";
    } else if (f[0] == "R" && f.size() == 4 && directory) {
      directory->shape = f[1], directory->dtype = f[2], directory->sha256 = f[3];
    } else if (f[0] == "E" && f.size() >= 2) {
      (directory ? directory->error : (*file)[""].error) = f[1];
    }
  }
  return result;
}

}  // namespace tiffgate::testing
