/// @file
/// CZoIPAddr: the value type in which every object of the library passes a
/// network endpoint, an IPv4 or IPv6 address with a port or the path of a local
/// socket.
#ifndef ZONETWORK_ZOIPADDR_H
#define ZONETWORK_ZOIPADDR_H

#include <string>
#include <utility>
#include <vector>

#ifndef _WIN32
#include <netinet/in.h>
#endif

#include "ZoNetwork/ZoNetAddr.h"
#include "ZoNetwork/ZoNetworkExport.h"
#include "ZoUtils/ZoError.h"
#include "ZoUtils/ZoString.h"

struct GetAllInterfacesArgs_t;
struct GetAllInterfacesRet_t;

/// One ZONET_SockAddr and nothing else: it is copied as a block and can be
/// handed to any flat function that takes the record.
///
/// Two objects are equal when family and address are equal; the port, the
/// IPv6 flow information and the scope never count, and an object whose family
/// is not UNIX, IPv4 or IPv6 equals nothing, itself included.
///
/// A cleared object has every byte zero and the process's preferred family,
/// so it is the all-zero address of that family, or of family ANY (no address
/// set) while no preference is stored.
///
/// Name look-ups refuse the DNS name-collision marker 127.0.53.53 with
/// ZONET_ERR_HOST_NOT_FOUND, "DNS name collision occured", once the marker
/// has been parsed; the default constructor parses it until that has worked.
class ZONET_API CZoIPAddr {
public:
  /// The address families, with the platform's own numbers. The type is int,
  /// so that any number a socket reports (and -1 for none) is a value of it.
  enum IP_FAMILY : int {
    /// No family: a cleared object while no preference is stored, or "any"
    /// in a request.
    IP_FAMILY_ANY = ZONET_FAMILY_ANY,
    /// A local (Unix-domain) socket path.
    IP_FAMILY_UNIX = ZONET_FAMILY_UNIX,
    /// IPv4.
    IP_FAMILY_IPV4 = ZONET_FAMILY_IPV4,
    /// IPv6.
    IP_FAMILY_IPV6 = ZONET_FAMILY_IPV6
  };

  /// A cleared object; also tries to set the collision marker while it isn't.
  CZoIPAddr();
  /// A copy of other's whole record.
  CZoIPAddr(const CZoIPAddr& other);
  /// A copy of the whole record addr.
  CZoIPAddr(const ZONET_SockAddr& addr);  // NOLINT: implicit, as records are passed everywhere
  /// A cleared object with the structure copied over the start of the record.
  CZoIPAddr(const sockaddr_in& addr);   // NOLINT
  /// A cleared object with the structure copied over the start of the record.
  CZoIPAddr(const sockaddr_in6& addr);  // NOLINT
  /// A numeric address or a path; text that doesn't parse leaves the object cleared.
  CZoIPAddr(const char* text);  // NOLINT
  ~CZoIPAddr();                 // Clear()

  /// Copies of the whole record.
  CZoIPAddr& operator=(const CZoIPAddr& other);
  /// Copies the whole record addr.
  CZoIPAddr& operator=(const ZONET_SockAddr& addr);
  /// Overwrite only the leading bytes of the size of that structure; the rest
  /// of the record stays as it was.
  CZoIPAddr& operator=(const sockaddr_in& addr);
  /// Overwrites only the leading bytes of the size of sockaddr_in6.
  CZoIPAddr& operator=(const sockaddr_in6& addr);
  /// ZONET_str2ip(text, this); a failure is not reported and may leave the
  /// record as it was.
  CZoIPAddr& operator=(const char* text);

  /// Equal by family and address only (see the class comment).
  bool operator==(const CZoIPAddr& other) const;
  /// The negation of operator==.
  bool operator!=(const CZoIPAddr& other) const;

  /// All bytes zero, then the family becomes the preferred family.
  void Clear();
  /// The record's family, as it stands in the record.
  IP_FAMILY GetAddressFamily() const;
  /// Clear(), then the family: address and port are lost.
  void SetAddressFamily(IP_FAMILY family);
  /// "UNIX", "IPv4", "IPv6", or "ANY" for every other family; static text.
  const char* GetAddressFamilyString() const;

