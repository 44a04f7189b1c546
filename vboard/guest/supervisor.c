// The board's supervisor: starts the daemon again whenever it ends.
//
// usage: supervisor STATE_DIR LOG CONSOLE ERRORS PROGRAM
//
// PROGRAM turns itself into a daemon, so that its first process ends and the
// real one is an orphan: this process adopts orphans and so sees that one end.
// A program that stays in the foreground is supervised just as well. The program's
// standard output is CONSOLE, a terminal, and its standard error the file ERRORS.
//
// STATE_DIR/supervisor.pid  this process
// STATE_DIR/daemon.pid      the daemon, while it runs
// STATE_DIR/down            while this file exists, an ended daemon stays down
//
// SIGUSR1 looks at "down" again. SIGTERM ends the daemon by SIGTERM (SIGKILL
// after 10 s) and then this process: status 0 if the daemon needed no SIGKILL.

#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdarg.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

enum {
    STOP_DEADLINE_S = 10, // how long the daemon may take to end in order
    FAST_CRASH_S = 1,     // a daemon that lived shorter than this
    PAUSE_S = 1,          // is started again after this
    MAX_CHILDREN = 64,
};

static FILE* log_file;
static const char* program_name;

__attribute__((format(printf, 1, 2))) static void note(const char* format, ...) {
    va_list args;
    fputs("supervisor: ", log_file);
    va_start(args, format);
    vfprintf(log_file, format, args);
    va_end(args);
    fputc('\n', log_file);
    fflush(log_file);
}

static void die(const char* what) {
    fprintf(stderr, "supervisor: %s: %s\n", what, strerror(errno));
    exit(2);
}

// Writes pid to a file of the state directory in one step; removes it for pid 0.
static void write_pid(const char* name, pid_t pid) {
    char fresh[64];
    FILE* file;
    if (pid == 0) {
        unlink(name);
        return;
    }
    snprintf(fresh, sizeof fresh, "%s.new", name);
    file = fopen(fresh, "we");
    if (!file || fprintf(file, "%d\n", (int)pid) < 0 || fclose(file) != 0 ||
        rename(fresh, name) != 0) {
        die(name);
    }
}

// Our children, zombies included, oldest first.
static int list_children(pid_t children[MAX_CHILDREN]) {
    int count = 0;
    int pid;
    FILE* file = fopen("/proc/thread-self/children", "re");
    if (!file) {
        die("/proc/thread-self/children");
    }
    while (count < MAX_CHILDREN && fscanf(file, "%d", &pid) == 1) {
        children[count++] = pid;
    }
    fclose(file);
    return count;
}

static struct {
    pid_t first;                 // the process that was started, until it has been reaped
    pid_t daemon;                // the process that is the daemon, 0 for none
    int status;                  // how the last of them ended
    time_t started;              // monotonic seconds
    pid_t orphans[MAX_CHILDREN]; // what an earlier daemon left behind
    int orphan_count;
} run;

static time_t now_s(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec;
}

static void start(const char* program, const char* console, const char* errors,
                  const sigset_t* old_mask) {
    pid_t pid;
    run.orphan_count = list_children(run.orphans);
    run.started = now_s();
    pid = fork();
    if (pid < 0) {
        die("fork");
    }
    if (pid == 0) {
        int in = open("/dev/null", O_RDONLY);
        int out = open(console, O_WRONLY | O_NOCTTY);
        int err = open(errors, O_WRONLY | O_CREAT | O_APPEND, 0644);
        dup2(in, STDIN_FILENO);
        dup2(out, STDOUT_FILENO);
        dup2(err, STDERR_FILENO);
        close(in);
        close(out);
        close(err);
        sigprocmask(SIG_SETMASK, old_mask, NULL);
        execl(program, program, (char*)NULL);
        fprintf(stderr, "supervisor: %s: %s\n", program, strerror(errno));
        _exit(127);
    }
    run.first = pid;
    run.daemon = pid;
    write_pid("daemon.pid", pid);
    note("%s started", program_name);
}

