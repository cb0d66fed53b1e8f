#include "CancelFlag.h"

void CancelFlag::cancel()
{
    std::lock_guard lock(m_lock);
    m_cancelled = true;
}

bool CancelFlag::isCancelled() const
{
    std::lock_guard lock(m_lock);
    return m_cancelled;
}
