#include "language.h"

#include "l.h"

#include <QList>
#include <QMutex>
#include <QPointer>
#include <QThread>

namespace {

// Live instances; the mutex also keeps an instance from dying while a re-read is posted to it.
QBasicMutex registryLock;
QList<Language *> registry;

} // namespace

Language::Language(QObject *parent)
    : QObject(parent)
{
    reread();
    const QMutexLocker lock(&registryLock);
    registry.append(this);
}

Language::~Language()
{
    const QMutexLocker lock(&registryLock);
    registry.removeOne(this);
}

void Language::reread()
{
    const QString code = L::current();
    // Only a stored Hebrew mirrors the window; an unset language lays out left to right.
    const bool rtl = L::stored() == u"he";
    const bool languageMoved = code != m_language;
    const bool directionMoved = rtl != m_rightToLeft;
    m_language = code;
    m_rightToLeft = rtl;
    if (languageMoved)
        emit languageChanged();
    if (directionMoved)
        emit rightToLeftChanged();
}

void Language::settingStored()
{
    QList<QPointer<Language>> here;
    {
        const QMutexLocker lock(&registryLock);
        for (Language *language : std::as_const(registry)) {
            if (language->thread() == QThread::currentThread())
                here.append(language);
            else
                QMetaObject::invokeMethod(language, &Language::reread, Qt::QueuedConnection);
        }
    }
    // Outside the lock: a handler of the signals may well call L::set again.
    for (const QPointer<Language> &language : std::as_const(here)) {
        if (language)
            language->reread();
    }
}
