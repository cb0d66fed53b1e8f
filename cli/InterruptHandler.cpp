#include "InterruptHandler.h"

#include <atomic>
#include <csignal>
#include <unistd.h>

namespace {

std::atomic<int> g_interrupts{0};
struct sigaction g_previousInt {};
struct sigaction g_previousTerm {};

void onSignal(int)
{
    if (g_interrupts.fetch_add(1) >= 1) {
        static const char message[] = "\nStopped at once. The next backup carries on from the last finished file.\n";
        (void)!write(STDERR_FILENO, message, sizeof message - 1);
        _exit(InterruptHandler::exitCode);
    }
    static const char message[] =
        "\nStopping; the file being copied is left for the next backup (press Ctrl-C again to stop at once)...\n";
    (void)!write(STDERR_FILENO, message, sizeof message - 1);
}

} // namespace

InterruptHandler::InterruptHandler()
{
    g_interrupts = 0;
    struct sigaction action {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, &g_previousInt);
    sigaction(SIGTERM, &action, &g_previousTerm);
}

InterruptHandler::~InterruptHandler()
{
    sigaction(SIGINT, &g_previousInt, nullptr);
    sigaction(SIGTERM, &g_previousTerm, nullptr);
}

bool InterruptHandler::requested() { return g_interrupts.load() > 0; }
