#include "guiclipboard.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QMimeData>

using namespace Qt::StringLiterals;

namespace {

QClipboard *board()
{
    return qobject_cast<QGuiApplication *>(QCoreApplication::instance())
               ? QGuiApplication::clipboard()
               : nullptr;
}

} // namespace

bool GuiClipboard::putSecret(const QString &text)
{
    QClipboard *clipboard = board();
    if (!clipboard)
        return false;
    auto *data = new QMimeData;
    data->setText(text);
    // Klipper, GPaste and others leave such entries out of their history.
    data->setData(u"x-kde-passwordManagerHint"_s, "secret"_ba);
    clipboard->setMimeData(data, QClipboard::Clipboard);
    return true;
}

bool GuiClipboard::holds(const QString &text) const
{
    QClipboard *clipboard = board();
    if (!clipboard)
        return false;
    const QMimeData *data = clipboard->mimeData(QClipboard::Clipboard);
    return data && data->hasText() && data->text() == text;
}

void GuiClipboard::clear()
{
    if (QClipboard *clipboard = board())
        clipboard->clear(QClipboard::Clipboard);
}

bool GuiClipboard::displayPresent()
{
    return !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") ||
           !qEnvironmentVariableIsEmpty("DISPLAY");
}
