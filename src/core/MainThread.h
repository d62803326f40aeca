#pragma once

#include <QCoreApplication>
#include <QPointer>
#include <QThreadPool>
#include <utility>

namespace tallowick
{

// Runs `then` on the main thread, later, and only if `receiver` still exists by then. Safe to
// call from any thread: the receiver is only looked at on the main thread.
template <typename Receiver, typename Then> void postToMainThread(const QPointer<Receiver> &receiver, Then then)
{
    QCoreApplication *application = QCoreApplication::instance();
    if (!application) {
        return; // the program is past its event loop: nobody is left to hear about it
    }
    QMetaObject::invokeMethod(
        application,
        [receiver, then = std::move(then)]() mutable {
            if (receiver) {
                then(*receiver);
            }
        },
        Qt::QueuedConnection);
}

// Runs `work` on the global background pool (never on a session's lane).
template <typename Work> void runInBackground(Work work)
{
    QThreadPool::globalInstance()->start(std::move(work));
}

// Drops `value` on the global background pool. The last copy of a large result owns tens of
// thousands of cells, and freeing them is work the window should not wait for.
template <typename Value> void releaseInBackground(Value value)
{
    runInBackground([held = std::move(value)]() mutable { const Value released = std::move(held); });
}

} // namespace tallowick
