// Proxy settings of the second face, as Linux keeps them: the machine-wide
// setting in /etc/environment, the user's in the process environment, and
// the proxy auto-configuration script, evaluated in a bounded child process.
// Internal to the layer.
#ifndef ZONET_HTTP_BEAST_HTTPPROXY2_H
#define ZONET_HTTP_BEAST_HTTPPROXY2_H

#include <cstdint>
#include <string>
#include <vector>

namespace zonet_http2 {
namespace proxy {

// One variable's assignment, as found.
struct Assignment {
  std::string name, value;
};

// The assignments of an environment file ("NAME=value", optionally behind
// "export", values optionally in single or double quotes, "#" comments).
std::vector<Assignment> ParseEnvironmentFile(const std::string& text);

// The designed platform's proxy and bypass texts from the http_proxy,
// https_proxy and no_proxy values (either case; the lower case wins) of a
// list of assignments.
void ProxyFromAssignments(const std::vector<Assignment>& assignments, std::string& proxy, std::string& bypass);

// The file that holds the machine-wide setting.
extern const char* const kMachineFile;
// The process environment's variable that holds the auto-configuration
// script's URL, and the one whose value "1" asks for auto-detection.
extern const char* const kAutoConfigVariable;
extern const char* const kAutoDetectVariable;

// The machine-wide setting (kMachineFile; a missing file is no setting).
void MachineSetting(std::string& proxy, std::string& bypass);

// The answer of a FindProxyForURL result ("PROXY a:1; DIRECT") in the
// designed platform's syntax ("a:1"; DIRECT entries dropped).
std::string ProxyListFromPacResult(const std::string& result);

// Evaluates FindProxyForURL(url, host) of script in a child process bounded
// to timeoutMs of time and memoryBytes of address space. True with the
// function's answer; false with 12166 (the script does not evaluate, or ran
// past its bounds).
bool EvaluatePac(const std::string& script, const std::string& url, const std::string& host, std::string& result,
                 uint32_t& error, int timeoutMs = 5000, uint64_t memoryBytes = 256ull << 20);

// The same evaluation in this process, unbounded: what the child runs.
bool EvaluatePacHere(const std::string& script, const std::string& url, const std::string& host, std::string& result);

// The resolver's search domain (the "search" or "domain" line of
// /etc/resolv.conf, the first name; else the host name's domain); "" when none.
std::string SearchDomain();
// The WPAD URLs to try for a domain, most specific first, down to two labels.
std::vector<std::string> WpadCandidates(const std::string& domain);

}  // namespace proxy
}  // namespace zonet_http2

#endif  // ZONET_HTTP_BEAST_HTTPPROXY2_H
