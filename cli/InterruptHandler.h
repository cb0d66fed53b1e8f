#pragma once

// Turns Ctrl-C (SIGINT) and SIGTERM into a request to stop: the run abandons the file it is copying
// and ends within a second or two. A second Ctrl-C ends the process at once: every finished file
// is already recorded, so the next run carries on from there.
class InterruptHandler {
public:
    InterruptHandler();
    ~InterruptHandler();
    InterruptHandler(const InterruptHandler&) = delete;
    InterruptHandler& operator=(const InterruptHandler&) = delete;

    static bool requested();
    // Exit code of a run stopped by a signal, as shells report it.
    static constexpr int exitCode = 130;
};
