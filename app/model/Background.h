#pragma once

#include <QCoreApplication>
#include <QMetaObject>
#include <QPointer>
#include <QThreadPool>

#include <utility>

// Calls `apply(owner)` on the GUI thread, from any thread, unless the owner is gone by then.
template <typename Owner, typename Apply>
void onGuiThread(const QPointer<Owner>& guard, Apply apply)
{
    QMetaObject::invokeMethod(
        QCoreApplication::instance(),
        [guard, apply = std::move(apply)]() mutable {
            if (guard)
                apply(*guard);
        },
        Qt::QueuedConnection);
}

// Runs `work` on a thread of `pool`, then `apply(owner, result)` on the GUI thread, unless the
// owner is gone by then: the result of slow work never reaches an object that no longer wants it.
template <typename Owner, typename Work, typename Apply>
void runInBackground(QThreadPool& pool, Owner* owner, Work work, Apply apply)
{
    pool.start([guard = QPointer<Owner>(owner), work = std::move(work), apply = std::move(apply)]() mutable {
        onGuiThread(guard, [apply, result = work()](Owner& target) mutable { apply(target, std::move(result)); });
    });
}
