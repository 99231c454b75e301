#pragma once

#include "notifier.h"

#include <QHash>

// org.freedesktop.Notifications on the session bus. Without a session bus or a running
// notification daemon it is simply not available, and show() does nothing.
class DBusNotifier : public Notifier
{
    Q_OBJECT

public:
    explicit DBusNotifier(QObject *parent = nullptr);

    bool available() const override;
    void show(const Note &note) override;

private slots:
    void onAction(uint id, const QString &action);
    void onClosed(uint id, uint reason);

private:
    QHash<uint, QString> m_keys; // notification id → key, until it closes
};
