#pragma once

// Turns the process into a daemon: one fork, a session of its own, "/" as directory, standard input
// from /dev/null and standard output to the serial console. 1 on success, in the child; the parent
// has exited with status 0. -1 on failure, which is logged. Main thread, before any other thread.
int DeamonCreate();