  /// The process-wide family preference (ZONET_GetFamilyPreference and friends).
  static IP_FAMILY GetPreferredFamily();
  /// The preferred family as text ("ANY", "UNIX", "IPv4", "IPv6"); static.
  static const char* GetPreferredFamilyString();
  /// Stores the preference once for the process, as ZONET_SetFamilyPreference:
  /// a different second value traps.
  static void SetPreferredFamily(IP_FAMILY family);

  /// The whole record.
  ZONET_SockAddr GetSockAddr() const;
  /// The leading bytes of the record as that structure, whatever the family.
  sockaddr_in GetIPv4SockAddr() const;
  /// The leading bytes of the record as sockaddr_in6, whatever the family.
  sockaddr_in6 GetIPv6SockAddr() const;
  /// The path of a local address; an empty string for other families.
  std::string GetUnixSockAddr() const;

  /// The port in host order for IPv4 and IPv6, 0 for every other family.
  int GetPortNumber() const;
  /// Stores the low 16 bits of port (no range check: 70000 stores 4464, -1
  /// stores 65535). Success without storing anything for a local address;
  /// ZONET_ERR_INVALID_STATE, "Address family not set", for family ANY.
  CZoError SetPortNumber(int port);

  /// Parses a numeric IPv4 or IPv6 address (port 0) or takes a text holding
  /// '/' or '\\' as a path; never resolves a name, never clears first. The
  /// error is ZONET_str2ip's code.
  CZoError SetAddressString(const char* text);
  /// Empties out, then the numeric text of the address (never the port), or
  /// the path. On failure out stays empty and the code is ZONET_ip2str's.
  CZoError GetAddressString(CZoString& out) const;
  /// Empties out, then the name the reverse look-up gives; a numeric answer is
  /// an error. A local address yields its path.
  CZoError GetHostName(CZoString& out) const;
  /// For a prefix of 1 to 32, the IPv4 mask of that many leading one bits (the
  /// port is left alone); any other prefix leaves the object as it was.
  /// Always Success.
  CZoError SetSubnetMaskFromCIDRPrefix(int prefix);

  /// The first IPv4 or IPv6 address the resolver gives for name, port 0. A
  /// name holding '/' or '\\' is a local path and is not looked up (cut to
  /// 107 characters). Family ANY asks for the preferred family. Errors:
  /// ZONET_ERR_INVALID_PARAMETER for a null name, the resolver's EAI_* code,
  /// ZONET_ERR_HOST_NOT_FOUND "DNS name collision occured" when the answer is
  /// the collision marker (out then holds it). An answer without an IPv4 or
  /// IPv6 address is Success with out untouched.
  static CZoError GetByName(const char* name, CZoIPAddr& out, IP_FAMILY family);
  /// Every IPv4 and IPv6 address the resolver gives, port 0, appended to out
  /// in the resolver's order (out is not emptied); a path empties out and
  /// gives the one local address. The collision marker ends the walk with
  /// ZONET_ERR_HOST_NOT_FOUND, and what was appended before it stays.
  static CZoError GetAllByName(const char* name, std::vector<CZoIPAddr>& out, IP_FAMILY family);
  /// GetByName of this machine's host name.
  static CZoError GetLocalHost(CZoIPAddr& out, IP_FAMILY family);
  /// This machine's host name.
  static CZoError GetLocalHost(CZoString& out);
  /// The dotted mask of a prefix: 24 gives "255.255.255.0". A prefix out of
  /// range gives the text of a cleared object (empty for family ANY). Always
  /// Success.
  static CZoError ConvertCIDRPrefixToSubnetMaskString(int prefix, CZoString& out);
  /// Whether the IPv4 address lies within the block "address/prefix". A block
  /// without '/' is ZONET_ERR_INVALID_PARAMETER, "Invalid CIDR block: [%s].";
  /// a block address that doesn't parse is its parse error. An address that
  /// doesn't parse counts as 0.0.0.0, and a prefix that isn't 1 to 32 makes a
  /// block that holds every address. result is written only on Success.
  static CZoError CheckIfIpv4AddressIsWithinCidrBlock(const std::string& address, const std::string& cidrBlock,
                                                      bool& result);

  /// Whether a socket can be bound to addr: out false with Success when the
  /// address family isn't supported; other bind errors are returned.
  static CZoError IsAddrBindable(const CZoIPAddr& addr, bool& out);
  /// Whether 127.0.0.1 can be bound.
  static CZoError IsIPv4StackPresent(bool& out);
  /// Whether ::1 can be bound.
  static CZoError IsIPv6StackPresent(bool& out);
  /// Whether local sockets can be used; always Success.
  static CZoError IsUnixStackPresent(bool& out);

