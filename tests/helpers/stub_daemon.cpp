// A stand-in for brixd that the supervisor tests launch as a real child. Built once per
// behaviour (STUB_MODE): exit at once, run until signalled, or run and shrug off SIGTERM.
// Each launch leaves a record in $QB_STUB_DIR: its pid, a CLOCK_MONOTONIC stamp, its arguments
// and its whole environment, written to a temporary name and renamed so a reader never sees
// half of it. The record appears only once the signal setup is done.

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <string>
#include <unistd.h>

#define STUB_EXIT 1
#define STUB_STAY 2
#define STUB_IGNORE_TERM 3

extern char **environ;

namespace {

#if STUB_MODE == STUB_IGNORE_TERM
char g_termPath[4096];

void onTerm(int) {
    // Leaves proof that SIGTERM arrived, then carries on.
    const int fd = ::open(g_termPath, O_WRONLY | O_CREAT | O_APPEND, 0600);
    if (fd >= 0) {
        [[maybe_unused]] const ssize_t n = ::write(fd, "TERM\n", 5);
        ::close(fd);
    }
}
#endif

void record(const char *dir, int argc, char **argv) {
    timespec now = {};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    const std::string base = std::string(dir) + "/launch-" + std::to_string(::getpid());
    const std::string tmp = base + ".tmp";
    std::FILE *f = std::fopen(tmp.c_str(), "w");
    if (!f)
        return;
    std::fprintf(f, "pid %ld\n", long(::getpid()));
    std::fprintf(f, "t_ns %lld\n", (long long)now.tv_sec * 1000000000LL + now.tv_nsec);
    for (int i = 1; i < argc; ++i)
        std::fprintf(f, "arg %s\n", argv[i]);
    for (char **e = environ; *e; ++e)
        std::fprintf(f, "env %s\n", *e);
    std::fclose(f);
    std::rename(tmp.c_str(), (base + ".rec").c_str());
}

} // namespace

int main(int argc, char **argv) {
    const char *dir = std::getenv("QB_STUB_DIR");
#if STUB_MODE == STUB_IGNORE_TERM
    if (dir)
        std::snprintf(g_termPath, sizeof g_termPath, "%s/term-%ld", dir, long(::getpid()));
    else
        std::snprintf(g_termPath, sizeof g_termPath, "/dev/null");
    struct sigaction action = {};
    action.sa_handler = onTerm;
    sigemptyset(&action.sa_mask);
    ::sigaction(SIGTERM, &action, nullptr);
#endif
    if (dir)
        record(dir, argc, argv);
#if STUB_MODE == STUB_EXIT
    return 0;
#else
    for (;;)
        ::pause();
#endif
}
