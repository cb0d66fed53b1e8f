#pragma once

#include <mutex>

// Asks a run to stop. The one piece of state the GUI thread shares with a run's thread: the GUI
// sets it, the engine reads it between items.
class CancelFlag {
public:
    void cancel();
    bool isCancelled() const;

private:
    mutable std::mutex m_lock;
    bool m_cancelled = false;
};