  /// @name Interface discovery
  /// The machine's network adapters, walked in the system's order (by
  /// interface index), each adapter's addresses under it. An adapter counts
  /// when it is the loopback adapter or is running (up with carrier); every
  /// other one is skipped with "Skipping disabled interface '<name>'" in the
  /// log at level -1. family goes to the query as it is: IP_FAMILY_ANY asks
  /// for every address, and a family other than ANY, IPv4 and IPv6 makes the
  /// query fail with ZONET_ERR_INVALID_PARAMETER. Failures of the query, all
  /// also written to the log at level -1: its error number with "Can't figure
  /// out buffer space for adapter addresses."; ZONET_ERR_NOT_ENOUGH_MEMORY
  /// with "Error allocating memory for pAdapterAddBuff"; the error number of
  /// the fetch with "Error fetching adapter addresses". A machine without
  /// adapters is Success with nothing added.
  /// @{

  /// Empties out, then appends one pair per IPv4 and IPv6 address: the
  /// address and its companion. An IPv4 address's companion is its network
  /// address (the address with its prefix's mask applied), or a cleared
  /// object for a prefix of 0 or above 32. An IPv6 address's companion is an
  /// IPv4 address whose address word holds, zero-extended, the 16-bit word of
  /// address bytes 6 and 7 as they are stored. Nothing is sorted or removed.
  /// On failure out stays empty.
  static CZoError GetIFList(std::vector<std::pair<CZoIPAddr, CZoIPAddr> >& out, IP_FAMILY family);
  /// Appends the addresses of the pair list to out, behind what it holds
  /// (out is not emptied). On failure out is unchanged and the pair list's
  /// error is returned with this location pushed.
  static CZoError GetIFList(std::vector<CZoIPAddr>& out, IP_FAMILY family);
  /// Appends the hardware address of each counted adapter that has one, as
  /// lower-case hexadecimal pairs joined by ':' ("02:00:5e:10:00:01"); out is
  /// not emptied and duplicates stay. family is only the size query's: the
  /// fetch always asks for every family, so a narrower family can make the
  /// fetch fail with ZONET_ERR_BUFFER_OVERFLOW.
  static CZoError GetMACList(std::vector<std::string>& out, IP_FAMILY family);
  /// A digest for display. Appends every address of GetIFList to
  /// ret.addresses (a failure of the walk is dropped); then, for each element
  /// of ret.addresses, those the caller left included, except 127.0.0.1 and
  /// ::1: its numeric text to ret.addressStrings and, when host names are
  /// wanted, its reverse name in lower case to ret.hostNames where there is
  /// one. addressStrings is sorted (duplicates stay), hostNames sorted without
  /// duplicates. Asking for host names sets args.wantAddresses. Failure only
  /// when nothing is asked: ZONET_ERR_INVALID_PARAMETER, "Nothing requested in
  /// arguments.".
  static CZoError GetAllInterfaces(GetAllInterfacesArgs_t& args, GetAllInterfacesRet_t& ret, const IP_FAMILY& family);
  /// @}

private:
  ZONET_SockAddr m_SockAddr;

  /// The collision marker, 127.0.53.53 once m_DummyIpInit is true.
  static CZoIPAddr m_DummyIp;
  static bool m_DummyIpInit;
};

static_assert(sizeof(CZoIPAddr) == 112, "a CZoIPAddr is exactly one ZONET_SockAddr");

/// What CZoIPAddr::GetAllInterfaces is asked for.
struct GetAllInterfacesArgs_t {
  bool wantAddresses;  ///< Addresses are requested (they are collected in any case).
  bool wantHostNames;  ///< Reverse names are requested too; sets wantAddresses.
};

/// What CZoIPAddr::GetAllInterfaces answers; every vector is added to.
struct GetAllInterfacesRet_t {
  /// Numeric text of each address but 127.0.0.1 and ::1, sorted byte-wise; duplicates stay.
  std::vector<std::string> addressStrings;
  /// Every address of the walk, loopback ones included, in walk order.
  std::vector<CZoIPAddr> addresses;
  /// Lower-case reverse names of the addresses that have one; sorted, without duplicates.
  std::vector<std::string> hostNames;
};

#endif  // ZONETWORK_ZOIPADDR_H
