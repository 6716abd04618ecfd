// Loaded into a writer with LD_PRELOAD: the process dies by SIGKILL as it renames a file into
// place, so a test sees what a crash between writing and renaming leaves behind.
#include <signal.h>
#include <stdio.h>

int rename(const char *from, const char *to) {
    (void)from;
    (void)to;
    raise(SIGKILL);
    return -1;
}
