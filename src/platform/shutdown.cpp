#include "shutdown.h"

#include <QCoreApplication>

namespace {

// Never freed: tasks may still ask for it while statics are torn down.
Shutdown *theInstance = nullptr;

} // namespace

Shutdown::Shutdown() = default;

Shutdown &Shutdown::instance()
{
    if (!theInstance)
        theInstance = new Shutdown;
    // Hooked to the first application object seen (made before one, it waits for it).
    auto *app = QCoreApplication::instance();
    if (app && !theInstance->m_hooked) {
        theInstance->m_hooked = true;
        connect(app, &QCoreApplication::aboutToQuit, theInstance, &Shutdown::begin);
        qAddPostRoutine(&Shutdown::last);
    }
    return *theInstance;
}

bool Shutdown::begun()
{
    return theInstance && theInstance->m_begun;
}

void Shutdown::begin()
{
    Shutdown &self = instance();
    if (self.m_begun)
        return;
    self.m_begun = true;
    emit self.begins();
}

void Shutdown::last()
{
    begin();
    // No event loop runs any more: the queued resumptions of the woken tasks and what they
    // handed to deleteLater are delivered here, a few rounds as one wakes the next.
    for (int round = 0; round < 4; ++round) {
        QCoreApplication::sendPostedEvents();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
}
