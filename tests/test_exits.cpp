#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "support/exits.h"

struct Ending {
    std::string out;
    int status;
};

// Runs body in a child process whose standard output (line-buffered, as on a terminal) comes
// back through a pipe; body is expected to end the process.
static Ending inChild(void (*body)()) {
    fflush(stdout);
    fflush(stderr);
    int pipe_fd[2];
    EXPECT_EQ(pipe(pipe_fd), 0);
    pid_t pid = fork();
    if (pid == 0) {
        close(pipe_fd[0]);
        dup2(pipe_fd[1], STDOUT_FILENO);
        close(pipe_fd[1]);
        setvbuf(stdout, nullptr, _IOLBF, 0);
        struct rlimit no_core = {0, 0};
        setrlimit(RLIMIT_CORE, &no_core);
        body();
        _exit(99);
    }
    close(pipe_fd[1]);
    Ending e;
    char chunk[256];
    for (ssize_t n; (n = read(pipe_fd[0], chunk, sizeof(chunk))) > 0;) e.out.append(chunk, n);
    close(pipe_fd[0]);
    waitpid(pid, &e.status, 0);
    return e;
}

static bool exitedWith(const Ending& e, int code) { return WIFEXITED(e.status) && WEXITSTATUS(e.status) == code; }
static bool diedOf(const Ending& e, int sig) { return WIFSIGNALED(e.status) && WTERMSIG(e.status) == sig; }

static void sayHello() { printf("hello\n"); }
static void sayData(void* data) { printf("data %s\n", (const char*)data); }
static void sayBoth(void* data, int n) { printf("%s %d\n", (const char*)data, n); }

static char both_name[] = "both";
static char crash_name[] = "crash";

// hello: normal only; "both": normal and interrupt; "data crash": crash only.
static void registerAll() {
    atExit(EXIT_NORMAL, ExitFunction{0, (void*)sayHello}, nullptr);
    atExit(EXIT_NORMAL | EXIT_INTERRUPT, ExitFunction{2, (void*)sayBoth}, both_name);
    atExit(EXIT_CRASH, ExitFunction{1, (void*)sayData}, crash_name);
}

static size_t count(const std::string& text, const std::string& part) {
    size_t n = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) n++;
    return n;
}

TEST(Interrupt, PrintsTheSignalAndEndsWith255) {
    Ending e = inChild([] { raise(SIGINT); });
    EXPECT_EQ(e.out, "\n*** INTERRUPTED *** [signal 2]\n");
    EXPECT_TRUE(exitedWith(e, 255)) << e.status;
}

TEST(Interrupt, HangupAndTerminateToo) {
    Ending hup = inChild([] { raise(SIGHUP); });
    EXPECT_EQ(hup.out, "\n*** INTERRUPTED *** [signal 1]\n");
    EXPECT_TRUE(exitedWith(hup, 255));
    Ending term = inChild([] { kill(getpid(), SIGTERM); });
    EXPECT_EQ(term.out, "\n*** INTERRUPTED *** [signal 15]\n");
    EXPECT_TRUE(exitedWith(term, 255));
}

TEST(Interrupt, SkipsTheNormalExitPath) {
    Ending e = inChild([] {
        atExit(EXIT_NORMAL, ExitFunction{0, (void*)sayHello}, nullptr);
        raise(SIGINT);
    });
    EXPECT_EQ(count(e.out, "hello"), 0u);
    EXPECT_TRUE(exitedWith(e, 255));
}

TEST(Crash, SegmentationFaultPrintsAndDiesOfTheSignal) {
    Ending e = inChild([] { raise(SIGSEGV); });
    EXPECT_EQ(e.out, "\n*** CRASHED *** [signal 11]\n");
    EXPECT_TRUE(diedOf(e, SIGSEGV)) << e.status;
}

TEST(Crash, AbortPrintsAndDiesOfTheSignal) {
    Ending e = inChild([] { abort(); });
    EXPECT_EQ(e.out, "\n*** CRASHED *** [signal 6]\n");
    EXPECT_TRUE(diedOf(e, SIGABRT));
}

TEST(Crash, OutputWaitingInAFullBufferIsFlushed) {
    Ending e = inChild([] {
        setvbuf(stdout, nullptr, _IOFBF, 4096);
        printf("before");
        raise(SIGBUS);
    });
    EXPECT_EQ(e.out, "before\n*** CRASHED *** [signal 7]\n");
    EXPECT_TRUE(diedOf(e, SIGBUS));
}

TEST(ExitFunctions, NormalExitRunsTheNormalListOnce) {
    Ending e = inChild([] {
        registerAll();
        exit(3);
    });
    EXPECT_EQ(e.out, "hello\nboth 3\n");
    EXPECT_TRUE(exitedWith(e, 3));
}

TEST(ExitFunctions, TerminateRunsTheInterruptListWithMinusTheSignal) {
    Ending e = inChild([] {
        registerAll();
        raise(SIGTERM);
    });
    EXPECT_EQ(e.out, "\n*** INTERRUPTED *** [signal 15]\nboth -15\n");
    EXPECT_TRUE(exitedWith(e, 255));
}

TEST(ExitFunctions, CrashRunsOnlyTheCrashList) {
    Ending e = inChild([] {
        registerAll();
        raise(SIGSEGV);
    });
    EXPECT_EQ(e.out, "\n*** CRASHED *** [signal 11]\ndata crash\n");
    EXPECT_TRUE(diedOf(e, SIGSEGV));
}

TEST(ExitFunctions, RegistrationFillsTheSelectedLists) {
    Ending e = inChild([] {
        registerAll();
        printf("%d %d %d\n", exitfuns_normal.size, exitfuns_interrupt.size, exitfuns_crash.size);
        _exit(0);
    });
    EXPECT_EQ(e.out, "2 1 1\n");
}

static void sayLate() { printf("late\n"); }
static void addLate() {
    printf("adding\n");
    atExit(EXIT_INTERRUPT, ExitFunction{0, (void*)sayLate}, nullptr);
}

TEST(ExitFunctions, EntriesAddedWhileRunningRunToo) {
    Ending e = inChild([] {
        atExit(EXIT_INTERRUPT, ExitFunction{0, (void*)addLate}, nullptr);
        raise(SIGINT);
    });
    EXPECT_EQ(e.out, "\n*** INTERRUPTED *** [signal 2]\nadding\nlate\n");
    EXPECT_TRUE(exitedWith(e, 255));
}

static void interruptAgain() { raise(SIGINT); }

TEST(ExitFunctions, ASecondInterruptGetsTheDefaultAction) {
    Ending e = inChild([] {
        atExit(EXIT_INTERRUPT, ExitFunction{0, (void*)interruptAgain}, nullptr);
        raise(SIGHUP);
    });
    EXPECT_EQ(e.out, "\n*** INTERRUPTED *** [signal 1]\n");
    EXPECT_TRUE(diedOf(e, SIGINT)) << e.status;
}
