#pragma once

#include "platform/notifier.h"

#include <QList>

// Notifications kept in a list; a click is the test's to make.
class FakeNotifier : public Notifier
{
    Q_OBJECT

public:
    using Notifier::Notifier;

    bool available() const override { return true; }
    void show(const Note &note) override { shown << note; }
    void click(const QString &key) { emit clicked(key); }

    QList<Note> shown;
};