static bool is_orphan(pid_t pid) {
    for (int i = 0; i < run.orphan_count; i++) {
        if (run.orphans[i] == pid) {
            return true;
        }
    }
    return false;
}

// Once the first process has gone, the daemon is the child that it left us.
static void adopt(void) {
    pid_t children[MAX_CHILDREN];
    int count = list_children(children);
    run.daemon = 0;
    for (int i = 0; i < count && run.daemon == 0; i++) {
        if (!is_orphan(children[i])) {
            run.daemon = children[i];
        }
    }
    write_pid("daemon.pid", run.daemon);
}

// Collects whoever has ended; afterwards run.daemon is 0 if the daemon is among them.
static void reap(void) {
    for (;;) {
        siginfo_t info = {.si_pid = 0};
        int status;
        if (waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) != 0 || info.si_pid == 0) {
            return;
        }
        // The first process before all others: a daemon that has ended already must
        // still be among our children when it is looked for.
        if (run.first != 0 && waitpid(run.first, &status, WNOHANG) == run.first) {
            run.first = 0;
            run.status = status;
            adopt();
            continue;
        }
        waitpid(info.si_pid, &status, 0);
        if (info.si_pid == run.daemon) {
            run.daemon = 0;
            run.status = status;
            write_pid("daemon.pid", 0);
        }
    }
}

static void note_end(const char* then) {
    if (WIFSIGNALED(run.status)) {
        note("%s ended (killed by signal %d, %s), %s", program_name, WTERMSIG(run.status),
             strsignal(WTERMSIG(run.status)), then);
    } else {
        note("%s ended (exit status %d), %s", program_name, WEXITSTATUS(run.status), then);
    }
}

// Sleeps until a signal of the set comes, or for that many seconds; 0 for the latter.
static int wait_signal(const sigset_t* set, time_t seconds) {
    const struct timespec limit = {.tv_sec = seconds};
    int signal_number = sigtimedwait(set, NULL, &limit);
    return signal_number < 0 ? 0 : signal_number;
}

static int stop(const sigset_t* set) {
    const time_t deadline = now_s() + STOP_DEADLINE_S;
    bool killed = false;
    reap();
    if (run.daemon != 0) {
        kill(run.daemon, SIGTERM);
    }
    while (run.daemon != 0) {
        wait_signal(set, 1);
        reap();
        if (run.daemon != 0 && !killed && now_s() >= deadline) {
            note("%s does not end within %d s of SIGTERM, killing it", program_name,
                 STOP_DEADLINE_S);
            kill(run.daemon, SIGKILL);
            killed = true;
        }
    }
    note_end("the end");
    return killed ? 1 : 0;
}

int main(int argc, char** argv) {
    sigset_t set;
    sigset_t old_mask;
    bool down = true;
    if (argc != 6) {
        fputs("usage: supervisor STATE_DIR LOG CONSOLE ERRORS PROGRAM\n", stderr);
        return 2;
    }
    log_file = fopen(argv[2], "ae");
    if (!log_file || chdir(argv[1]) != 0) {
        die("cannot open the log or the state directory");
    }
    program_name = strrchr(argv[5], '/') ? strrchr(argv[5], '/') + 1 : argv[5];

    sigemptyset(&set);
    sigaddset(&set, SIGCHLD);
    sigaddset(&set, SIGUSR1);
    sigaddset(&set, SIGTERM);
    sigprocmask(SIG_BLOCK, &set, &old_mask);
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    write_pid("supervisor.pid", getpid());

    for (;;) {
        if (down && access("down", F_OK) != 0) {
            start(argv[5], argv[3], argv[4], &old_mask);
            down = false;
        }
        if (wait_signal(&set, 60) == SIGTERM) {
            return down ? 0 : stop(&set);
        }
        reap();
        if (!down && run.daemon == 0) {
            down = true;
            if (access("down", F_OK) == 0) {
                note_end("staying down");
            } else {
                note_end("starting again");
                if (now_s() - run.started <= FAST_CRASH_S &&
                    wait_signal(&set, PAUSE_S) == SIGTERM) {
                    return 0;
                }
            }
        }
    }
}
