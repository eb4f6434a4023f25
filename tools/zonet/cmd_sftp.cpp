// zonet sftp: the requests of zonet ftp over SFTP, with the password of
// --user or the key of the home folder.
#include "commands.h"

namespace zonet {

int CmdSftp(const Args& args) { return RunFileTransfer(args, true); }

}  // namespace zonet
