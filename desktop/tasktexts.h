#pragma once

#include <QObject>
#include <QtQml/qqmlregistration.h>

// The tasks screen's text family for QML.
class TaskTexts : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON

public:
    using QObject::QObject;

    Q_INVOKABLE QString heading() const;
    Q_INVOKABLE QString empty() const;
    Q_INVOKABLE QString newTask() const;
    Q_INVOKABLE QString add() const;
    Q_INVOKABLE QString markDone() const;
    Q_INVOKABLE QString reopen() const;
    Q_INVOKABLE QString project(const QString &name) const;
    Q_INVOKABLE QString counts(int open, int done) const;
    Q_INVOKABLE QString untitled() const;
};
