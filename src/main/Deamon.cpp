#include "main/Deamon.h"

#include "utils/Console.h"
#include "utils/Logger.h"

#include <cstdlib>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

int DeamonCreate() {
    const pid_t child = fork();
    if (child == -1) {
        VCI_LOG_ERROR << "Child process creation failed";
        return -1;
    }
    if (child > 0) {
        PrintLine("parent process ---------");
        exit(0);
    }
    PrintLine("Child process ---------");
    if (setsid() == -1) {
        VCI_LOG_ERROR << "Setsid failed";
        return -1;
    }
    if (chdir("/") != 0) {
        VCI_LOG_ERROR << "Failed to change the current working directory to root";
        return -1;
    }
    umask(0);
    const int devNull = open("/dev/null", O_RDWR);
    if (devNull == -1) {
        VCI_LOG_ERROR << "Failed to open dev/null";
        return -1;
    }
    if (dup2(devNull, STDIN_FILENO) == -1) {
        VCI_LOG_ERROR << "STDIN_FILENO redirection failed";
        return -1;
    }
    // The terminal's own descriptor stays open for the life of the process. As the session has no
    // terminal yet, this one becomes its controlling terminal.
    const int terminal = open("/dev/ttyPS0", O_RDWR);
    if (dup2(terminal, STDOUT_FILENO) == -1) {
        VCI_LOG_ERROR << "STDOUT_FILENO redirection failed";
        return -1;
    }
    if (terminal > STDERR_FILENO) {
        fcntl(terminal, F_SETFD, FD_CLOEXEC); // children need only the copy
    }
    if (devNull <= STDERR_FILENO) {
        return 1;
    }
    if (close(devNull) == -1) {
        VCI_LOG_ERROR << "File descriptor close failed";
        return -1;
    }
    return 1;
}
