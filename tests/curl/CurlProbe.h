// Runs the curl_probe child on a copy of the shared library with a stand-in
// libcurl beside it (or none): the tests of the binding and of the options
// that only curl itself can show.
#ifndef ZONET_TESTS_CURL_CURLPROBE_H
#define ZONET_TESTS_CURL_CURLPROBE_H

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "support/TestSupport.h"

namespace zotest_curl {

inline void CopyFile(const std::string& from, const std::string& to) {
  std::ifstream in(from, std::ios::binary);
  std::ofstream out(to, std::ios::binary);
  out << in.rdbuf();
  ASSERT_TRUE(in.good() || in.eof()) << from;
  ASSERT_TRUE(out.good()) << to;
}

inline std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

inline std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::stringstream stream(text);
  std::string line;
  while (std::getline(stream, line)) lines.push_back(line);
  return lines;
}

// What a run of the probe printed, key by key, and its log.
struct ProbeRun {
  int status = -1;
  std::map<std::string, std::string> values;
  std::vector<std::string> log;
  std::string output;
};

// A copy of the shared library in a directory of its own, with what lies
// beside it.
class LibraryCopy {
public:
  explicit LibraryCopy(const std::string& directory = "") {
    m_dir = directory.empty() ? m_temp.Path() : directory;
    CopyFile(ZONETWORK_SO, m_dir + "/libZoNetwork.so.0");
  }
  const std::string& Dir() const { return m_dir; }
  std::string Log() const { return m_temp.File("curl.log"); }
  // Places file as the libcurl beside the copy.
  void PutCurl(const std::string& file) const { CopyFile(file, m_dir + "/libcurl.so.4"); }
  void PutGarbageCurl() const {
    std::ofstream out(m_dir + "/libcurl.so.4");
    out << "this is no shared object\n";
  }

  ProbeRun Run(const std::string& arguments, const std::string& workDir = "") const {
    std::string command = "cd '" + (workDir.empty() ? m_temp.Path() : workDir) + "' && ZONET_CURL_LOG='" + Log() +
                          "' ASAN_OPTIONS=detect_leaks=0 LD_LIBRARY_PATH='" + m_dir + "' '" CURL_PROBE "' " +
                          arguments + " 2>&1";
    ProbeRun run;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return run;
    char buffer[4096];
    while (fgets(buffer, sizeof buffer, pipe) != nullptr) run.output += buffer;
    int status = pclose(pipe);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    for (const std::string& line : Lines(run.output)) {
      size_t eq = line.find('=');
      if (eq != std::string::npos) run.values[line.substr(0, eq)] = line.substr(eq + 1);
    }
    run.log = Lines(ReadFile(Log()));
    return run;
  }

private:
  zotest::TempDir m_temp;
  std::string m_dir;
};

inline size_t Count(const std::vector<std::string>& log, const std::string& line) {
  size_t n = 0;
  for (const std::string& l : log) n += l == line ? 1 : 0;
  return n;
}

inline size_t IndexOf(const std::vector<std::string>& log, const std::string& line) {
  for (size_t i = 0; i < log.size(); ++i) {
    if (log[i] == line) return i;
  }
  return log.size();
}

// The lines between the marker "-- name" and the next marker.
inline std::vector<std::string> Section(const std::vector<std::string>& log, const std::string& name) {
  std::vector<std::string> lines;
  size_t at = IndexOf(log, "-- " + name);
  for (size_t i = at + 1; i < log.size() && log[i].rfind("-- ", 0) != 0; ++i) lines.push_back(log[i]);
  return lines;
}

}  // namespace zotest_curl

#endif  // ZONET_TESTS_CURL_CURLPROBE_H
