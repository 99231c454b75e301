#include "vaultclipboard.h"

#include "platform/clipboard.h"
#include "platform/sleeper.h"

VaultClipboard::VaultClipboard(Clipboard &clipboard, Sleeper &sleeper, QObject *parent)
    : QObject(parent)
    , m_clipboard(clipboard)
    , m_sleeper(sleeper)
{}

bool VaultClipboard::copy(const QString &text)
{
    if (!m_clipboard.putSecret(text))
        return false;
    clearLater(text);
    return true;
}

QCoro::Task<> VaultClipboard::clearLater(QString text)
{
    QPointer<VaultClipboard> self(this);
    co_await m_sleeper.sleep(lifetime);
    if (!self)
        co_return;
    const bool ours = m_clipboard.holds(text);
    if (ours)
        m_clipboard.clear();
    text.fill(u'\0');
    emit expired(ours);
}
