// zonet cidr and zonet blacklist: the address object's CIDR check and the
// address blacklist, from the shell.
#include <climits>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <string>
#include <vector>

#include "ZoNetwork/ZoIPAddr.h"
#include "ZoNetwork/ZoIPAddrBlacklist.h"
#include "commands.h"

namespace zonet {

namespace {

std::string AddressText(const CZoIPAddr& addr) {
  CZoString text;
  CZoError error = addr.GetAddressString(text);
  if (error.IsError()) return std::string("(") + addr.GetAddressFamilyString() + " address)";
  return text.c_str();
}

std::string TimeText(int64_t seconds) {
  time_t when = static_cast<time_t>(seconds);
  struct tm parts;
  char text[64];
  if (localtime_r(&when, &parts) == nullptr || std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts) == 0) {
    return std::to_string(seconds);
  }
  return text;
}

struct Listed {
  CZoIPAddr addr;
  unsigned int attempts;
  int64_t lastAttempt;
  int64_t secondsLeft;
};

}  // namespace

int CmdCidr(const Args& args) {
  if (args.size() != 2) return UsageError("cidr: ADDRESS and BLOCK wanted (e.g. 10.1.2.3 10.1.0.0/16)");
  bool within = false;
  CZoError error = CZoIPAddr::CheckIfIpv4AddressIsWithinCidrBlock(args[0], args[1], within);
  if (error.IsError()) return Fail(error);
  std::printf("%s is %swithin %s\n", args[0].c_str(), within ? "" : "not ", args[1].c_str());
  return 0;
}

int CmdBlacklist(const Args& args) {
  std::string file;
  long long grace = 1;
  long long expire = 0;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (arg == "--grace" || arg == "--expire") {
      long long value = 0;
      bool ok = i + 1 < args.size() && (arg == "--grace" ? ParseNumber(args[i + 1], 0, UINT_MAX, value)
                                                         : ParseNumber(args[i + 1], INT_MIN, INT_MAX, value));
      if (!ok) return UsageError("blacklist: %s wants a number", arg.c_str());
      (arg == "--grace" ? grace : expire) = value;
      ++i;
    } else if (!arg.empty() && arg[0] == '-') {
      return UsageError("blacklist: unknown option '%s'", arg.c_str());
    } else if (!file.empty()) {
      return UsageError("blacklist: one FILE only");
    } else {
      file = arg;
    }
  }
  if (file.empty()) return UsageError("blacklist: FILE is missing");

  CZoIPAddrBlacklist list;
  list.SetGraceAttempts(static_cast<unsigned int>(grace));
  list.SetExpirationTime(static_cast<int>(expire));
  CZoError error = list.LoadBlacklistFromFile(file.c_str());
  if (error.IsError()) return Fail(error);

  // Walk first, ask afterwards: asking may remove an entry under the walk.
  std::vector<Listed> entries;
  Listed entry;
  for (error =
           list.GetFirstBlacklistEntry(entry.addr, nullptr, &entry.attempts, &entry.lastAttempt, &entry.secondsLeft);
       !error.IsError(); error = list.GetNextBlacklistEntry(entry.addr, nullptr, &entry.attempts, &entry.lastAttempt,
                                                            &entry.secondsLeft)) {
    entries.push_back(entry);
  }
  if (error.GetErrorCode() != ZONET_ERR_NO_MORE_ITEMS) return Fail(error);

  std::printf("%zu entries (grace attempts %lld, expiration %s)\n", entries.size(), grace,
              expire > 0 ? (std::to_string(expire) + " s").c_str() : "none");
  for (const Listed& listed : entries) {
    bool blacklisted = list.IsAddressBlacklisted(listed.addr, nullptr, nullptr);
    std::string decay = listed.secondsLeft < 0 ? "never" : "in " + std::to_string(listed.secondsLeft) + " s";
    std::printf("  %-40s attempts %u, last %s, next decay %s, %s\n", AddressText(listed.addr).c_str(), listed.attempts,
                TimeText(listed.lastAttempt).c_str(), decay.c_str(), blacklisted ? "blacklisted" : "not blacklisted");
  }
  return 0;
}

}  // namespace zonet
