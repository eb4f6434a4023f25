// zonet ifaces: the machine's adapters as the address object's interface
// discovery sees them: the addresses (with their companions), the hardware
// addresses, and the sorted digest with reverse names.
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "ZoNetwork/ZoIPAddr.h"
#include "commands.h"

namespace zonet {

namespace {

std::string Text(const CZoIPAddr& addr) {
  CZoString text;
  if (addr.GetAddressString(text).IsError()) return "-";
  return text.c_str();
}

int IfacesUsage(const std::string& bad) { return UsageError("ifaces: unknown option '%s'", bad.c_str()); }

}  // namespace

int CmdIfaces(const Args& args) {
  bool pairs = false;
  bool macs = false;
  bool names = false;
  for (const std::string& arg : args) {
    if (arg == "--pairs") {
      pairs = true;
    } else if (arg == "--macs") {
      macs = true;
    } else if (arg == "--names") {
      names = true;
    } else {
      return IfacesUsage(arg);
    }
  }
  bool addresses = pairs || (!macs && !names);

  if (addresses) {
    std::vector<std::pair<CZoIPAddr, CZoIPAddr> > list;
    CZoError error = CZoIPAddr::GetIFList(list, CZoIPAddr::IP_FAMILY_ANY);
    if (error.IsError()) return Fail(error);
    for (const auto& entry : list) {
      std::string address = Text(entry.first);
      if (pairs) {
        std::printf("%-5s %-40s %s\n", entry.first.GetAddressFamilyString(), address.c_str(),
                    Text(entry.second).c_str());
      } else {
        std::printf("%-5s %s\n", entry.first.GetAddressFamilyString(), address.c_str());
      }
    }
  }
  if (macs) {
    std::vector<std::string> list;
    CZoError error = CZoIPAddr::GetMACList(list, CZoIPAddr::IP_FAMILY_ANY);
    if (error.IsError()) return Fail(error);
    for (const std::string& mac : list) std::printf("mac   %s\n", mac.c_str());
  }
  if (names) {
    GetAllInterfacesArgs_t request = {true, true};
    GetAllInterfacesRet_t digest;
    CZoError error = CZoIPAddr::GetAllInterfaces(request, digest, CZoIPAddr::IP_FAMILY_ANY);
    if (error.IsError()) return Fail(error);
    for (const std::string& text : digest.addressStrings) std::printf("address  %s\n", text.c_str());
    for (const std::string& name : digest.hostNames) std::printf("name     %s\n", name.c_str());
  }
  return 0;
}

}  // namespace zonet
