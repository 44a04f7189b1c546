#pragma once

#include <memory>
#include <string>
#include <vector>

#include <sys/types.h>

// Processes, files, network interfaces and network namespaces. Holds no state: safe from any
// thread. Everything here blocks; what runs a command stalls the caller for as long as it runs.
//
// Names of interfaces and namespaces become words of shell commands, which run as root. Each is one
// word for the shell, whatever characters it has: a name with other characters than letters, digits
// and "_.:@-" goes between quotes. No command is run for a name that nothing can have, which is one
// that is empty, begins with "-" or has a "/", a blank or a control character: deleting it fails.
class CommandUtil {
  public:
    static std::shared_ptr<CommandUtil> GetInstance();

    // Ask the process, or every other process of that name, to end (signal 15).
    void Kill(pid_t pid);
    void Kill(const std::string& name);

    // True when there is anything at `path`; a symbolic link that leads nowhere counts.
    bool Exists(const std::string& path);

    // Makes an empty file at `path`, or empties the one there. The directory must exist: a missing
    // one is made as a plain file, and then the file itself does not come to be.
    void Create(const std::string& path);

    // Empties the file at `path`, and makes it if it is missing.
    void ClearContent(const std::string& path);

    // Removes a file, a symbolic link (not what it leads to) or a directory with all it holds.
    // Devices, sockets and FIFOs stay, and so do the directories that hold them.
    void Rm(const std::string& path);

    // The names in a directory, sorted, without "." and ".."; for anything else the last part of
    // its path. Empty when there is nothing at `path`.
    std::vector<std::string> Ls(const std::string& path);

    // The names of all interfaces of this namespace but loopback, in the kernel's order.
    std::vector<std::string> GetIfaces();

    // Deletes an interface with the command `ip` or, when that fails, `ifconfig`. That neither
    // could delete it is told only by what they print.
    void DelIface(const std::string& name);

    // Deletes interfaces through netlink. Failures are printed to standard error and do not keep
    // the others; without a socket none is deleted.
    void DelIfaces(const std::vector<std::string>& names);

    // Deletes every named network namespace. Throws std::runtime_error at the first that cannot be
    // deleted, or when no command can be run.
    void DelAllNetns();

    // Ids of the processes, but this one, whose name is `name` exactly. The kernel cuts names to 15
    // bytes.
    std::vector<pid_t> GetPidsByName(const std::string& name);

    // The id that the namespace `name` has here, or -1. `name` is the front part of a pattern that
    // is searched anywhere in a line, so a name that ends in `name` may be found in its stead.
    // Throws std::runtime_error when no command can be run.
    int GetNetnsId(const std::string& name);

  private:
    std::vector<std::string> ListNetns();
    void DelNetns(const std::string& name);
};
