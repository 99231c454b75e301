#pragma once

#include <QCoroTask>
#include <QObject>
#include <QPointer>

#include <chrono>

class Clipboard;
class Sleeper;

// A copied secret stays on the clipboard for a minute, then goes, unless the person has
// copied something else meanwhile (that is theirs, not ours to clear).
class VaultClipboard : public QObject
{
    Q_OBJECT

public:
    static constexpr std::chrono::seconds lifetime{60};

    VaultClipboard(Clipboard &clipboard, Sleeper &sleeper, QObject *parent = nullptr);

    // False when there is no clipboard. Emits expired() when the minute is up.
    bool copy(const QString &text);

signals:
    // The minute of one copy is over (whether or not the text was still there).
    void expired(bool wasOurs);

private:
    QCoro::Task<> clearLater(QString text);

    Clipboard &m_clipboard;
    Sleeper &m_sleeper;
};
