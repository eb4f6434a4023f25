// The subcommands of zonet, one function each.
#ifndef ZONET_TOOLS_COMMANDS_H
#define ZONET_TOOLS_COMMANDS_H

#include <string>
#include <vector>

class CZoError;

namespace zonet {

// Prints error with its whole chain on standard error, after "zonet: ".
void PrintError(const CZoError& error);
// PrintError, then the exit status of a failure of the library (1).
int Fail(const CZoError& error);

using Args = std::vector<std::string>;

struct Command {
  const char* name;
  const char* args;
  const char* help;
  int (*run)(const Args& args);
};

// Exit status 0 for success, 1 for a failure of the library, 2 for a usage error.
int CmdVersion(const Args& args);
// addresses and resolution (flat layer)
int CmdResolve(const Args& args);
int CmdAddr(const Args& args);
// sockets, descriptor sets, socket pairs (flat layer)
int CmdPair(const Args& args);
// address object and blacklist
int CmdCidr(const Args& args);
int CmdBlacklist(const Args& args);
// socket object, selector, stack probes
int CmdBindable(const Args& args);
int CmdStacks(const Args& args);
int CmdAccept(const Args& args);
// ping
int CmdPing(const Args& args);

}  // namespace zonet

#endif  // ZONET_TOOLS_COMMANDS_H
